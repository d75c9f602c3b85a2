#include "VarkCore/Activity/ActivityEntry.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

using Category = ActivityEntry::Category;

constexpr std::pair<std::string_view, Category> categories[] = {
    {"put", Category::sent},   {"folder", Category::sent},  {"open", Category::opened},
    {"move", Category::moved}, {"rename", Category::moved}, {"bin", Category::binned},
    {"link", Category::links},
};

/// The length of an integer's place in a format, "%d", "%lld" or "%1$d", at the front of the text; 0 for
/// anything else.
std::size_t lengthOfIntegerPlace(std::string_view text) {
    std::size_t place = text.starts_with("%1$") ? 3 : 1;
    while (place < text.size() && text[place] == 'l')
        ++place;
    const bool isInteger = place < text.size() && std::string_view("diu").contains(text[place]);
    return isInteger ? place + 1 : 0;
}

/// The format with the number in its place. Formats come out of files, so the system's own formatting, which
/// trusts them, is not for them: all that is no integer's place stands as it is.
std::string formatted(std::string_view format, std::int64_t number) {
    std::string text;
    while (!format.empty()) {
        const std::size_t plain = std::min(format.find('%'), format.size());
        text += format.substr(0, plain);
        format.remove_prefix(plain);
        if (format.empty()) break;
        if (const std::size_t length = lengthOfIntegerPlace(format)) {
            text += std::to_string(number);
            format.remove_prefix(length);
            continue;
        }
        text += '%';
        format.remove_prefix(format.starts_with("%%") ? 2 : 1);
    }
    return text;
}

}  // namespace

std::string ActivityEntry::placeOf(std::string_view path) {
    constexpr std::size_t mostShown = 2;
    const std::vector<std::string> components = pathComponents(path);
    const std::size_t shown = std::min(components.size(), mostShown);
    std::string place;
    for (const std::string& component : std::span(components).last(shown)) {
        if (&component != &components[components.size() - shown]) place += " › ";
        place += withoutBlanksAround(component);
    }
    return place;
}

ActivityEntry::Category ActivityEntry::category() const {
    const auto* const found =
        std::ranges::find(categories, kind, &std::pair<std::string_view, Category>::first);
    return found == std::end(categories) ? Category::other : found->second;
}

void ActivityEntry::takeUpOne(const std::string& sentence) {
    // The count was read from a file, where it may be anything.
    count = std::min(count.value_or(1), std::numeric_limits<std::int64_t>::max() - 1) + 1;
    text = formatted(sentence, *count);
}

ActivityEntry ActivityEntry::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    return {.id = fields.identifier("id"),
            .at = fields.iso8601("at"),
            .text = fields.required<std::string>("text"),
            .kind = fields.required<std::string>("kind"),
            .place = fields.optional<std::string>("place"),
            .group = fields.optional<std::string>("group"),
            .many = fields.optional<std::string>("many"),
            .count = fields.optional<std::int64_t>("count"),
            .folder = fields.optional<std::string>("folder")};
}

void ActivityEntry::encode(JSONWriter& json) const {
    json.beginObject().field("id", id.text()).field("at", iso8601(at)).field("text", text);
    json.field("kind", kind).field("place", place).field("group", group).field("many", many);
    json.field("count", count).field("folder", folder).endObject();
}

}  // namespace vark
