#include "Hosts/CLI/Display/QueueLines.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "Hosts/CLI/Display/TextWidth.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr std::size_t mostListed = 20;
constexpr int narrowestName = 12;
constexpr int widestPaddedName = 40;

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
         view.overall.filesConflict,
         [columns](const FileView& file) { return fileLine(file, bothSides(file), columns); });
}

}  // namespace

std::string overallLine(const QueueView& view, const Signs& signs, std::optional<int> columns) {
    return joinedWithin(columns.value_or(INT_MAX), overallWords(view), signs.between);
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
    return joined(closingWords(overall), signs.between);
}

std::string leftOutLine(const LeftOut& left) {
    std::vector<std::string_view> options;
    if (left.hidden > 0) options.emplace_back("--hidden");
    if (left.links > 0) options.emplace_back("--follow-links");
    const std::string sentence = left.sentence().value_or("");
    if (options.empty()) return sentence;
    return fmt::format("{} Send them too with {}.", sentence, fmt::join(options, " and "));
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
    if (view.filesTakenAway() > 0) lines.push_back(takenAwayLine(view.filesTakenAway()));
    if (view.overall.filesConflict > 0)
        lines.emplace_back(
            "Decide with: vark resolve --replace [FILE...] or vark resolve --skip [FILE...], then "
            "vark send");
    return lines;
}

}  // namespace vark::cli
