#include "VarkCore/Sync/SyncOp.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

/// In the order of the enumerations.
constexpr std::array<std::string_view, 5> kindNames = {"upload", "folder", "rename", "move", "bin"};
constexpr std::array<std::string_view, 3> stateNames = {"sending", "waiting", "problem"};

}  // namespace

std::string_view text(SyncOp::Kind kind) {
    return kindNames[static_cast<std::size_t>(kind)];
}

std::string_view text(SyncOp::State state) {
    return stateNames[static_cast<std::size_t>(state)];
}

SyncOp::SyncOp(Kind theKind, std::string thePath, std::int64_t theBytes, Date now)
    : id(fmt::format("{}:{}", text(theKind), thePath)),
      kind(theKind),
      path(std::move(thePath)),
      bytes(theBytes),
      started(now),
      touched(now) {}

std::string SyncOp::name() const {
    const std::vector<std::string> components = pathComponents(path);
    return components.empty() ? path : components.back();
}

std::string SyncOp::folderPath() const {
    std::vector<std::string> components = pathComponents(path);
    if (!components.empty()) components.pop_back();
    return fmt::format("{}", fmt::join(components, "/"));
}

std::string SyncOp::folderName() const {
    const std::vector<std::string> components = pathComponents(path);
    return components.size() < 2 ? std::string() : components[components.size() - 2];
}

SyncOp SyncOp::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    SyncOp op;
    op.id = fields.required<std::string>("id");
    op.kind = static_cast<Kind>(fields.choice("kind", kindNames));
    op.path = fields.required<std::string>("path");
    op.bytes = fields.required<std::int64_t>("bytes");
    op.done = fields.required<std::int64_t>("done");
    op.state = static_cast<State>(fields.choice("state", stateNames));
    op.reason = fields.optional<std::string>("reason");
    op.started = fields.iso8601("started");
    op.touched = fields.iso8601("touched");
    op.stoppedAt = fields.optionalISO8601("stoppedAt");
    return op;
}

void SyncOp::encode(JSONWriter& json) const {
    json.beginObject().field("id", id).field("kind", text(kind)).field("path", path);
    json.field("bytes", bytes).field("done", done).field("state", text(state)).field("reason", reason);
    json.field("started", iso8601(started)).field("touched", iso8601(touched));
    json.field("stoppedAt", stoppedAt.transform(iso8601)).endObject();
}

}  // namespace vark
