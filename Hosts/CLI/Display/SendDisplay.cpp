#include "Hosts/CLI/Display/SendDisplay.h"

#include <fmt/format.h>

#include "Hosts/CLI/Display/QueueLines.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr double secondsBetweenProgress = 5;
constexpr std::string_view nothingLeft = "Nothing was left to do.";

std::string eventName(const SettledFile& file) {
    switch (file.state) {
        case ItemState::verified:
            return file.changedWhileSent ? "changed" : "landed";
        case ItemState::skipped:
            return "skipped";
        case ItemState::conflict:
            return "decision";
        default:
            return "failed";
    }
}

/// Nothing when no byte had to go.
std::string wayOf(const WaysTaken::Ways& ways) {
    if (ways.nodes.empty()) return ways.internet ? ", by the internet" : "";
    return fmt::format(", by {}{}", fmt::join(ways.nodes, " and "), ways.internet ? " and the internet" : "");
}

std::string sentenceOf(const SettledFile& file) {
    switch (file.state) {
        case ItemState::verified:
            if (file.changedWhileSent)
                return fmt::format("Changed while it was sent, and landed as it was read: {} ({}{})",
                                   file.path, Format::bytes(file.size), wayOf(file.ways));
            return fmt::format("{}: {} ({}{})", file.alreadyThere ? "Already in the vark" : "Landed",
                               file.path, Format::bytes(file.size), wayOf(file.ways));
        case ItemState::skipped:
            return fmt::format("Skipped: {}", file.path);
        case ItemState::conflict:
            return fmt::format("Waits for a decision, since a different file is in the vark: {}", file.path);
        default:
            return fmt::format("Failed: {}: {}", file.path, file.error.value_or("no reason is known"));
    }
}

/// Why nothing goes; nothing when it goes.
std::optional<std::string> whatStops(const QueueView& view) {
    if (view.paused) return "Paused";
    return view.hold;
}

bool needsAttention(const SettledFile& file) {
    return file.state == ItemState::failed || file.state == ItemState::conflict || file.changedWhileSent;
}

}  // namespace

void PlainDisplay::fileSettled(const SettledFile& file) {
    if (!isQuiet_ || needsAttention(file)) console_.print(sentenceOf(file));
}

void PlainDisplay::show(const QueueView& view) {
    std::optional<std::string> stops = whatStops(view);
    if (stops == stopped_) return;
    stopped_ = stops;
    if (!isQuiet_) console_.print(stops.value_or("Carrying on"));
}

void PlainDisplay::cardClosed(const CardVerdict& verdict) {
    for (const std::string& line : verdictLines(verdict))
        console_.print(line);
}

void PlainDisplay::finish(const QueueView& view, ExitCode) {
    if (!isQuiet_) console_.print(closingLine(view.overall, console_.signs()));
    for (const std::string& line : closingAdvice(view))
        console_.say(line);
}

void PlainDisplay::finishIdle(const QueueView& view, ExitCode) {
    if (!isQuiet_) console_.print(nothingLeft);
    for (const std::string& line : closingAdvice(view))
        console_.say(line);
}

JSONWriter JSONDisplay::begin(std::string_view event) const {
    JSONWriter json;
    json.beginObject().field("event", event).field("at", iso8601(date_()));
    return json;
}

void JSONDisplay::fileSettled(const SettledFile& file) {
    JSONWriter json = begin(eventName(file));
    json.field("path", file.path).field("localPath", file.localPath).field("size", file.size);
    json.field("alreadyThere", file.alreadyThere);
    json.key("nodes").beginArray();
    for (const std::string& host : file.ways.nodes)
        json.value(host);
    json.endArray().field("internet", file.ways.internet);
    if (file.state != ItemState::verified) json.field("error", file.error);
    console_.printJSON(json.endObject().take());
}

