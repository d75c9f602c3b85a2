#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkBox/Store/Tree.h"

namespace vark::box {

struct ChangesPage {
    std::vector<Item> changed;
    std::vector<std::int64_t> gone;
    std::string cursor;
    bool more = false;
};

/// What has changed in the tree, in order. A place in the feed is "{seconds}|{number}": everything behind the
/// change of that number, or with the number 0 everything from that time (seconds since 1970) on.
class ChangeFeed {
  public:
    explicit ChangeFeed(Turn& turn) : turn_(turn) {}

    /// The feed's present end.
    std::string end();
    /// At most `limit` changes behind `since`, of what lies or lay under the folder. Refuses a cursor that is
    /// none.
    ChangesPage page(std::int64_t under, std::string_view since, std::int64_t limit);

  private:
    Turn& turn_;
};

}  // namespace vark::box
