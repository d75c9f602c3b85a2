#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// By which ways the chunks of each upload have gone, for whoever shows it. Any thread.
class WaysTaken {
  public:
    struct Ways {
        /// The hosts of the nodes that took chunks.
        std::set<std::string> nodes{};
        bool internet = false;

        bool operator==(const Ways&) const = default;
    };

    void noteNode(const std::string& uploadID, const std::string& host) {
        const Locked hold(lock_);
        ways_[uploadID].nodes.insert(host);
    }
    void noteInternet(const std::string& uploadID) {
        const Locked hold(lock_);
        ways_[uploadID].internet = true;
    }
    /// Forgets them.
    Ways take(const std::string& uploadID) {
        const Locked hold(lock_);
        const auto found = ways_.find(uploadID);
        if (found == ways_.end()) return {};
        Ways ways = std::move(found->second);
        ways_.erase(found);
        return ways;
    }

  private:
    Mutex lock_;
    std::map<std::string, Ways> ways_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
