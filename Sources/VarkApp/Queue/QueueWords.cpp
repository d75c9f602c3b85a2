#include "VarkApp/Queue/QueueWords.h"

#include <fmt/format.h>

#include <algorithm>

#include "VarkCore/Foundation/Time/Calendar.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::app {

namespace {

constexpr std::size_t mostListed = 20;

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

}  // namespace

std::string joined(const std::vector<Word>& words, std::string_view between) {
    std::string line;
    for (const Word& word : words) {
        if (!line.empty()) line += between;
        line += word.text;
    }
    return line;
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

std::string progressOf(const FileView& file) {
    if (file.state == ItemState::checking) return "checking";
    const double fraction =
        file.size < 1 ? 0 : static_cast<double>(file.bytesDone) / static_cast<double>(file.size);
    return fmt::format("{} {} of {}", file.state == ItemState::hashing ? "hashing" : "sending",
                       Format::percent(fraction), Format::bytes(file.size));
}

std::vector<Word> closingWords(const Overall& overall) {
    std::vector<Word> words = outcomeWords(overall);
    words.insert(words.begin(),
                 {fmt::format("{} landed and checked, {}", Format::count(overall.filesVerified, "file"),
                              Format::bytes(overall.bytesVerified))});
    return words;
}

std::string bothSides(const FileView& file) {
    if (!file.standing) return "";
    const auto side = [](std::optional<std::int64_t> size, std::optional<double> mtime) {
        std::string text = size ? Format::bytes(*size) : "";
        if (!mtime) return text;
        const std::string date = Format::date(Date::fromSince1970(*mtime), Calendar::current());
        return text.empty() ? "from " + date : fmt::format("{} from {}", text, date);
    };
    return fmt::format("{} here, {} in the vark", side(file.size, file.mtime),
                       side(file.standing->size, file.standing->mtime));
}

std::string takenAwayLine(std::int64_t count) {
    return fmt::format("{} taken out of the queue before landing.",
                       count == 1 ? "1 file was" : Format::number(count) + " files were");
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

}  // namespace vark::app
