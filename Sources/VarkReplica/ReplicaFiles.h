#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "VarkReplica/ReplicaRecord.h"

namespace vark {

/// Every name below the folder of one replica. They are made of our own numbers and never of a name from the
/// vark. A value.
class ReplicaFiles {
  public:
    using Path = std::filesystem::path;

    /// In the application's storage folder. `domain` is the connection's own identifier.
    static ReplicaFiles of(const Path& storage, const std::string& domain, const std::string& server);
    explicit ReplicaFiles(Path folder) : folder_(std::move(folder)) {}

    const Path& folder() const { return folder_; }
    Path database() const { return folder_ / "replica.db"; }
    /// Bytes of which the vark has a copy. May go at any time.
    Path contents() const { return folder_ / "contents"; }
    Path content(Ino ino, std::int64_t number) const;
    /// What is under way to `contents`. `copy` tells one from the next of the same bytes.
    Path incoming() const { return folder_ / "incoming"; }
    Path incoming(Ino ino, std::int64_t number, std::int64_t copy) const;

    /// Makes the folders, for this person alone. Fails with `FileError`.
    void makeFolders() const;

  private:
    Path folder_;
};

}  // namespace vark
