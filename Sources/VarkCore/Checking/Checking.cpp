#include "VarkCore/Checking/Checking.h"

#include <algorithm>
#include <cerrno>
#include <thread>

#include "VarkCore/Upload/FileHasher.h"

namespace vark {
namespace {

using Passed = Walker::PassedOver::Kind;
using Verdict = CheckedFile::Verdict;

/// More of them are looked up in one list.
constexpr std::size_t mostAskedOneByOne = 16;
constexpr std::size_t listsAtOnce = 4;
/// A disk that turns reads few files at once fastest.
const std::size_t readsAtOnce = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 2, 4);
/// What one thread reads before it comes back: enough that the way there and back costs nothing.
constexpr std::size_t mostOfABatch = 64;
constexpr std::int64_t bytesOfABatch = 8 << 20;

Walker::Options withHidden(Walker::Options options) {
    options.hidden = true;
    return options;
}

VarkSide sideOf(const VarkItem& item) {
    return {item.isDir, item.size, ContentHash::parse(item.sha256)};
}

const char* whyUnproved(Passed kind) {
    switch (kind) {
        case Passed::ignored:
            return "It is of those that systems leave in folders, which are never sent.";
        case Passed::hidden:
            return "It is hidden.";
        case Passed::link:
            return "It is a link. What it leads to was not looked at.";
        case Passed::special:
            return "It is neither a file nor a folder.";
        case Passed::unreadable:
            return "The folder could not be read.";
        case Passed::nameIsNotText:
            return "Its name is not UTF-8 text, so it cannot have been sent.";
        case Passed::emptyFolder:
        case Passed::excluded:
            break;
    }
    return "";
}

}  // namespace

Checking::Checking(Host host, Walker::Options options)
    : host_(std::move(host)),
      options_(withHidden(std::move(options))),
      pages_(host_.api, FolderPages::Patience::some) {}

Task<CheckReport> Checking::run(std::vector<std::filesystem::path> paths, std::string against) {
    co_await walkAll(std::move(paths));
    const auto body = [this, &against](TaskGroup<void>& group) -> Task<void> {
        group_ = &group;
        group.add(findRoots(std::move(against)));
        startMore();
        while (co_await group.next())
            startMore();
    };
    co_await withGroup<void>(body);
    group_ = nullptr;
    const std::vector<std::optional<FileStamp>> now = co_await lookAgain();
    co_return report(now);
}

Task<void> Checking::walkAll(std::vector<std::filesystem::path> paths) {
    const std::stop_token cancelled = co_await thisToken();
    for (const std::filesystem::path& path : paths) {
        const auto walk = [&] { return Walker::walk(path, host_.volumes, options_, cancelled); };
        try {
            Walker::Result walked = co_await host_.pool.run(walk);
            local_.add(path, std::move(walked));
        } catch (const std::runtime_error& error) {
            local_.addLost(path, error.what());
        }
    }
    for (const LocalFiles::File& file : local_.files)
        totalBytes_ += file.found.size;
    vark_.resize(local_.files.size());
    here_.resize(local_.files.size());
    isAsked_.resize(local_.files.size());
    isFound_.resize(local_.roots.size());
}

Task<void> Checking::findRoots(std::string against) {
    if (local_.roots.size() > mostAskedOneByOne && !against.empty()) {
        const std::optional<VarkItem> folder = co_await pages_.find(against);
        if (folder && folder->isDir) co_await findRootsInList(*folder);
    } else {
        for (const LocalFiles::Root& root : local_.roots) {
            std::string path = against.empty() ? root.name : against + "/" + root.name;
            const std::optional<VarkItem> item = co_await pages_.find(std::move(path));
            if (item) noteRoot(root, *item);
        }
    }
    for (std::size_t place = 0; place < local_.roots.size(); ++place) {
        const LocalFiles::Root& root = local_.roots[place];
        if (isFound_[place] || root.lost) continue;
        for (std::size_t file = root.firstFile; file < root.firstFile + root.fileCount; ++file)
            isAsked_[file] = true;
    }
}

