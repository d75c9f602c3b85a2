#pragma once

#include <boost/json/fwd.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Foundation/UUID.h"

namespace vark {

class JSONWriter;

/// One line of what this machine has done with the vark, in the person's words. A value; files hold its date
/// at whole seconds.
struct ActivityEntry {
    enum class Category { sent, opened, moved, binned, links, other };

    UUID id = UUID::random();
    /// Moves forward when a line takes up another event.
    Date at{};
    /// The sentence that is shown.
    std::string text{};
    /// A short word: see `category`.
    std::string kind{};
    /// Where it happened, ready to be shown.
    std::optional<std::string> place{};
    /// Lines of the same group may fold together.
    std::optional<std::string> group{};
    /// The sentence of a folded line, with "%d" for the count.
    std::optional<std::string> many{};
    /// How many events the line stands for; no value means one.
    std::optional<std::int64_t> count{};
    std::optional<std::string> folder{};

    /// "2026 › Shoot": the last two pieces of a path, ready to be shown.
    static std::string placeOf(std::string_view path);
    Category category() const;
    /// The line stands for one event more, worded by this `many`.
    void takeUpOne(const std::string& many);

    bool operator==(const ActivityEntry&) const = default;

    static ActivityEntry fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
};

}  // namespace vark
