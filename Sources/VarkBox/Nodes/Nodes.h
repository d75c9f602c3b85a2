#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkBox/Store/Database.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::box {

/// The nodes that have ever been attached to this vark, by the host that each speaks for. A host once known
/// stays known, also after a restart: addresses on it have been given out, and the vark serves them itself
/// when the node is gone. Any thread.
class Nodes {
  public:
    /// Told of all hosts, one call at a time, when a new one has come.
    using OnNewHost = std::function<void(const std::vector<std::string>&)>;

    explicit Nodes(Database& database) : database_(database) {}

    void attach(const std::string& host, const OnNewHost& onNewHost);
    /// Refuses with 404 a host that no node is attached for.
    void detach(const std::string& host);
    /// The host of the node that came last of those that are attached.
    std::optional<std::string> attached() const;
    std::vector<std::string> known() const;

  private:
    Database& database_;
    // Held while a new host is made known; before a turn of the database, never within one.
    Mutex lock_;
};

}  // namespace vark::box
