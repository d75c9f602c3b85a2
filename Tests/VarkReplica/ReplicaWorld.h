#pragma once

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "VarkReplica/Replica.h"

namespace vark::test {

/// Of the vark's folder that is shown as the top.
inline constexpr std::int64_t topID = 100;

inline VarkItem folder(std::int64_t id, std::int64_t parent, std::string name) {
    VarkItem item;
    item.id = id;
    item.parent = parent;
    item.name = std::move(name);
    item.isDir = true;
    return item;
}

/// Its bytes are told by `version` alone.
inline VarkItem file(std::int64_t id, std::int64_t parent, std::string name, int version = 1) {
    VarkItem item = folder(id, parent, std::move(name));
    item.isDir = false;
    item.size = version * 10;
    item.mtime = version * 1.5;
    item.sha256 = std::string(64, static_cast<char>('0' + version));
    return item;
}

/// A folder in memory for one test: what these tests are about is no matter of a disk's speed.
class MemoryFolder {
  public:
    MemoryFolder() {
        if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("No folder in memory could be made.");
    }
    MemoryFolder(const MemoryFolder&) = delete;
    MemoryFolder& operator=(const MemoryFolder&) = delete;
    ~MemoryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::filesystem::path operator/(std::string_view name) const {
        return std::filesystem::path(path_) / name;
    }

  private:
    std::string path_ = "/dev/shm/vark-test-XXXXXX";
};

/// A replica of its own.
class ReplicaWorld {
  public:
    ReplicaWorld() { start(); }

    Replica& replica() { return *replica_; }
    ReplicaStore& store() { return *store_; }
    const ReplicaFiles& files() const { return files_; }

    void restart() {
        replica_.reset();
        store_.reset();
        start();
    }

    Learnt learn(const std::vector<VarkItem>& items) { return replica().learn(items, replica().ask()); }
    Learnt gone(const std::vector<std::int64_t>& ids) { return replica().gone(ids, replica().ask()); }

    Ino ino(std::int64_t id) {
        ReplicaStore::Reading reading = store().read();
        return ItemRows(reading.turn()).withID(id).value().ino;
    }
    Record row(std::int64_t id) { return replica().record(ino(id)).value(); }

    /// The paths of all that is shown, sorted; those of folders end with "/".
    std::vector<std::string> shown() {
        std::vector<std::string> paths;
        collect(rootIno, "", paths);
        std::ranges::sort(paths);
        return paths;
    }
    /// The vark's numbers of what is to be asked for again, sorted.
    std::vector<std::int64_t> asked() {
        std::vector<std::int64_t> ids;
        for (const Record& record : replica().stale(1000))
            ids.push_back(record.there.value().id);
        std::ranges::sort(ids);
        return ids;
    }

  private:
    void start() {
        files_.makeFolders();
        store_ = std::make_unique<ReplicaStore>(files_);
        replica_ = std::make_unique<Replica>(*store_, topID, [this] { return now; });
    }
    void collect(Ino ino, const std::string& path, std::vector<std::string>& paths) {
        for (const Listing::Entry& entry : replica().list(ino, 0, 10'000).entries) {
            const bool isFolder = entry.here.kind == Kind::folder;
            const std::string own = path + entry.here.name + (isFolder ? "/" : "");
            paths.push_back(own);
            if (isFolder) collect(entry.ino, own, paths);
        }
    }

  public:
    Date now{1000};

  private:
    MemoryFolder folder_;
    ReplicaFiles files_{folder_ / "disk/one"};
    std::unique_ptr<ReplicaStore> store_;
    std::unique_ptr<Replica> replica_;
};

}  // namespace vark::test