Task<void> Checking::findRootsInList(VarkItem folder) {
    std::unordered_multimap<std::string_view, const LocalFiles::Root*> named;
    for (const LocalFiles::Root& root : local_.roots)
        named.emplace(root.name, &root);
    for (std::optional<std::string> cursor = ""; cursor;) {
        FolderPages::Page page = co_await pages_.page(folder.id, *cursor);
        for (const VarkItem& item : page.items) {
            const auto [first, last] = named.equal_range(item.name);
            for (auto root = first; root != last; ++root)
                noteRoot(*root->second, item);
        }
        cursor = std::move(page.next);
    }
}

void Checking::noteRoot(const LocalFiles::Root& root, const VarkItem& item) {
    isFound_[static_cast<std::size_t>(&root - local_.roots.data())] = true;
    if (root.lost) return;
    if (!root.isFolder) {
        if (root.fileCount > 0) noteFile(root.firstFile, item);
        return;
    }
    if (item.isDir) {
        unlisted_.push_back({root.place, item.id});
        startMore();
        return;
    }
    // A file cannot hold what lies in a folder here.
    noteUnlisted(root.place);
}

void Checking::noteFile(std::size_t file, const VarkItem& item) {
    isAsked_[file] = true;
    if (vark_[file]) {
        vark_[file]->isAmbiguous = true;
    } else {
        vark_[file] = sideOf(item);
    }
}

void Checking::noteUnlisted(std::size_t folder) {
    for (const std::size_t file : local_.folders[folder].files)
        isAsked_[file] = true;
    for (const std::size_t inner : local_.folders[folder].folders)
        noteUnlisted(inner);
}

Task<void> Checking::list(Wanted wanted) {
    const LocalFiles::Folder& folder = local_.folders[wanted.folder];
    std::unordered_map<std::string_view, std::size_t> files;
    std::unordered_map<std::string_view, std::size_t> folders;
    for (const std::size_t file : folder.files) {
        const std::string_view path = local_.files[file].path;
        files.emplace(path.substr(path.rfind('/') + 1), file);
    }
    for (const std::size_t inner : folder.folders)
        folders.emplace(local_.folders[inner].name, inner);
    for (std::optional<std::string> cursor = ""; cursor;) {
        FolderPages::Page page = co_await pages_.page(wanted.id, *cursor);
        for (const VarkItem& item : page.items) {
            if (const auto file = files.find(item.name); file != files.end()) noteFile(file->second, item);
            const auto inner = item.isDir ? folders.find(item.name) : folders.end();
            if (inner == folders.end()) continue;
            unlisted_.push_back({inner->second, item.id});
            folders.erase(inner);
        }
        startMore();
        cursor = std::move(page.next);
    }
    for (const std::size_t file : folder.files)
        isAsked_[file] = true;
    for (const auto& [name, inner] : folders)
        noteUnlisted(inner);
    --listing_;
}

void Checking::startMore() {
    while (listing_ < listsAtOnce && !unlisted_.empty()) {
        ++listing_;
        group_->add(list(unlisted_.front()));
        unlisted_.pop_front();
    }
    while (reading_ < readsAtOnce) {
        std::vector<std::size_t> batch = nextBatch();
        if (batch.empty()) break;
        ++reading_;
        group_->add(read(std::move(batch)));
    }
}

std::vector<std::size_t> Checking::nextBatch() {
    std::vector<std::size_t> batch;
    std::int64_t bytes = 0;
    for (; nextFile_ < local_.files.size() && batch.size() < mostOfABatch && bytes < bytesOfABatch;
         ++nextFile_) {
        const std::int64_t size = local_.files[nextFile_].found.size;
        const std::optional<VarkSide>& vark = vark_[nextFile_];
        // What cannot be the same has not to be read.
        const bool cannotBe = isAsked_[nextFile_] && (!vark || !vark->sha256 || vark->size != size);
        if (cannotBe) {
            readBytes_ += size;
            continue;
        }
        batch.push_back(nextFile_);
        bytes += size;
    }
    return batch;
}

Task<void> Checking::read(std::vector<std::size_t> batch) {
    const std::stop_token cancelled = co_await thisToken();
    const auto readAll = [&] {
        std::vector<LocalSide> sides;
        for (const std::size_t file : batch)
            sides.push_back(readFile(file, cancelled));
        return sides;
    };
    std::vector<LocalSide> sides = co_await host_.pool.run(readAll);
    for (std::size_t place = 0; place < batch.size(); ++place)
        here_[batch[place]] = std::move(sides[place]);
    --reading_;
}

