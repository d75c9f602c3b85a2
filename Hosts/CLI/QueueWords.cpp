#include "Hosts/CLI/QueueWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "Hosts/CLI/TextWidth.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr std::size_t mostListed = 20;
constexpr int narrowestName = 12;
constexpr int widestPaddedName = 40;

/// A piece of a line. Where there is no room, those with the highest `rank` become brief first, and then go.
struct Word {
    std::string text;
    int rank = 0;
    std::string brief{};
};

std::string joined(const std::vector<Word>& words, std::string_view between) {
    std::string line;
    for (const Word& word : words) {
        if (!line.empty()) line += between;
        line += word.text;
    }
    return line;
}

/// Without what has not to be told, until it fits into so many columns.
std::string joinedWithin(int columns, std::vector<Word> words, std::string_view between) {
    const auto isLessThan = [](const Word& one, const Word& other) {
        return std::pair(!one.brief.empty(), one.rank) < std::pair(!other.brief.empty(), other.rank);
    };
    while (displayWidth(escapedForTerminal(joined(words, between))) > columns) {
        auto first = std::ranges::max_element(words, isLessThan);
        if (!first->brief.empty()) {
            first->text = std::exchange(first->brief, {});
        } else if (first->rank > 0) {
            words.erase(first);
        } else {
            break;
        }
    }
    return joined(words, between);
}

/// How far something is that goes on; nothing when only what failed or waits is left of it.
std::optional<std::string> shownPercent(double fraction, bool isWhole, bool goesOn) {
    if (!isWhole && !goesOn) return std::nullopt;
    std::string percent = Format::percent(fraction);
    // All bytes are there, and yet it has not landed.
    if (!isWhole && percent == "100%") percent = "99%";
    return percent;
}

/// Why nothing goes; nothing when it goes.
std::optional<Word> whatStops(const QueueView& view) {
    if (view.pausedByVark) return Word{"paused: the vark refused the token", 0, "paused by the vark"};
    if (view.paused) return Word{"paused"};
    if (view.hold) return Word{*view.hold};
    if (!view.outage) return std::nullopt;
    const std::string since = Format::time(view.outage->since, Calendar::current());
    return Word{fmt::format("the vark cannot be reached since {}, trying again in {}", since,
                            Format::timeLeft(view.outage->secondsLeft)),
                0, fmt::format("not reached since {}", since)};
}

std::string waiting(std::int64_t count) {
    return count == 1 ? "1 waits" : Format::number(count) + " wait";
}

std::string waitingForDecision(std::int64_t count) {
    return waiting(count) + " for a decision";
}

std::vector<Word> outcomeWords(const Overall& overall) {
    std::vector<Word> words;
    if (overall.filesFailed > 0) words.push_back({Format::number(overall.filesFailed) + " failed", 2});
    if (overall.filesConflict > 0)
        words.push_back({waitingForDecision(overall.filesConflict), 3, waiting(overall.filesConflict)});
    if (overall.filesSkipped > 0) words.push_back({Format::number(overall.filesSkipped) + " skipped", 5});
    if (overall.filesChanged > 0)
        words.push_back({Format::number(overall.filesChanged) + " changed while being sent", 3,
                         Format::number(overall.filesChanged) + " changed"});
    return words;
}

std::vector<Word> overallWords(const QueueView& view) {
    const Overall& overall = view.overall;
    const std::string landed = Format::number(overall.filesVerified);
    std::vector<Word> words = {
        {fmt::format("{} of {} landed", landed, Format::count(overall.filesTotal, "file")), 4,
         fmt::format("{} of {}", landed, Format::number(overall.filesTotal))}};
    const bool isWhole = overall.filesVerified + overall.filesSkipped == overall.filesTotal;
    if (auto percent = shownPercent(overall.fraction(), isWhole, !overall.allSettled()))
        words.push_back({*percent, 1});
    words.push_back(
        {fmt::format("{} of {}", Format::bytes(overall.bytesDone), Format::bytes(overall.bytesTotal)), 6});
    if (std::optional<Word> stopped = whatStops(view)) {
        words.push_back(std::move(*stopped));
    } else if (overall.rate > 0) {
        words.push_back({Format::rate(overall.rate), 0});
        if (overall.secondsLeft) words.push_back({Format::timeLeft(*overall.secondsLeft) + " left", 0});
    }
    for (Word& word : outcomeWords(overall))
        words.push_back(std::move(word));
    return words;
}

std::string stateOf(const EntryProgress& progress) {
    const std::string changed =
        progress.changed == 0 ? ""
                              : fmt::format("{} changed while being sent", Format::number(progress.changed));
    if (progress.isFinished()) return changed.empty() ? "landed" : "landed, " + changed;
    const bool goesOn =
        progress.verified + progress.skipped + progress.failed + progress.conflicts < progress.files;
    std::vector<Word> words;
    if (auto percent = shownPercent(progress.fraction(), false, goesOn)) words.push_back({*percent});
    if (progress.failed > 0) words.push_back({Format::number(progress.failed) + " failed"});
    if (progress.conflicts > 0) words.push_back({waitingForDecision(progress.conflicts)});
    if (!changed.empty()) words.push_back({changed});
    return joined(words, ", ");
}

std::string extentOf(const EntryProgress& progress) {
    return fmt::format("{}, {}, ", Format::count(progress.files, "file"), Format::bytes(progress.bytesTotal));
}

