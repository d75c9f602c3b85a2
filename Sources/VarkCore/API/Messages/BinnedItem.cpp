#include "VarkCore/API/Messages/BinnedItem.h"

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

std::optional<BinnedItem> BinnedItem::from(std::string_view body, std::string_view path) {
    try {
        const boost::json::value value = parseJSON(body);
        const JSONFields fields(value);
        const bool isBinned = fields.required<bool>("binned");
        BinnedItem item;
        item.id = fields.optional<std::int64_t>("id");
        item.isDir = fields.valueOr("is_dir", false);
        item.size = fields.valueOr<std::int64_t>("size", 0);
        item.sha256 = fields.valueOr<std::string>("sha256", "");
        item.originalPath = fields.valueOr("original_path", std::string(path));
        item.deletedBy = fields.valueOr<std::string>("deleted_by", "");
        if (!isBinned) return std::nullopt;
        return item;
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

}  // namespace vark
