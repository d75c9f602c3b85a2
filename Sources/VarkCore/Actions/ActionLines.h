#pragma once

#include <string_view>
#include <vector>

#include "VarkCore/Activity/ActivityEntry.h"
#include "VarkCore/API/VarkAPI.h"

namespace vark {

/// What the list of activity says of an action that has succeeded. Functions only; any thread.
struct ActionLines {
    /// `client` is the name of the company whose vark it is.
    static ActivityEntry shared(const std::vector<VarkItem>& items, const VarkShare& share,
                                ShareAudience audience, std::string_view client, Date now);
    static ActivityEntry filed(const std::vector<VarkItem>& items, const VarkJob& job, Date now);
    /// Of a file that has landed at `path`. Those of a folder fold into one line that counts.
    static ActivityEntry sent(std::string_view path, Date now);
};

}  // namespace vark