void JSONDisplay::show(const QueueView& view) {
    showOutage(view);
    showProgress(view);
    std::optional<std::string> stops = whatStops(view);
    if (stops == stopped_) return;
    stopped_ = stops;
    JSONWriter json = begin(stops ? "stopped" : "going");
    json.field("reason", stops);
    print(json);
}

void JSONDisplay::triedAgain(const TransferEngine::TriedAgain& what) {
    JSONWriter json = begin("retry");
    json.field("what", what.what).field("why", what.why);
    json.field("attempt", what.attempt).field("secondsUntil", what.after);
    print(json);
}

void JSONDisplay::showOutage(const QueueView& view) {
    const std::optional<Date> since = view.outage ? std::optional(view.outage->since) : std::nullopt;
    if (since == outageSince_) return;
    outageSince_ = since;
    JSONWriter json = begin(since ? "outage" : "reachable");
    if (view.outage) view.outage->encode(json);
    print(json);
}

void JSONDisplay::showProgress(const QueueView& view) {
    const Overall& overall = view.overall;
    if (date_() - progressShown_ < secondsBetweenProgress || overall.bytesDone == bytesShown_) return;
    progressShown_ = date_();
    bytesShown_ = overall.bytesDone;
    JSONWriter json = begin("progress");
    json.field("files", overall.filesTotal).field("verified", overall.filesVerified);
    json.field("bytesTotal", overall.bytesTotal).field("bytesDone", overall.bytesDone);
    json.field("rate", overall.rate).field("secondsLeft", overall.secondsLeft);
    print(json);
}

void JSONDisplay::leftOut(const LeftOut& left) {
    JSONWriter json = begin("leftOut");
    left.encode(json);
    print(json);
}

void JSONDisplay::cardClosed(const CardVerdict& verdict) {
    JSONWriter json = begin("card");
    json.field("drive", verdict.drive).field("safeToClear", verdict.isSafe());
    json.field("lookedThrough", verdict.wasLookedThrough).field("landed", verdict.landed);
    json.key("missing").beginArray();
    for (const CardVerdict::Missing& one : verdict.missing)
        json.beginObject().field("source", one.source).field("why", one.why).endObject();
    console_.printJSON(json.endArray().endObject().take());
}

void JSONDisplay::finish(const QueueView& view, ExitCode code) {
    JSONWriter json = begin("finished");
    const Overall& overall = view.overall;
    json.field("verified", overall.filesVerified).field("failed", overall.filesFailed);
    json.field("skipped", overall.filesSkipped).field("conflicts", overall.filesConflict);
    json.field("changed", overall.filesChanged).field("takenAway", view.filesTakenAway());
    json.field("bytesVerified", overall.bytesVerified).field("exitCode", static_cast<int>(code));
    console_.printJSON(json.endObject().take());
}

void LiveDisplay::erase() {
    console_.printText(area_.replace({}));
}

void LiveDisplay::fileSettled(const SettledFile& file) {
    if (!tellsOfEach_ && !needsAttention(file)) return;
    erase();
    console_.print(sentenceOf(file));
}

void LiveDisplay::show(const QueueView& view) {
    if (std::optional<TerminalSize> size = size_())
        console_.printText(area_.replace(liveLines(view, console_.signs(), *size)));
}

void LiveDisplay::say(const std::string& sentence) {
    erase();
    console_.say(sentence);
}

void LiveDisplay::cardClosed(const CardVerdict& verdict) {
    erase();
    for (const std::string& line : verdictLines(verdict))
        console_.print(line);
}

void LiveDisplay::finish(const QueueView& view, ExitCode) {
    erase();
    console_.print(closingLine(view.overall, console_.signs()));
    for (const std::string& line : closingAdvice(view))
        console_.say(line);
}

void LiveDisplay::finishIdle(const QueueView& view, ExitCode) {
    erase();
    console_.print(nothingLeft);
    for (const std::string& line : closingAdvice(view))
        console_.say(line);
}

void LiveDisplay::breakOff(const std::string& sentence) {
    erase();
    console_.say(sentence);
}

}  // namespace vark::cli
