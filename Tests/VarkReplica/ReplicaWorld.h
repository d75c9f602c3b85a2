#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Tests/Support/TemporaryFolder.h"
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

using Items = std::vector<VarkItem>;

/// Told in one line: "1=f/ 2=x@1 2=x:3@1" are the folder f at the top, a file in it, and its third version.
inline Items items(const std::string& line) {
    Items all;
    std::istringstream words(line);
    for (std::string word; words >> word;) {
        std::int64_t id = 0;
        std::string name;
        char mark = 0;
        std::istringstream parts(word);
        parts >> id >> mark;
        while (parts.get(mark) && mark != ':' && mark != '@')
            name += mark;
        int version = 1;
        std::int64_t parent = topID;
        if (parts && mark == ':') parts >> version >> mark;
        if (parts && mark == '@') parts >> parent;
        const bool isFolder = name.ends_with('/');
        if (isFolder) name.pop_back();
        all.push_back(isFolder ? folder(id, parent, name) : file(id, parent, name, version));
    }
    return all;
}

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

    Learnt learn(const std::string& line) { return learn(items(line)); }
    Learnt learn(const Items& items) { return replica().learn(items, replica().ask()); }
    Learnt gone(const std::vector<std::int64_t>& ids) { return replica().gone(ids, replica().ask()); }

    Ino ino(std::int64_t id) {
        ReplicaStore::Reading reading = store().read();
        return ItemRows(reading.turn()).withID(id).value().ino;
    }
    Record row(std::int64_t id) { return replica().record(ino(id)).value(); }

    /// The paths of all that is shown, sorted, with "/" behind those of folders.
    std::string shown() {
        std::set<std::string> paths;
        collect(rootIno, "", paths);
        return fmt::format("{}", fmt::join(paths, " "));
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
    void collect(Ino ino, const std::string& path, std::set<std::string>& paths) {
        for (const Listing::Entry& entry : replica().list(ino, 0, 10'000).entries) {
            const bool isFolder = entry.here.kind == Kind::folder;
            const std::string own = path + entry.here.name + (isFolder ? "/" : "");
            paths.insert(own);
            if (isFolder) collect(entry.ino, own, paths);
        }
    }

  public:
    Date now{1000};

  private:
    TemporaryFolder folder_{"/dev/shm"};
    ReplicaFiles files_{folder_ / "disk/one"};
    std::unique_ptr<ReplicaStore> store_;
    std::unique_ptr<Replica> replica_;
};

}  // namespace vark::test
