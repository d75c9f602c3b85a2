#include "VarkApp/Queue/Wishes.h"

#include <algorithm>
#include <string_view>

#include "VarkCore/Connection/SharedFile.h"

namespace vark::app {

namespace {

struct Kept {
    UUID entry;
    Wish wish;

    static Kept fromJSON(const boost::json::value& value) {
        const JSONFields fields(value);
        return Kept{fields.identifier("entry"), Wish::fromFields(fields)};
    }
    void encode(JSONWriter& json) const {
        json.beginObject().field("entry", entry.text());
        wish.encode(json);
        json.endObject();
    }
};

}  // namespace

Wish Wish::fromFields(const JSONFields& fields) {
    const std::optional<std::string> word = fields.optional<std::string>("onConflict");
    return {word ? conflictRuleNamed(*word) : std::nullopt};
}

void Wish::encode(JSONWriter& json) const {
    if (onConflict) json.field("onConflict", nameOf(*onConflict));
}

Wishes::Wishes(std::filesystem::path file) : file_(std::move(file)) {
    for (const Kept& kept : SharedFile::records<Kept>(file_))
        wishes_.insert_or_assign(kept.entry, kept.wish);
}

void Wishes::set(const std::vector<UUID>& entries, const Wish& wish) {
    if (wish == Wish()) return;
    for (const UUID& entry : entries)
        wishes_.insert_or_assign(entry, wish);
    save();
}

Wish Wishes::of(const UUID& entry) const {
    const auto found = wishes_.find(entry);
    return found == wishes_.end() ? Wish() : found->second;
}

void Wishes::keepOnly(const std::vector<TransferEntry>& entries) {
    const std::size_t gone = std::erase_if(wishes_, [&](const auto& one) {
        return std::ranges::find(entries, one.first, &TransferEntry::id) == entries.end();
    });
    if (gone > 0) save();
}

void Wishes::save() const {
    std::vector<Kept> all;
    for (const auto& [entry, wish] : wishes_)
        all.push_back({entry, wish});
    SharedFile::writeRecords(file_, all, Durability::synced);
}

}  // namespace vark::app
