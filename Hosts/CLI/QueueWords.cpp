#include "Hosts/CLI/QueueWords.h"

#include <fmt/ranges.h>

#include "Hosts/CLI/TextWidth.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr std::string_view between = " · ";
constexpr std::size_t mostListed = 20;
constexpr int narrowestName = 12;

/// Why nothing goes, in words; nothing when it goes.
std::optional<std::string> whatStops(const QueueView& view) {
    if (view.pausedByVark) return "paused: the vark refused the token";
    if (view.paused) return "paused";
    if (view.hold || !view.outage) return view.hold;
    return fmt::format("the vark cannot be reached since {}, trying again in {}",
                       Format::time(view.outage->since, Calendar::current()),
                       Format::timeLeft(view.outage->secondsLeft));
}

std::string waitingForDecision(std::int64_t count) {
    return fmt::format("{} for a decision", count == 1 ? "1 waits" : Format::number(count) + " wait");
}

std::vector<std::string> outcomeWords(const Overall& overall) {
    std::vector<std::string> words;
    if (overall.filesFailed > 0) words.push_back(Format::number(overall.filesFailed) + " failed");
    if (overall.filesConflict > 0) words.push_back(waitingForDecision(overall.filesConflict));
    if (overall.filesSkipped > 0) words.push_back(Format::number(overall.filesSkipped) + " skipped");
    if (overall.filesChanged > 0)
        words.push_back(Format::number(overall.filesChanged) + " changed while being sent");
    return words;
}

std::string entryLine(const EntryView& entry, int nameWidth) {
    const EntryProgress& progress = entry.progress;
    std::string state = progress.isFinished() ? "landed" : Format::percent(progress.fraction());
    if (progress.failed > 0) state += fmt::format(", {} failed", Format::number(progress.failed));
    if (progress.conflicts > 0) state += ", " + waitingForDecision(progress.conflicts);
    if (progress.changed > 0)
        state += fmt::format(", {} changed while being sent", Format::number(progress.changed));
    return fmt::format("{:>4}  {}  {}, {}, {}", entry.number,
                       paddedToWidth(escapedForTerminal(entry.name), nameWidth),
                       Format::count(progress.files, "file"), Format::bytes(progress.bytesTotal), state);
}

std::vector<const FileView*> filesIn(const QueueView& view, auto belongs) {
    std::vector<const FileView*> files;
    for (const FileView& file : view.files) {
        if (belongs(file.state)) files.push_back(&file);
    }
    return files;
}

/// The files under a heading, and how many more there are than are listed.
void list(std::vector<std::string>& lines, std::string_view heading,
          const std::vector<const FileView*>& files, std::int64_t count, auto describe) {
    if (files.empty()) return;
    lines.emplace_back(heading);
    const std::size_t listed = std::min(files.size(), mostListed);
    for (std::size_t place = 0; place < listed; ++place)
        lines.push_back("  " + describe(*files[place]));
    const std::int64_t more = count - static_cast<std::int64_t>(listed);
    if (more > 0) lines.push_back(fmt::format("  and {} more", Format::number(more)));
}

std::string failureOf(const FileView& file) {
    return fmt::format("{}: {}", file.relativePath, file.error.value_or("no reason is known"));
}

void listUnsettled(std::vector<std::string>& lines, const QueueView& view) {
    list(lines, "Failed:", filesIn(view, [](ItemState state) { return state == ItemState::failed; }),
         view.overall.filesFailed, failureOf);
    list(lines, "Waiting for a decision, since a different file is in the vark:",
         filesIn(view, [](ItemState state) { return state == ItemState::conflict; }),
         view.overall.filesConflict, [](const FileView& file) { return file.relativePath; });
}

}  // namespace

std::string overallLine(const QueueView& view) {
    const Overall& overall = view.overall;
    std::vector<std::string> words = {
        fmt::format("{} of {} landed", Format::number(overall.filesVerified),
                    Format::count(overall.filesTotal, "file")),
        Format::percent(overall.fraction()),
        fmt::format("{} of {}", Format::bytes(overall.bytesDone), Format::bytes(overall.bytesTotal))};
    if (std::optional<std::string> stopped = whatStops(view)) {
        words.push_back(*stopped);
    } else if (overall.rate > 0) {
        words.push_back(Format::rate(overall.rate));
        if (overall.secondsLeft) words.push_back(Format::timeLeft(*overall.secondsLeft) + " left");
    }
    for (std::string& word : outcomeWords(overall))
        words.push_back(std::move(word));
    return fmt::format("{}", fmt::join(words, between));
}

