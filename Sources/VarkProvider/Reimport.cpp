#include "VarkProvider/Reimport.h"

namespace vark {
namespace {

/// Seconds.
constexpr double betweenReimports = 3600;

}  // namespace

Reimport::Answer Reimport::answer(const std::optional<VarkItem>& varkKnows,
                                  const std::optional<VarkItem>& varkHas,
                                  const std::optional<BinnedItem>& binned, bool wantFolder,
                                  std::int64_t localSize, const std::optional<std::string>& localSHA256) {
    if (varkKnows && varkKnows->isDir == wantFolder) return HandBack{};
    if (varkHas && varkHas->isDir == wantFolder) return HandBack{};
    // A folder has no bytes to compare: one of that path in the Bin is enough.
    const bool isTheBinnedFolder = wantFolder && binned && binned->isDir && binned->id;
    const bool isTheBinnedFile =
        bytesWorthChecking(binned, wantFolder, localSize) && localSHA256 == binned->sha256;
    if (isTheBinnedFolder || isTheBinnedFile) return BackToDeleted{*binned->id};
    return PutItInTheVark{};
}

bool Reimport::bytesWorthChecking(const std::optional<BinnedItem>& binned, bool wantFolder,
                                  std::int64_t localSize) {
    if (wantFolder || !binned || !binned->id || binned->isDir) return false;
    return binned->size == localSize && !binned->sha256.empty();
}

bool ReimportPolicy::wanted(std::string_view thisVersion, const std::optional<std::string>& lastVersion,
                            const std::optional<Date>& lastReimport, Date now, bool askedByPerson) {
    if (askedByPerson) return true;
    // One that lies ahead says only that the clock was set back.
    if (lastReimport && now >= *lastReimport && now - *lastReimport < betweenReimports) return false;
    return !thisVersion.empty() && lastVersion != thisVersion;
}

}  // namespace vark
