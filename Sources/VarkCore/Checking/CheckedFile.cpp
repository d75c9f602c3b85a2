#include "VarkCore/Checking/CheckedFile.h"

#include <fmt/format.h>

#include "VarkCore/Transfer/Format.h"

namespace vark {

std::pair<CheckedFile::Verdict, std::string> judge(const std::optional<VarkSide>& vark, const LocalSide& here,
                                                   const std::optional<FileStamp>& now) {
    using Verdict = CheckedFile::Verdict;
    if (!vark) return {Verdict::missing, "The vark has nothing there."};
    if (vark->isAmbiguous) return {Verdict::unproved, "The vark has two things of that name."};
    if (vark->isFolder) return {Verdict::differs, "The vark has a folder of that name."};
    if (here.neverStoodStill || !now || (here.sha256 && !(here.stamp == *now)))
        return {Verdict::changed, "It changed while it was looked at. Check it again."};
    if (!here.failure.empty()) return {Verdict::unreadable, here.failure};
    if (!vark->sha256)
        return {Verdict::unproved, "The vark has no checksum of it yet. Check it again a little later."};
    if (now->size != vark->size)
        return {Verdict::differs, fmt::format("It has {} here and {} in the vark.", Format::bytes(now->size),
                                              Format::bytes(vark->size))};
    if (!here.sha256) return {Verdict::unproved, "It was not read."};
    if (*here.sha256 != *vark->sha256)
        return {Verdict::differs, "It is as long as in the vark and has other bytes."};
    return {Verdict::same, ""};
}

}  // namespace vark
