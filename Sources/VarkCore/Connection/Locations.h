#pragma once

#include <filesystem>
#include <string>

#include "VarkCore/Connection/AppIdentity.h"

namespace vark {

class Bundle;
class UserFolders;

/// Where the application's own files lie. Each answer first moves the folder of an older version to its new
/// name (see `AppIdentity::carryOverFolder`). Any thread; `folders` must outlive it.
class Locations {
  public:
    Locations(const Bundle& bundle, const UserFolders& folders) : identity_(bundle), folders_(folders) {}

    const AppIdentity& identity() const { return identity_; }

    std::filesystem::path storageFolder() const;
    std::filesystem::path queue() const { return storageFolder() / "queue.json"; }
    std::filesystem::path runningLock() const { return storageFolder() / "running.lock"; }
    /// A copy of a saved queue that could not be read, from before a new one took its place.
    std::filesystem::path damagedQueue() const { return storageFolder() / "queue.damaged.json"; }
    /// How far into each log the last report to the vark got.
    std::filesystem::path logCursors() const { return storageFolder() / "log-cursors.json"; }
    /// Where one process asks the one that has the queue to change it.
    std::filesystem::path requests() const { return storageFolder() / "requests"; }
    /// What is wanted of entries of the queue beyond sending them.
    std::filesystem::path wishes() const { return storageFolder() / "wishes.json"; }

    /// What the person has set, the lock of whoever writes it, and what made no sense of it.
    std::filesystem::path settings() const { return storageFolder() / "settings.json"; }
    std::filesystem::path settingsLock() const { return storageFolder() / ".settings.lock"; }
    std::filesystem::path damagedSettings() const { return storageFolder() / "settings.damaged.json"; }
    /// Bytes that came from standard input, until the vark has them.
    std::filesystem::path spool() const { return storageFolder() / "spool"; }

    /// The token of a person who keeps it in a file.
    std::filesystem::path secrets() const { return storageFolder() / "secrets.json"; }
    /// Such a file that made no sense, from before a new one took its place.
    std::filesystem::path damagedSecrets() const { return storageFolder() / "secrets.damaged.json"; }

    std::filesystem::path logsFolder() const;
    std::filesystem::path transferLog() const { return logsFolder() / "transfer.log"; }

  private:
    AppIdentity identity_;
    const UserFolders& folders_;
};

/// The names in the folder that our processes share.
struct SharedFiles {
    using Path = std::filesystem::path;

    static Path connection(const Path& folder) { return folder / "connection.json"; }
    /// Of the record and of the token that belongs to it.
    static Path connectionLock(const Path& folder) { return folder / ".connection.lock"; }
    /// The authority that a connection to a vark of one's own making is to be trusted by, if there is one.
    static Path authority(const Path& folder) { return folder / "authority.pem"; }
    static Path level(const Path& folder) { return folder / "level.json"; }
    static Path sync(const Path& folder) { return folder / "sync.json"; }
    static Path syncLock(const Path& folder) { return folder / ".sync.lock"; }
    static Path activity(const Path& folder) { return folder / "activity.json"; }
    static Path history(const Path& folder) { return folder / "history.jsonl"; }
    static Path anchor(const Path& folder) { return folder / "anchor.json"; }
    static Path anchors(const Path& folder) { return folder / "anchors.json"; }
    static Path anchorsLock(const Path& folder) { return folder / ".anchors.lock"; }
    static Path lanNodes(const Path& folder) { return folder / "lan-nodes.json"; }
    static Path gate(const Path& folder) { return folder / "gate"; }
    /// In the folder `gate`.
    static Path slot(const Path& gate, int index) {
        return gate / ("slot-" + std::to_string(index) + ".lock");
    }
    static Path extensionsLog(const Path& folder) { return folder / "Logs" / "extensions.log"; }
};

}  // namespace vark
