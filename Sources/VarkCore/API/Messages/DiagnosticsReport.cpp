#include "VarkCore/API/Messages/DiagnosticsReport.h"

namespace vark {
namespace {

void encodeTexts(JSONWriter& json, std::string_view key, const std::map<std::string, std::string>& texts) {
    json.key(key).beginObject();
    for (const auto& [name, text] : texts)
        json.field(name, text);
    json.endObject();
}

}  // namespace

void DiagnosticsReport::encode(JSONWriter& json) const {
    json.beginObject();
    json.field("app_version", appVersion).field("os_version", osVersion);
    encodeTexts(json, "logs", logs);
    json.key("snapshot").beginObject();
    encodeTexts(json, "permissions", snapshot.permissions);
    json.field("queued", snapshot.queued).field("problems", snapshot.problems);
    json.field("problem_reasons", snapshot.problemReasons).field("waiting", snapshot.waiting);
    json.field("finder", snapshot.finder).field("free_bytes", snapshot.freeBytes);
    json.field("lan_nodes", snapshot.lanNodes).field("updater", snapshot.updater);
    json.endObject();
    json.endObject();
}

}  // namespace vark
