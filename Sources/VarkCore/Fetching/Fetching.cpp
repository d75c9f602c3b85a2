#include "VarkCore/Fetching/Fetching.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <ranges>
#include <stdexcept>
#include <variant>

#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark {
namespace {

constexpr int rangeNotSatisfiable = 416;

/// Hashing that ends at once when its task is cancelled.
template <class Hash>
std::string cancellable(const std::stop_token& cancelled, Hash hash) {
    try {
        return hash([&cancelled](std::int64_t) { return !cancelled.stop_requested(); });
    } catch (const FileHasher::Cancelled&) {
        throw CancellationError();
    }
}

/// The vark has no such part, or sends another.
bool refusesTheRest(const VarkAPIError& error) {
    const auto* server = std::get_if<VarkAPIError::Server>(&error.which());
    return (server != nullptr && server->status == rangeNotSatisfiable) ||
           std::holds_alternative<VarkAPIError::BadResponse>(error.which());
}

/// What no permission to replace files is about.
std::runtime_error isInTheWay(mode_t mode) {
    if (S_ISDIR(mode)) return std::runtime_error("A folder of that name is there, and was left alone.");
    if (S_ISLNK(mode))
        return std::runtime_error("A link of that name is there, and is neither followed nor replaced.");
    return std::runtime_error("Something of that name is there that is no file, and was left alone.");
}

}  // namespace

/// Listed among the parts under way for as long as it lives.
class Fetching::UnderWay {
  public:
    UnderWay(Fetching& all, const PartFile& part) : all_(all), part_(part) {
        all_.underWay_.push_back(&part_);
    }
    UnderWay(const UnderWay&) = delete;
    UnderWay& operator=(const UnderWay&) = delete;
    ~UnderWay() {
        std::erase(all_.underWay_, &part_);
        all_.movedBytes_ += part_.taken();
    }

  private:
    Fetching& all_;
    const PartFile& part_;
};

Task<void> Fetching::all(WantedFiles wanted, std::filesystem::path into) {
    wanted_ = std::move(wanted);
    into_ = std::move(into);
    const std::stop_token cancelled = co_await thisToken();
    auto makeAll = [this, &cancelled] { return makeFolders(cancelled); };
    const std::vector<Unmade> unmade = co_await pool_.run(makeAll);
    co_await checkCancellation();
    tellUnmade(unmade);
    auto make = [this](const WantedFiles::File& file) { return one(file); };
    co_await forEachBounded(std::span(std::as_const(wanted_.files)), filesAtOnce, make);
}

std::vector<Fetching::Unmade> Fetching::makeFolders(const std::stop_token& cancelled) const {
    std::vector<std::vector<std::string>> parts(wanted_.folders.size());
    for (const WantedFiles::File& file : wanted_.files)
        parts[file.folder].push_back(PartFile::nameFor(file.name, file.item.sha256));
    std::vector<Unmade> unmade;
    std::vector<bool> isThere(wanted_.folders.size(), true);
    for (std::size_t place = 0; place < parts.size() && !cancelled.stop_requested(); ++place) {
        try {
            if (!isThere[wanted_.folders[place].parent]) {
                isThere[place] = false;
                continue;
            }
            const OpenFolder folder = open(place);
            if (!parts[place].empty()) PartFile::sweep(folder, parts[place], now_());
        } catch (const FileError& error) {
            isThere[place] = false;
            unmade.push_back({place, error.what()});
        }
    }
    return unmade;
}

void Fetching::tellUnmade(const std::vector<Unmade>& unmade) {
    unmadeAbove_.assign(wanted_.folders.size(), std::nullopt);
    for (const Unmade& one : unmade)
        unmadeAbove_[one.folder] = one.folder;
    for (std::size_t place = 1; place < unmadeAbove_.size(); ++place) {
        if (!unmadeAbove_[place]) unmadeAbove_[place] = unmadeAbove_[wanted_.folders[place].parent];
    }
    std::vector<std::int64_t> files(wanted_.folders.size(), 0);
    for (const WantedFiles::File& file : wanted_.files) {
        if (unmadeAbove_[file.folder]) ++files[*unmadeAbove_[file.folder]];
    }
    for (const Unmade& one : unmade) {
        onFile_({.to = into_ / wanted_.pathOf(one.folder),
                 .failure = one.why + " Nothing in it was fetched.",
                 .files = std::max<std::int64_t>(files[one.folder], 1)});
    }
}