std::string progressOf(const FileView& file) {
    if (file.state == ItemState::checking) return "checking";
    const double fraction =
        file.size < 1 ? 0 : static_cast<double>(file.bytesDone) / static_cast<double>(file.size);
    return fmt::format("{} {} of {}", file.state == ItemState::hashing ? "hashing" : "sending",
                       Format::percent(fraction), Format::bytes(file.size));
}

std::vector<std::string> queueLines(const QueueView& view) {
    std::vector<std::string> lines;
    lines.push_back(fmt::format("{} → {}", view.title.empty() ? "The queue" : view.title,
                                view.destination.empty() ? "the top of the vark" : view.destination));
    lines.push_back(overallLine(view));
    int nameWidth = narrowestName;
    for (const EntryView& entry : view.entries)
        nameWidth = std::max(nameWidth, std::min(40, displayWidth(escapedForTerminal(entry.name))));
    for (const EntryView& entry : view.entries)
        lines.push_back(entryLine(entry, nameWidth));
    std::vector<const FileView*> underWay = filesIn(view, isInFlight);
    list(lines, "Under way:", underWay, static_cast<std::int64_t>(underWay.size()),
         [](const FileView& file) { return fmt::format("{}: {}", file.relativePath, progressOf(file)); });
    listUnsettled(lines, view);
    return lines;
}

std::vector<std::string> liveLines(const QueueView& view, int width, int height) {
    const std::vector<const FileView*> underWay = filesIn(view, isInFlight);
    // The cursor stands on the line below, and the last column stays free, so that no terminal wraps.
    const int columns = width - 1;
    const auto room = static_cast<std::size_t>(std::max(0, height - 2));
    const std::size_t shown =
        underWay.size() <= room ? underWay.size() : room - std::min<std::size_t>(room, 1);
    std::vector<std::string> names;
    std::vector<std::string> states;
    int nameWidth = 0;
    int stateWidth = 0;
    for (std::size_t place = 0; place < shown; ++place) {
        names.push_back(escapedForTerminal(underWay[place]->relativePath));
        states.push_back(progressOf(*underWay[place]));
        nameWidth = std::max(nameWidth, displayWidth(names.back()));
        stateWidth = std::max(stateWidth, displayWidth(states.back()));
    }
    nameWidth = std::min(nameWidth, std::max(narrowestName, columns - stateWidth - 4));

    std::vector<std::string> lines;
    for (std::size_t place = 0; place < shown; ++place)
        lines.push_back(clippedToWidth(
            fmt::format("  {}  {}", paddedToWidth(names[place], nameWidth), states[place]), columns));
    if (shown < underWay.size() && room > 0)
        lines.push_back(clippedToWidth(fmt::format("  and {} more", underWay.size() - shown), columns));
    if (height > 1) lines.push_back(clippedToWidth(escapedForTerminal(overallLine(view)), columns));
    return lines;
}

std::string closingLine(const Overall& overall) {
    std::vector<std::string> words = {fmt::format("{} landed and checked, {}",
                                                  Format::count(overall.filesVerified, "file"),
                                                  Format::bytes(overall.bytesVerified))};
    for (std::string& word : outcomeWords(overall))
        words.push_back(std::move(word));
    return fmt::format("{}", fmt::join(words, between));
}

std::vector<std::string> verdictLines(const CardVerdict& verdict) {
    std::vector<std::string> lines = {verdict.sentence()};
    const std::size_t listed = std::min(verdict.missing.size(), mostListed);
    for (std::size_t place = 0; place < listed; ++place)
        lines.push_back(fmt::format("  {}: {}", verdict.missing[place].source, verdict.missing[place].why));
    if (verdict.missing.size() > listed)
        lines.push_back(fmt::format(
            "  and {} more", Format::number(static_cast<std::int64_t>(verdict.missing.size() - listed))));
    return lines;
}

std::vector<std::string> closingAdvice(const QueueView& view) {
    std::vector<std::string> lines;
    listUnsettled(lines, view);
    if (view.overall.filesFailed > 0)
        lines.emplace_back("Try what failed again with: vark retry, then vark send");
    if (view.overall.filesChanged > 0)
        lines.emplace_back(
            "What changed while it was sent lies in the vark as it was read. Send it again with: vark send "
            "PATH...");
    if (view.filesTakenAway() > 0)
        lines.push_back(fmt::format("{} taken out of the queue before landing.",
                                    view.filesTakenAway() == 1
                                        ? "1 file was"
                                        : Format::number(view.filesTakenAway()) + " files were"));
    if (view.overall.filesConflict > 0)
        lines.emplace_back(
            "Decide with: vark resolve --replace [FILE...] or vark resolve --skip [FILE...], then "
            "vark send");
    return lines;
}

}  // namespace vark::cli
