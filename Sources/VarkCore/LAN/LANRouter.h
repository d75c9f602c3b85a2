#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/LAN/LANNode.h"

namespace vark {

/// The nodes as this process knows them: which URL may be reached through one of them, which of them failed a
/// moment ago, and which have shown that they speak the API. Every doubt gives no route, and the caller goes
/// by the internet. Any thread may call; outlives the tasks that use it.
class LANRouter {
  public:
    explicit LANRouter(std::vector<LANNode> nodes = {});

    /// How long a node that failed is left alone, in seconds. Written before the router is used, as is
    /// `onChange`, which is told all nodes after each change, outside the lock.
    double penalty = 60;
    std::function<void(std::vector<LANNode>)> onChange;

    /// Sorted by name.
    std::vector<LANNode> all() const;
    void update(std::vector<LANNode> nodes);
    /// Replaces a node of the same host.
    void add(LANNode node);
    void remove(std::string_view name);

    /// For a URL of a node's own host.
    std::optional<LANRoute> route(const URL& url, Date now) const;
    /// Which nodes a caller lets stand in for its vark: anybody may announce one.
    using Eligible = std::function<bool(const LANNode&)>;
    /// The first eligible node by name that answers the API and has not failed a moment ago.
    std::optional<LANNode> apiNode(Date now, const Eligible& eligible) const;
    /// For a URL of the application's host, which no node is named after. That the node speaks the API is the
    /// caller's to prove.
    std::optional<LANRoute> apiRoute(const URL& url, Date now, const Eligible& eligible) const;

    void markBad(std::string_view host, Date now);
    bool isBad(std::string_view host, Date now) const;
    bool isAPIVerified(std::string_view host) const;
    void setAPIVerified(std::string_view host);

    /// The nodes in "lan-nodes.json" that were resolved less than `maxAge` seconds ago; none when there is no
    /// folder or the file cannot be read.
    static std::vector<LANNode> load(const std::optional<std::filesystem::path>& folder, Date now,
                                     double maxAge);
    /// A failure goes unnoticed: the file only saves others the browsing.
    static void save(const std::vector<LANNode>& nodes, const std::optional<std::filesystem::path>& folder);

  private:
    void tellChange() const;

    mutable Mutex lock_;
    std::map<std::string, LANNode, std::less<>> nodes_ VARK_GUARDED_BY(lock_);
    std::map<std::string, Date, std::less<>> badUntil_ VARK_GUARDED_BY(lock_);
    std::set<std::string, std::less<>> apiVerified_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
