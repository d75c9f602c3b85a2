#include <unistd.h>

#include <fmt/ranges.h>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/Fetching.h"
#include "Hosts/CLI/LiveArea.h"
#include "Hosts/CLI/Terminal.h"
#include "Hosts/CLI/TextWidth.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr const char* explanation =
    "Each file is checked against the vark's checksum before it takes its place. What stands there already "
    "is\n"
    "left alone without --force, and a file that could not be fetched whole leaves nothing behind.";
constexpr Duration beatLength = std::chrono::milliseconds(250);

struct GetOptions {
    std::string path;
    std::string to;
    bool recursive = false;
    bool force = false;
    bool json = false;
};

/// What one run shows while it lasts, and what it has come to.
class GetDisplay {
  public:
    GetDisplay(Surroundings& surroundings, bool json)
        : console_(surroundings.console),
          clock_(surroundings.clock),
          json_(json),
          isLive_(!json && Terminal::canDraw()) {}

    void leaveOut(const std::string& sentence) {
        ++failed_;
        console_.say(sentence);
    }

    void fileEnded(const FetchedFile& file) {
        erase();
        (file.failure ? failed_ : arrived_) += 1;
        if (!file.failure) bytes_ += file.size;
        if (json_) {
            JSONWriter line;
            line.beginObject()
                .field("event", file.failure ? "failed" : "arrived")
                .field("path", file.to.string());
            line.field("size", file.size).field("checked", file.checked);
            if (file.failure) line.field("error", file.failure);
            console_.printJSON(line.endObject().take());
        } else if (file.failure) {
            console_.say(fmt::format("{}: {}", file.to.string(), *file.failure));
        } else {
            console_.print(fmt::format("{} ({}{})", file.to.string(), Format::bytes(file.size),
                                       file.checked ? "" : "; the vark has no checksum to check it by"));
        }
    }

    void begin(const WantedFiles& wanted) {
        files_ = static_cast<std::int64_t>(wanted.files.size());
        totalBytes_ = wanted.totalBytes;
        begun_ = clock_.now();
    }

    void show(std::int64_t received) {
        if (!isLive_) return;
        const std::optional<TerminalSize> size = Terminal::size();
        if (!size) return;
        std::vector<std::string> words = {
            fmt::format("{} of {}", Format::number(arrived_ + failed_), Format::count(files_, "file")),
            fmt::format("{} of {}", Format::bytes(received), Format::bytes(totalBytes_))};
        const double seconds = inSeconds(clock_.now() - begun_);
        if (seconds > 1) words.push_back(Format::rate(static_cast<double>(received) / seconds));
        draw({clippedToWidth(fmt::format("{}", fmt::join(words, console_.signs().between)),
                             size->columns - 1)});
    }

    ExitCode finish() {
        erase();
        if (!json_ && (files_ > 1 || failed_ > 0)) {
            std::string line =
                fmt::format("{} fetched, {}", Format::count(arrived_, "file"), Format::bytes(bytes_));
            if (failed_ > 0)
                line += fmt::format("{}{} not", console_.signs().between, Format::number(failed_));
            console_.say(line);
        }
        return failed_ == 0 ? ExitCode::allLanded : ExitCode::somethingFailed;
    }

    void erase() { draw({}); }

  private:
    void draw(const std::vector<std::string>& lines) {
        if (isLive_) console_.printText(area_.replace(lines));
    }

    Console& console_;
    Clock& clock_;
    const bool json_;
    const bool isLive_;
    LiveArea area_;
    Instant begun_{};
    std::int64_t files_ = 0;
    std::int64_t totalBytes_ = 0;
    std::int64_t arrived_ = 0;
    std::int64_t failed_ = 0;
    std::int64_t bytes_ = 0;
};

Task<void> showWhileItLasts(GetDisplay& display, const Fetching& fetching) {
    for (;;) {
        co_await sleepFor(beatLength);
        display.show(fetching.receivedBytes());
    }
}

std::filesystem::path placeFor(const GetOptions& options, const std::string& name) {
    if (options.to.empty()) return std::filesystem::current_path() / name;
    const std::filesystem::path to = std::filesystem::absolute(options.to);
    return std::filesystem::is_directory(to) ? to / name : to;
}

Task<void> fetch(std::shared_ptr<VarkAPI> api, VarkItem item, std::filesystem::path to, GetDisplay& display,
                 Fetching& fetching) {
    const WantedFiles wanted = co_await listWanted(std::move(api), std::move(item), std::move(to));
    for (const std::string& sentence : wanted.leftOut)
        display.leaveOut(sentence);
    display.begin(wanted);
    co_await fetching.all(wanted);
}

ExitCode get(Surroundings& surroundings, const GetOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    std::shared_ptr<VarkAPI> api = surroundings.api(connection);
    const VarkItem item = surroundings.neededItem(*api, joinedVarkPath(connection.rootPath, options.path));
    if (item.isDir && !options.recursive)
        throw CommandError(ExitCode::usage,
                           fmt::format("\"{}\" is a folder. Get all that is in it with: vark get "
                                       "--recursive",
                                       item.path));
    const std::filesystem::path to = placeFor(options, std::string(lastPathComponent(item.path)));

    GetDisplay display(surroundings, options.json);
    Fetching fetching(api, surroundings.pool(),
                      options.force ? Fetching::WhatStands::isReplaced : Fetching::WhatStands::stays,
                      [&display](const FetchedFile& file) { display.fileEnded(file); });
    TaskScope scope(surroundings.executor, surroundings.clock);
    const TaskHandle<void> showing = scope.start(showWhileItLasts(display, fetching));
    const TaskHandle<void> work = scope.start(fetch(api, item, to, display, fetching));
    Terminal terminal(false, [work](std::optional<char>) { work.cancel(); });
    surroundings.executor.runUntil([&] { return work.done(); });
    showing.cancel();
    display.erase();
    try {
        work.result();
    } catch (const CancellationError&) {
        surroundings.console.say("Stopped. Files that had not arrived whole are not there.");
        return ExitCode::interrupted;
    }
    return display.finish();
}

}  // namespace

void declareGet(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<GetOptions>();
    CLI::App& command =
        addCommand(program, chosen, "get", "Fetch a file or a folder of the vark", options, get);
    command.footer(explanation);
    command.add_option("PATH", options->path, "What to fetch, below the connection's folder")
        ->type_name("REMOTE")
        ->required();
    command.add_option("-o,--output", options->to, "The file to write, or a folder to put it into")
        ->type_name("FILE");
    command.add_flag("-r,--recursive", options->recursive, "A folder with all that is in it");
    command.add_flag("-f,--force", options->force, "Replace files that are there already");
    addJSON(command, options->json);
}

}  // namespace vark::cli
