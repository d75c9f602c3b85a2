#include "Hosts/CLI/Fetching.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>

#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark::cli {

namespace {

constexpr std::int64_t itemsOfAPage = 1000;
constexpr std::size_t filesAtOnce = 4;

/// Whether a name of the vark's can be a file's name here, and nothing else.
bool canStandHere(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           escapedForTerminal(name) == name;
}

std::string cannotStandHere(const VarkItem& item) {
    return fmt::format("\"{}\" was left out: a file here cannot have that name. Rename it in the vark first.",
                       escapedForTerminal(item.path.empty() ? item.name : item.path));
}

/// A folder that is still to be listed.
struct Unlisted {
    std::int64_t id;
    std::filesystem::path to;
};

/// Takes one item in; a folder of it waits in `unlisted`.
void take(VarkItem item, std::filesystem::path to, WantedFiles& wanted, std::deque<Unlisted>& unlisted) {
    if (item.isDir) {
        wanted.folders.push_back(to);
        unlisted.push_back({item.id, std::move(to)});
        return;
    }
    wanted.totalBytes += item.size;
    wanted.files.push_back({std::move(item), std::move(to)});
}

/// A temporary file beside the one that it becomes; gone again unless it took that place.
class Arriving {
  public:
    explicit Arriving(const std::filesystem::path& to) : path_(temporaryPathBeside(to)) {}
    Arriving(const Arriving&) = delete;
    Arriving& operator=(const Arriving&) = delete;
    ~Arriving() {
        std::error_code notThere;
        std::filesystem::remove(path_, notThere);
    }
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

/// Throws a sentence unless the file holds what the vark said it would. Answers whether a checksum said so.
bool requireBytesOf(const VarkItem& item, const std::filesystem::path& file) {
    if (!item.sha256.empty()) {
        if (FileHasher::sha256Of(file) == item.sha256) return true;
        throw std::runtime_error(
            "What arrived is not what the vark has. It may have been changed just now; get it again.");
    }
    if (std::filesystem::file_size(file) == static_cast<std::uint64_t>(item.size)) return false;
    throw std::runtime_error("It did not arrive whole. Get it again.");
}

}  // namespace

Task<WantedFiles> listWanted(std::shared_ptr<VarkAPI> api, VarkItem top, std::filesystem::path to) {
    WantedFiles wanted;
    std::deque<Unlisted> unlisted;
    take(std::move(top), std::move(to), wanted, unlisted);
    while (!unlisted.empty()) {
        const Unlisted folder = std::move(unlisted.front());
        unlisted.pop_front();
        std::string cursor;
        for (;;) {
            VarkPage page = co_await api->children(folder.id, cursor, itemsOfAPage, false);
            for (VarkItem& item : page.items) {
                if (!canStandHere(item.name)) {
                    wanted.leftOut.push_back(cannotStandHere(item));
                    continue;
                }
                std::filesystem::path below = folder.to / item.name;
                take(std::move(item), std::move(below), wanted, unlisted);
            }
            if (!page.more) break;
            if (page.cursor == cursor)
                throw std::runtime_error(
                    "The vark sends the same page again and again. Nothing was fetched; try again later.");
            cursor = std::move(page.cursor);
        }
    }
    co_return wanted;
}

Task<void> Fetching::all(const WantedFiles& wanted) {
    for (const std::filesystem::path& folder : wanted.folders)
        std::filesystem::create_directories(folder);
    auto make = [this](const WantedFile& file) { return one(file); };
    co_await forEachBounded(std::span(wanted.files), filesAtOnce, make);
}

Task<void> Fetching::one(const WantedFile& file) {
    FetchedFile fetched{file.to, file.item.size, std::nullopt, false};
    try {
        fetched.checked = co_await bring(file);
    } catch (const VarkAPIError& error) {
        if (error.isSignOut() || error == VarkAPIError::notConnected()) throw;
        fetched.failure = error.isGone() ? "It is no longer in the vark." : error.errorDescription();
    } catch (const FileError& error) {
        fetched.failure =
            error.errorNumber() == EEXIST
                ? "Something of that name is there already, and was left alone. Overwrite it with --force."
                : error.what();
    } catch (const std::runtime_error& error) {
        fetched.failure = error.what();
    }
    settledBytes_ += file.item.size;
    onFile_(fetched);
}

Task<bool> Fetching::bring(const WantedFile& file) {
    const bool replaces = whatStands_ == WhatStands::isReplaced;
    if (!replaces && std::filesystem::exists(std::filesystem::symlink_status(file.to)))
        throw FileError("Could not put in place", file.to, EEXIST);
    const Arriving arriving(file.to);
    co_await download(file.item, arriving.path());
    co_return co_await pool_.run([&] {
        const bool checked = requireBytesOf(file.item, arriving.path());
        moveIntoPlace(arriving.path(), file.to, replaces ? Replacing::allowed : Replacing::refused);
        return checked;
    });
}

Task<void> Fetching::download(const VarkItem& item, std::filesystem::path to) {
    const std::shared_ptr<VarkDownload> download = api_->download(item.id, std::move(to));
    UnderWay here{item.size, download->progress()};
    underWay_.push_back(&here);
    Outcome<void> outcome = co_await detail::outcomeOf(download->value());
    std::erase(underWay_, &here);
    outcome.take();
}

std::int64_t Fetching::receivedBytes() const {
    std::int64_t bytes = settledBytes_;
    for (const UnderWay* file : underWay_)
        bytes +=
            static_cast<std::int64_t>(static_cast<double>(file->size) * file->progress->fractionCompleted());
    return bytes;
}

}  // namespace vark::cli
