#pragma once

#include <atomic>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <unordered_map>
#include <vector>

#include "VarkCore/Actions/FolderPages.h"
#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/Checking/CheckedFile.h"
#include "VarkCore/Checking/LocalFiles.h"
#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark {

/// What came of a check.
struct CheckReport {
    /// All that was named, by the order of the naming and then as a file browser lists it; what lies there
    /// and is no file that could be sent comes behind the files.
    std::vector<CheckedFile> files;
    std::int64_t same = 0;
    /// Bytes, of those that are the same.
    std::int64_t sameBytes = 0;
    /// Nobody looked at these.
    std::int64_t excluded = 0;
    std::int64_t emptyFolders = 0;
    /// The names of those things that were named of which the vark has nothing at all.
    std::vector<std::string> missingRoots;

    /// Everything is in the vark, as far as anybody wanted to know; of nothing at all that is not so.
    bool isProved() const { return same > 0 && same == std::ssize(files); }
};

/// Compares what lies here with what the vark says that it has, by checksum: files are read on the pool while
/// the folders of the vark are listed, and the folders here are walked once more at the end, so that what
/// came or changed meanwhile is never vouched for. One object for one check; on the executor on which `run`
/// runs, and it outlives that.
class Checking {
  public:
    struct Host {
        std::shared_ptr<VarkAPI> api;
        BlockingPool& pool;
        const Volumes& volumes;
    };

    /// Hidden files are looked at whatever the options say: they go too when a folder is deleted.
    Checking(Host host, Walker::Options options);

    /// Each path, absolute and without dots, against what is of its name in the folder `against`. Fails with
    /// `VarkAPIError` when the vark cannot be asked: then nothing is known.
    Task<CheckReport> run(std::vector<std::filesystem::path> paths, std::string against);

    // What a person may see of it meanwhile.
    std::int64_t files() const { return std::ssize(local_.files); }
    std::int64_t totalBytes() const { return totalBytes_; }
    std::int64_t readBytes() const { return readBytes_; }

  private:
    struct Wanted {
        std::size_t folder;
        std::int64_t id;
    };

    Task<void> walkAll(std::vector<std::filesystem::path> paths);
    Task<void> findRoots(std::string against);
    Task<void> findRootsInList(VarkItem folder);
    Task<void> list(Wanted wanted);
    Task<void> read(std::vector<std::size_t> batch);
    Task<std::vector<std::optional<FileStamp>>> lookAgain();

    void startMore();
    std::vector<std::size_t> nextBatch();
    void noteRoot(const LocalFiles::Root& root, const VarkItem& item);
    void noteFile(std::size_t file, const VarkItem& item);
    void noteUnlisted(std::size_t folder);
    LocalSide readFile(std::size_t file, const std::stop_token& cancelled);
    CheckReport report(const std::vector<std::optional<FileStamp>>& now);
    void reportOthers(const LocalFiles::Root& root, CheckReport& report) const;

    const Host host_;
    const Walker::Options options_;
    FolderPages pages_;
    LocalFiles local_;
    std::vector<std::optional<VarkSide>> vark_;
    std::vector<bool> isAsked_;  // Whether the vark has answered for a file, if only by its absence.
    std::vector<LocalSide> here_;
    std::vector<CheckedFile> came_;
    std::vector<bool> isFound_;  // Of the roots.
    std::int64_t totalBytes_ = 0;
    std::atomic<std::int64_t> readBytes_ = 0;

    TaskGroup<void>* group_ = nullptr;  // While `run` runs.
    std::deque<Wanted> unlisted_;
    std::size_t listing_ = 0;
    std::size_t reading_ = 0;
    std::size_t nextFile_ = 0;
};

}  // namespace vark
