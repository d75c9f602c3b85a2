#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "VarkCore/API/WaysTaken.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/UUID.h"
#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark::app {

/// One file that has come to an end of some kind. A value.
struct SettledFile {
    /// In the vark.
    std::string path;
    std::string localPath;
    std::int64_t size = 0;
    ItemState state = ItemState::verified;
    bool alreadyThere = false;
    /// What landed is not what lies on the disk now.
    bool changedWhileSent = false;
    std::optional<std::string> error;
    /// How its bytes went, those of this run.
    WaysTaken::Ways ways;

    static SettledFile fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const SettledFile&) const = default;
};

/// The files that have settled last, numbered from 1 as long as one process has the queue: for those who
/// follow from another. One thread at a time.
class SettledFiles {
  public:
    void note(const UUID& entry, SettledFile file);
    /// The number of the last one; 0 before the first.
    std::int64_t last() const { return last_; }
    /// Those of these entries behind a number, as far as they are still kept. A number that was never given
    /// comes from another process, and then it is all of them.
    std::vector<SettledFile> behind(std::int64_t number, const std::unordered_set<UUID>& entries) const;

  private:
    struct Noted {
        UUID entry;
        SettledFile file;
    };
    std::deque<Noted> noted_;
    std::int64_t last_ = 0;
};

}  // namespace vark::app