OpenFolder Fetching::open(std::size_t folder) const {
    std::vector<const std::string*> names;
    for (; folder != 0; folder = wanted_.folders[folder].parent)
        names.push_back(&wanted_.folders[folder].name);
    OpenFolder opened = OpenFolder::named(into_);
    for (const std::string* name : names | std::views::reverse)
        opened = opened.inside(*name);
    return opened;
}

Task<void> Fetching::one(const WantedFiles::File& file) {
    if (unmadeAbove_[file.folder]) {
        settledBytes_ += file.item.size;
        co_return;
    }
    FetchedFile fetched{.to = into_ / wanted_.pathOf(file), .size = file.item.size};
    try {
        co_await bring(file, fetched);
    } catch (const VarkAPIError& error) {
        if (error.isSignOut() || error == VarkAPIError::notConnected()) throw;
        fetched.failure = error.isGone() ? "It is no longer in the vark." : error.errorDescription();
    } catch (const std::runtime_error& error) {
        fetched.failure = error.what();
    }
    settledBytes_ += file.item.size;
    onFile_(fetched);
}

Task<void> Fetching::bring(const WantedFiles::File& file, FetchedFile& fetched) {
    const std::stop_token cancelled = co_await thisToken();
    auto look = [&] { return lookAt(file, cancelled); };
    const Place place = co_await pool_.run(look);
    if (place.standing == Standing::same) {
        fetched.wasThere = fetched.checked = true;
        co_return;
    }
    if (place.standing == Standing::other && whatStands_ == WhatStands::stays) {
        fetched.isKept = true;
        throw std::runtime_error("A file of that name is there with other contents, and was left alone.");
    }
    auto openPart = [&] { return std::make_unique<PartFile>(place.folder, file.name, file.item); };
    const std::unique_ptr<PartFile> part = co_await pool_.run(openPart);
    const UnderWay here(*this, *part);
    while (!co_await bringRest(file, *part)) {
        auto startOver = [&] { part->startOver(); };
        co_await pool_.run(startOver);
    }
    auto putInPlace = [&] { part->moveIntoPlace(whatStands_, file.item.mtime); };
    co_await pool_.run(putInPlace);
    fetched.checked = !file.item.sha256.empty();
}

Fetching::Place Fetching::lookAt(const WantedFiles::File& file, const std::stop_token& cancelled) const {
    Place place{open(file.folder), Standing::nothing};
    const std::optional<struct stat> there = place.folder.look(file.name);
    if (!there) return place;
    if (!S_ISREG(there->st_mode)) throw isInTheWay(there->st_mode);
    place.standing = Standing::other;
    if (file.item.sha256.empty() || there->st_size != file.item.size) return place;
    const Descriptor standing = place.folder.tryOpen(file.name, O_RDONLY | O_NONBLOCK);
    // One that cannot be read is not known to be the same.
    if (!standing) return place;
    const std::string hash = cancellable(cancelled, [&](const FileHasher::Progress& progress) {
        return FileHasher::sha256Of(standing, place.folder.pathOf(file.name), progress);
    });
    if (hash == file.item.sha256) place.standing = Standing::same;
    return place;
}

Task<bool> Fetching::bringRest(const WantedFiles::File& file, PartFile& part) {
    try {
        if (part.next() == 0 || part.next() != file.item.size) co_await api_->fetch(file.item.id, part);
    } catch (const VarkAPIError& error) {
        if (!part.isContinued() || !refusesTheRest(error)) throw;
        co_return false;
    }
    if (co_await holds(part, file.item)) co_return true;
    // What an earlier run left may be what is wrong with it.
    if (part.isContinued()) co_return false;
    part.discard();
    throw std::runtime_error(
        file.item.sha256.empty()
            ? "It did not arrive whole. Get it again."
            : "What arrived is not what the vark has. It may have been changed just now; get it again.");
}

Task<bool> Fetching::holds(const PartFile& part, const VarkItem& item) {
    if (item.sha256.empty()) co_return part.next() == item.size;
    const std::stop_token cancelled = co_await thisToken();
    auto hash = [&] {
        return cancellable(cancelled,
                           [&part](const FileHasher::Progress& progress) { return part.sha256(progress); });
    };
    const std::string arrived = co_await pool_.run(hash);
    // Ctrl-C after the last piece was hashed is still before the file took its place.
    co_await checkCancellation();
    co_return arrived == item.sha256;
}

std::int64_t Fetching::receivedBytes() const {
    std::int64_t bytes = settledBytes_;
    for (const PartFile* part : underWay_)
        bytes += part->next();
    return bytes;
}

std::int64_t Fetching::movedBytes() const {
    std::int64_t bytes = movedBytes_;
    for (const PartFile* part : underWay_)
        bytes += part->taken();
    return bytes;
}

}  // namespace vark
