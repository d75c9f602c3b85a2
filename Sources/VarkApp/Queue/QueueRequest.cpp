#include "VarkApp/Queue/QueueRequest.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "VarkCore/Foundation/Paths.h"

namespace vark::app {

namespace {

using Command = QueueRequest::Command;

constexpr std::pair<std::string_view, Command> commandNames[] = {
    {"show", Command::show},     {"add", Command::add},       {"ingest", Command::ingest},
    {"pause", Command::pause},   {"resume", Command::resume}, {"retry", Command::retry},
    {"remove", Command::remove}, {"clear", Command::clear},   {"resolve", Command::resolve},
};

Command commandNamed(std::string_view name) {
    for (const auto& [known, command] : commandNames) {
        if (known == name) return command;
    }
    throw DecodingError("an unknown command: " + std::string(name));
}

std::string_view nameOf(Command command) {
    return std::ranges::find(commandNames, command, &std::pair<std::string_view, Command>::second)->first;
}

template <class T>
void encode(JSONWriter& json, std::string_view key, const std::vector<T>& all) {
    json.key(key).beginArray();
    for (const T& one : all) {
        json.beginObject();
        one.encode(json);
        json.endObject();
    }
    json.endArray();
}

}  // namespace

QueueRequest::Named QueueRequest::Named::of(const std::string& argument) {
    return {argument, standardised(argument).string()};
}

QueueRequest::Named QueueRequest::Named::fromJSON(const boost::json::value& value) {
    JSONFields fields(value);
    return {fields.required<std::string>("text"), fields.required<std::string>("path")};
}

QueueRequest QueueRequest::fromJSON(const boost::json::value& value) {
    JSONFields fields(value);
    QueueRequest request;
    request.command = commandNamed(fields.required<std::string>("command"));
    request.named = fields.required<std::vector<Named>>("named");
    request.destination = fields.optional<std::string>("destination");
    request.title = fields.optional<std::string>("title");
    request.walk.hidden = fields.valueOr("hidden", false);
    request.walk.followLinks = fields.valueOr("followLinks", false);
    request.walk.filter.exclude = fields.valueOr<std::vector<std::string>>("exclude", {});
    request.walk.filter.include = fields.valueOr<std::vector<std::string>>("include", {});
    request.settledBehind = fields.optional<std::int64_t>("settledBehind");
    request.wish = Wish::fromFields(fields);
    request.ingest = fields.optional<IngestWish>("ingest");
    request.finishedOnly = fields.required<bool>("finishedOnly");
    if (fields.find("rule") != nullptr)
        request.rule = static_cast<ConflictRule>(fields.choice("rule", conflictRuleNames));
    return request;
}

std::string QueueRequest::toJSON() const {
    JSONWriter json;
    json.beginObject().field("command", nameOf(command)).key("named").beginArray();
    for (const Named& one : named)
        json.beginObject().field("text", one.text).field("path", one.path).endObject();
    json.endArray().field("destination", destination).field("title", title);
    json.field("hidden", walk.hidden).field("followLinks", walk.followLinks);
    json.field("exclude", walk.filter.exclude).field("include", walk.filter.include);
    json.field("settledBehind", settledBehind);
    wish.encode(json);
    if (ingest) {
        json.key("ingest").beginObject();
        ingest->encode(json);
        json.endObject();
    }
    json.field("finishedOnly", finishedOnly).field("rule", vark::nameOf(rule));
    json.endObject();
    return json.take();
}

void QueueAnswer::refuse(Said said, Outcome why) {
    problems.push_back(std::move(said));
    outcome = why;
}

QueueAnswer QueueAnswer::fromJSON(const boost::json::value& value) {
    JSONFields fields(value);
    QueueAnswer answer;
    answer.results = fields.required<std::vector<Said>>("results");
    answer.problems = fields.required<std::vector<Said>>("problems");
    answer.outcome = static_cast<Outcome>(fields.choice("outcome", outcomeNames));
    answer.entries = fields.valueOr<std::vector<std::string>>("entries", {});
    answer.leftOut = fields.valueOr<LeftOut>("leftOut", {});
    answer.changed = fields.valueOr<std::int64_t>("changed", 0);
    answer.queue = fields.optional<QueueView>("queue");
    answer.settledUpTo = fields.valueOr<std::int64_t>("settledUpTo", 0);
    answer.settled = fields.valueOr<std::vector<SettledFile>>("settled", {});
    answer.card = fields.optional<CardClosed>("card");
    return answer;
}

std::string QueueAnswer::toJSON() const {
    JSONWriter json;
    json.beginObject().field("changed", changed);
    encode(json, "results", results);
    encode(json, "problems", problems);
    json.field("outcome", app::nameOf(outcome)).field("entries", entries);
    json.key("leftOut").beginObject();
    leftOut.encode(json);
    json.endObject();
    if (queue) {
        json.key("queue").beginObject();
        queue->encode(json);
        json.endObject();
    }
    json.field("settledUpTo", settledUpTo);
    encode(json, "settled", settled);
    if (card) {
        json.key("card").beginObject();
        card->encode(json);
        json.endObject();
    }
    json.endObject();
    return json.take();
}

}  // namespace vark::app