LocalSide Checking::readFile(std::size_t file, const std::stop_token& cancelled) {
    std::int64_t told = 0;
    const auto tell = [&](std::int64_t bytes) {
        readBytes_ += bytes - told;
        told = bytes;
        return !cancelled.stop_requested();
    };
    LocalSide side;
    try {
        const FileHasher::Look look = FileHasher::lookAt(local_.files[file].localPath, tell);
        side.sha256 = ContentHash::parse(look.sha256);
        side.stamp = look.stamp;
    } catch (const FileHasher::Cancelled&) {
        throw CancellationError();
    } catch (const FileError& error) {
        side.failure = error.what();
        side.neverStoodStill = error.errorNumber() == ESTALE;
    }
    return side;
}

Task<std::vector<std::optional<FileStamp>>> Checking::lookAgain() {
    std::vector<std::optional<FileStamp>> now(local_.files.size());
    const std::stop_token cancelled = co_await thisToken();
    for (const LocalFiles::Root& root : local_.roots) {
        if (root.lost) continue;
        const auto walk = [&] { return Walker::walk(root.path, host_.volumes, options_, cancelled); };
        Walker::Result again;
        try {
            again = co_await host_.pool.run(walk);
        } catch (const std::runtime_error&) {
            // Then nobody knows what lies there now, and nothing of it is vouched for.
            continue;
        }
        std::unordered_map<std::string_view, std::size_t> known;
        for (std::size_t file = root.firstFile; file < root.firstFile + root.fileCount; ++file)
            known.emplace(local_.files[file].path, file);
        for (const Walker::Found& found : again.files) {
            if (const auto file = known.find(found.relativePath); file != known.end()) {
                now[file->second] = FileStamp{found.size, found.mtime};
            } else {
                came_.push_back({found.relativePath, (root.path.parent_path() / found.relativePath).string(),
                                 found.size, Verdict::changed, "It came while this looked. Check it again."});
            }
        }
        for (const Walker::PassedOver& passed : again.passedOver) {
            if (passed.kind == Passed::excluded || passed.kind == Passed::emptyFolder) continue;
            if (std::ranges::binary_search(root.passedOver, passed.relativePath, {},
                                           &Walker::PassedOver::relativePath))
                continue;
            came_.push_back({passed.relativePath, (root.path.parent_path() / passed.relativePath).string(), 0,
                             Verdict::changed, "It came while this looked. Check it again."});
        }
    }
    co_return now;
}

CheckReport Checking::report(const std::vector<std::optional<FileStamp>>& now) {
    CheckReport report;
    report.files.reserve(local_.files.size());
    for (std::size_t place = 0; place < local_.roots.size(); ++place) {
        const LocalFiles::Root& root = local_.roots[place];
        if (root.lost) {
            report.files.push_back({root.name, root.path.string(), 0, Verdict::unreadable, *root.lost});
            continue;
        }
        if (!isFound_[place]) report.missingRoots.push_back(root.name);
        for (std::size_t file = root.firstFile; file < root.firstFile + root.fileCount; ++file) {
            auto [verdict, why] = judge(vark_[file], here_[file], now[file]);
            const LocalFiles::File& known = local_.files[file];
            if (verdict == Verdict::same) {
                ++report.same;
                report.sameBytes += known.found.size;
            }
            report.files.push_back(
                {known.path, known.localPath.string(), known.found.size, verdict, std::move(why)});
        }
        reportOthers(root, report);
    }
    std::ranges::move(came_, std::back_inserter(report.files));
    return report;
}

void Checking::reportOthers(const LocalFiles::Root& root, CheckReport& report) const {
    for (const Walker::PassedOver& passed : root.passedOver) {
        if (passed.kind == Passed::excluded) {
            ++report.excluded;
        } else if (passed.kind == Passed::emptyFolder) {
            ++report.emptyFolders;
        } else {
            report.files.push_back(
                {passed.relativePath, (root.path.parent_path() / passed.relativePath).string(), 0,
                 passed.kind == Passed::unreadable ? Verdict::unreadable : Verdict::unproved,
                 whyUnproved(passed.kind)});
        }
    }
}

}  // namespace vark
