#include "VarkApp/Queue/CardClosed.h"

#include <array>
#include <string_view>

namespace vark::app {

namespace {

using Missing = CardVerdict::Missing;

constexpr std::array<std::string_view, 3> kindNames = {"skipped", "leftOut", "notSent"};

struct MissingFields {
    Missing missing;

    static MissingFields fromJSON(const boost::json::value& value) {
        const JSONFields fields(value);
        return {{static_cast<Missing::Kind>(fields.choice("kind", kindNames)),
                 fields.required<std::string>("source"), fields.required<std::string>("why"),
                 fields.valueOr<std::int64_t>("size", 0)}};
    }
};

}  // namespace

CardClosed CardClosed::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    CardClosed card;
    card.verdict.drive = fields.required<std::string>("drive");
    card.verdict.landed = fields.required<std::int64_t>("landed");
    card.verdict.wasLookedThrough = fields.required<bool>("lookedThrough");
    for (MissingFields& one : fields.required<std::vector<MissingFields>>("missing"))
        card.verdict.missing.push_back(std::move(one.missing));
    card.wasOpen = fields.required<bool>("wasOpen");
    card.notReported = fields.optional<Said>("notReported");
    return card;
}

void CardClosed::encode(JSONWriter& json) const {
    json.field("drive", verdict.drive).field("landed", verdict.landed);
    json.field("lookedThrough", verdict.wasLookedThrough).key("missing").beginArray();
    for (const Missing& one : verdict.missing) {
        json.beginObject().field("kind", kindNames.at(static_cast<std::size_t>(one.kind)));
        json.field("source", one.source).field("why", one.why).field("size", one.size).endObject();
    }
    json.endArray().field("wasOpen", wasOpen);
    if (!notReported) return;
    json.key("notReported").beginObject();
    notReported->encode(json);
    json.endObject();
}

}  // namespace vark::app
