#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::app {

/// The token of the connection to one vark, read afresh when the record has changed, since somebody may
/// connect again while this process runs. Gives nothing once the record is gone or is about another vark: a
/// token never goes to a vark that it is not for. Any thread.
class ConnectionToken {
  public:
    ConnectionToken(std::filesystem::path folder, std::string server)
        : folder_(std::move(folder)), server_(std::move(server)) {}

    std::optional<std::string> current();

  private:
    /// What tells one state of the record on the disk from another.
    struct Stamp {
        ino_t inode = 0;
        std::int64_t changed = 0;  // Nanoseconds.
        bool operator==(const Stamp&) const = default;
    };
    Stamp stampNow() const;

    const std::filesystem::path folder_;
    const std::string server_;
    Mutex lock_;
    std::optional<Stamp> readAt_ VARK_GUARDED_BY(lock_);
    std::optional<std::string> token_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark::app