/// A line for each entry, the names one below the other.
std::vector<std::string> entryLines(const QueueView& view, std::optional<int> columns) {
    constexpr int besideTheName = 8;
    int nameWidth = narrowestName;
    int extentWidth = 0;
    int stateWidth = 0;
    for (const EntryView& entry : view.entries) {
        nameWidth =
            std::max(nameWidth, std::min(widestPaddedName, displayWidth(escapedForTerminal(entry.name))));
        extentWidth = std::max(extentWidth, displayWidth(extentOf(entry.progress)));
        stateWidth = std::max(stateWidth, displayWidth(stateOf(entry.progress)));
    }
    const bool tellsExtent = !columns || *columns - besideTheName - extentWidth - stateWidth >= narrowestName;
    const int widestName =
        columns
            ? std::max(narrowestName, *columns - besideTheName - stateWidth - (tellsExtent ? extentWidth : 0))
            : INT_MAX;
    std::vector<std::string> lines;
    for (const EntryView& entry : view.entries) {
        const std::string name = clippedInTheMiddle(escapedForTerminal(entry.name), widestName);
        lines.push_back(fmt::format("{:>4}  {}  {}{}", entry.number,
                                    paddedToWidth(name, std::min(nameWidth, widestName)),
                                    tellsExtent ? extentOf(entry.progress) : "", stateOf(entry.progress)));
    }
    return lines;
}

/// What is said of a file. Where there is no room for all of it, the name is cut in its middle.
std::string fileLine(const FileView& file, const std::string& said, std::optional<int> columns) {
    std::string name = escapedForTerminal(file.relativePath);
    if (columns) name = clippedInTheMiddle(name, std::max(narrowestName, *columns - displayWidth(said) - 4));
    return said.empty() ? name : fmt::format("{}: {}", name, said);
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

void listUnsettled(std::vector<std::string>& lines, const QueueView& view,
                   std::optional<int> columns = std::nullopt) {
    list(lines, "Failed:", filesIn(view, [](ItemState state) { return state == ItemState::failed; }),
         view.overall.filesFailed, [columns](const FileView& file) {
             return fileLine(file, file.error.value_or("no reason is known"), columns);
         });
    list(lines, "Waiting for a decision, since a different file is in the vark:",
         filesIn(view, [](ItemState state) { return state == ItemState::conflict; }),
         view.overall.filesConflict, [columns](const FileView& file) { return fileLine(file, "", columns); });
}

}  // namespace

std::string overallLine(const QueueView& view, const Signs& signs, std::optional<int> columns) {
    return joinedWithin(columns.value_or(INT_MAX), overallWords(view), signs.between);
}

std::string progressOf(const FileView& file) {
    if (file.state == ItemState::checking) return "checking";
    const double fraction =
        file.size < 1 ? 0 : static_cast<double>(file.bytesDone) / static_cast<double>(file.size);
    return fmt::format("{} {} of {}", file.state == ItemState::hashing ? "hashing" : "sending",
                       Format::percent(fraction), Format::bytes(file.size));
}

std::vector<std::string> queueLines(const QueueView& view, const Signs& signs, std::optional<int> columns) {
    std::vector<std::string> lines;
    lines.push_back(fmt::format("{}{}{}", view.title.empty() ? "The queue" : view.title, signs.to,
                                view.destination.empty() ? "the top of the vark" : view.destination));
    lines.push_back(overallLine(view, signs, columns));
    std::ranges::move(entryLines(view, columns), std::back_inserter(lines));
    std::vector<const FileView*> underWay = filesIn(view, isInFlight);
    list(lines, "Under way:", underWay, static_cast<std::int64_t>(underWay.size()),
         [columns](const FileView& file) { return fileLine(file, progressOf(file), columns); });
    listUnsettled(lines, view, columns);
    return lines;
}

std::vector<std::string> watchedLines(const QueueView& view, const Signs& signs, const TerminalSize& size) {
    const int columns = size.columns - 1;
    std::vector<std::string> lines = queueLines(view, signs, columns);
    lines.resize(std::min(lines.size(), static_cast<std::size_t>(std::max(0, size.rows - 1))));
    for (std::string& line : lines)
        line = clippedToWidth(escapedForTerminal(line), columns);
    return lines;
}

std::vector<std::string> liveLines(const QueueView& view, const Signs& signs, const TerminalSize& size) {
    const std::vector<const FileView*> underWay = filesIn(view, isInFlight);
    // The last column and the last row stay free, so that no terminal folds or scrolls.
    const int columns = size.columns - 1;
    const auto room = static_cast<std::size_t>(std::max(0, size.rows - 2));
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
            fmt::format("  {}  {}", paddedToWidth(clippedInTheMiddle(names[place], nameWidth), nameWidth),
                        states[place]),
            columns));
    if (shown < underWay.size() && room > 0)
        lines.push_back(clippedToWidth(fmt::format("  and {} more", underWay.size() - shown), columns));
    if (size.rows > 1)
        lines.push_back(clippedToWidth(escapedForTerminal(overallLine(view, signs, columns)), columns));
    return lines;
}

std::string closingLine(const Overall& overall, const Signs& signs) {
    std::vector<Word> words = outcomeWords(overall);
    words.insert(words.begin(),
                 {fmt::format("{} landed and checked, {}", Format::count(overall.filesVerified, "file"),
                              Format::bytes(overall.bytesVerified))});
    return joined(words, signs.between);
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
