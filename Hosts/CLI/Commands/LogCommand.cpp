#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Commands/Interruptible.h"
#include "Hosts/CLI/Display/DiaryLines.h"
#include "Hosts/CLI/Moments.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr std::int64_t mostLines = 1'000'000;
constexpr std::size_t usualLines = 20;
constexpr std::uint64_t longestDiary = 64 << 20;
constexpr Duration betweenLooks = std::chrono::milliseconds(250);

struct LogOptions {
    std::optional<std::size_t> lines;
    std::string since;
    bool follow = false;
    bool json = false;
};

/// The diary as it grows, also when it is put aside and a new one begun.
class GrowingDiary {
  public:
    explicit GrowingDiary(const std::filesystem::path& path) : path_(path) { open(); }

    /// The lines that are whole and have not been given yet.
    std::vector<std::string> newLines() {
        take();
        struct stat named{};
        const bool isThere = stat(path_.c_str(), &named) == 0;
        if (isThere && (named.st_ino != inode_ || named.st_size < place_)) {
            open();
            take();
        }
        const std::size_t end = text_.rfind('\n');
        if (end == std::string::npos) return {};
        std::vector<std::string> lines = splitKeepingEmpty(std::string_view(text_).substr(0, end), '\n');
        text_.erase(0, end + 1);
        return lines;
    }
    /// What stands in it so far is not given.
    void skipToTheEnd() {
        take();
        text_.erase(0, text_.rfind('\n') + 1);
    }

  private:
    void open() {
        place_ = 0;
        inode_ = 0;
        file_ = Descriptor(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
        struct stat values{};
        if (file_ && fstat(file_.get(), &values) == 0) inode_ = values.st_ino;
    }
    void take() {
        char piece[64 << 10];
        while (file_) {
            const ssize_t length = pread(file_.get(), piece, sizeof piece, place_);
            if (length <= 0) return;
            text_.append(piece, static_cast<std::size_t>(length));
            place_ += length;
        }
    }

    const std::filesystem::path path_;
    Descriptor file_;
    ino_t inode_ = 0;
    off_t place_ = 0;
    std::string text_;
};

void print(Console& console, const DiaryLine& line, bool json) {
    if (!json) return console.print(line.text);
    JSONWriter record;
    record.beginObject();
    if (line.at) record.field("at", iso8601(*line.at));
    console.printJSON(record.field("message", line.message).endObject().text());
}

std::string contentOf(const std::filesystem::path& path) {
    try {
        return readWholeFile(path, longestDiary);
    } catch (const FileError&) {
        return {};
    }
}

/// Of the diary, and of the one that was put aside before it where that may be
/// needed.
std::vector<DiaryLine> linesSince(CommandSurroundings& surroundings, Date since) {
    const std::filesystem::path path = surroundings.log().url();
    std::filesystem::path previous = path;
    previous.replace_extension("previous.log");
    const auto linesOf = [](const std::string& text) {
        std::vector<std::string> lines = splitKeepingEmpty(text, '\n');
        if (lines.back().empty()) lines.pop_back();
        return lines;
    };
    std::vector<DiaryLine> all = joinedDiaryLines(linesOf(contentOf(path)), surroundings.calendar());
    if (all.empty() || !all.front().at || *all.front().at >= since)
        all = joinedDiaryLines(linesOf(contentOf(previous) + contentOf(path)), surroundings.calendar());
    const auto first =
        std::ranges::find_if(all, [&](const DiaryLine& line) { return line.at && *line.at >= since; });
    all.erase(all.begin(), first);
    return all;
}

std::vector<DiaryLine> lastLines(CommandSurroundings& surroundings, std::size_t count) {
    // The piece behind the last line end is empty and counts.
    std::vector<std::string> lines = splitKeepingEmpty(surroundings.log().tail(count + 1), '\n');
    if (lines.back().empty()) lines.pop_back();
    return joinedDiaryLines(lines, surroundings.calendar());
}

Task<void> following(CommandSurroundings& surroundings, GrowingDiary& diary, bool json) {
    while (surroundings.console.isRead()) {
        for (const DiaryLine& line : joinedDiaryLines(diary.newLines(), surroundings.calendar()))
            print(surroundings.console, line, json);
        co_await sleepFor(betweenLooks);
    }
}

ExitCode showLog(CommandSurroundings& surroundings, const LogOptions& options) {
    GrowingDiary diary(surroundings.log().url());
    if (options.follow) diary.skipToTheEnd();
    std::vector<DiaryLine> lines;
    if (options.since.empty()) {
        lines = lastLines(surroundings, options.lines.value_or(usualLines));
    } else {
        const Parsed<Date> since = parseSince(options.since, surroundings.date(), surroundings.calendar());
        if (!since) throw Failure(Outcome::misuse, since.error());
        lines = linesSince(surroundings, *since);
        const std::size_t most = options.lines.value_or(lines.size());
        if (most < lines.size()) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most));
    }
    for (const DiaryLine& line : lines)
        print(surroundings.console, line, options.json);
    if (options.follow) {
        const bool isRead = !endsUninterrupted(surroundings, following(surroundings, diary, options.json));
        return isRead ? ExitCode::interrupted : ExitCode::allLanded;
    }
    if (lines.empty())
        surroundings.console.say(options.since.empty()
                                     ? "Nothing has been written into the diary yet."
                                     : "Nothing has been written into the diary since then.");
    return ExitCode::allLanded;
}

}  // namespace

void declareLog(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<LogOptions>();
    CLI::App& command = addCommand(program, chosen, "log", "Show the diary of the queue", options, showLog);
    command
        .add_option("-n,--lines", options->lines,
                    "How many of the last lines; 20 without it, and all since --since")
        ->type_name("N")
        ->check(wholeNumber(1, mostLines));
    command
        .add_option("--since", options->since,
                    "What was written since then: 2h, 3d, 09:00, today, "
                    "yesterday, 2026-11-20 or \"2026-11-20 09:00\"")
        ->type_name("WHEN");
    command.add_flag("-f,--follow", options->follow,
                     "Go on with what is written from now on, until interrupted");
    addJSON(command, options->json);
}

}  // namespace vark::cli
