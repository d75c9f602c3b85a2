#include "VarkCore/API/Messages/Items.h"

#include <fmt/format.h>

#include <charconv>

#include "VarkCore/API/Answers.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

/// Reads "12", "+12" and "-12".
std::optional<std::int64_t> folderID(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return std::nullopt;
    }
    std::int64_t id = 0;
    const std::from_chars_result result = std::from_chars(text.begin(), text.end(), id);
    if (result.ec != std::errc() || result.ptr != text.end()) return std::nullopt;
    return id;
}

VarkPage pageWithoutAhead(const JSONFields& fields) {
    VarkPage page;
    page.items = requiredList<VarkItem>(fields, "items");
    page.cursor = fields.valueOr<std::string>("cursor", "");
    page.more = fields.valueOr("more", false);
    return page;
}

}  // namespace

VarkItem VarkItem::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    VarkItem item;
    item.id = fields.required<std::int64_t>("id");
    item.path = fields.valueOr<std::string>("path", "");
    std::optional<std::string> name = fields.optional<std::string>("name");
    item.name = name ? std::move(*name) : std::string(lastPathComponent(item.path));
    item.parent = fields.optional<std::int64_t>("parent");
    item.isDir = fields.valueOr("is_dir", false);
    item.size = fields.valueOr<std::int64_t>("size", 0);
    item.mtime = fields.optional<double>("mtime");
    item.sha256 = fields.valueOr<std::string>("sha256", "");
    item.kind = fields.valueOr<std::string>("kind", "");
    return item;
}

void VarkItem::encode(JSONWriter& json) const {
    json.beginObject();
    json.field("id", id).field("path", path).field("name", name).field("parent", parent).field("size", size);
    json.field("mtime", mtime).field("sha256", sha256).field("kind", kind).field("is_dir", isDir);
    json.endObject();
}

std::string VarkItem::child(std::string_view childName) const {
    if (path.empty()) return std::string(childName);
    return fmt::format("{}/{}", path, childName);
}

std::string VarkItem::contentVersion() const {
    return fmt::format("{}|{}|{}", size, shortestDecimal(mtime.value_or(0)), sha256);
}

std::string VarkItem::metadataVersion() const {
    return fmt::format("{}|{}", parent.value_or(-1), name);
}

VarkPage VarkPage::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    VarkPage page = pageWithoutAhead(fields);
    const boost::json::value* ahead = fields.find("ahead");
    if (ahead == nullptr) return page;
    if (!ahead->is_object()) throw DecodingError("ahead is not an object");
    std::size_t count = page.items.size();
    for (const auto& [key, content] : ahead->get_object()) {
        const std::optional<std::int64_t> id = folderID(key);
        if (!id) continue;
        VarkPage child = pageWithoutAhead(JSONFields(content));
        count += child.items.size();
        if (count > limits::listElements) throw DecodingError("ahead has too many elements");
        page.ahead.insert_or_assign(*id, std::move(child));
    }
    return page;
}

VarkChanges VarkChanges::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    VarkChanges changes;
    changes.changed = optionalList<VarkItem>(fields, "changed");
    changes.gone = optionalList<std::int64_t>(fields, "gone");
    changes.cursor = fields.valueOr<std::string>("cursor", "");
    changes.more = fields.valueOr("more", false);
    return changes;
}

}  // namespace vark
