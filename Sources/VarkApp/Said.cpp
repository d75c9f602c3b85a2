#include "VarkApp/Said.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace vark::app {

namespace {

/// In the order of the steps.
constexpr std::array<std::string_view, 17> stepNames = {
    "begin",    "bringIn",        "carryOn",  "giveUp",       "connectAgain", "openKeychain",
    "useAFile", "decide",         "retry",    "resume",       "watch",        "makeRoom",
    "seeDiary", "trustAuthority", "useACode", "chooseFolder", "lookAround"};

std::optional<Next> nextFrom(const boost::json::value& value) {
    const JSONFields fields(value);
    const auto found = std::ranges::find(stepNames, fields.required<std::string_view>("step"));
    if (found == stepNames.end()) return std::nullopt;
    return Next{static_cast<Next::Step>(found - stepNames.begin()), fields.valueOr<std::string>("word", "")};
}

}  // namespace

Said Said::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    Said said(fields.required<std::string>("text"));
    const boost::json::value* next = fields.find("next");
    if (next == nullptr) return said;
    if (!next->is_array()) throw DecodingError("next is no array");
    for (const boost::json::value& one : next->get_array()) {
        if (std::optional<Next> step = nextFrom(one)) said.next.push_back(*std::move(step));
    }
    return said;
}

void Said::encode(JSONWriter& json) const {
    json.field("text", text);
    if (next.empty()) return;
    json.key("next").beginArray();
    for (const Next& one : next) {
        json.beginObject().field("step", stepNames.at(static_cast<std::size_t>(one.step)));
        if (!one.word.empty()) json.field("word", one.word);
        json.endObject();
    }
    json.endArray();
}

}  // namespace vark::app
