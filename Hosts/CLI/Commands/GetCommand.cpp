#include <fcntl.h>
#include <fmt/ranges.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/LiveArea.h"
#include "Hosts/CLI/Display/StreamSink.h"
#include "Hosts/CLI/Display/Terminal.h"
#include "Hosts/CLI/Display/TextWidth.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkCore/Fetching/Fetching.h"
#include "VarkCore/Foundation/FileName.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr const char* explanation =
    "Each file is checked against the vark's checksum before it takes its place. What stands there already "
    "with\n"
    "the same contents is not fetched again; what differs is left alone without --force. A folder is put "
    "into the\n"
    "folder of --output under its own name, so the same command again fetches what is missing. What had come "
    "of a\n"
    "file is kept beside its place when the command is interrupted, and is gone on with by the next one.\n"
    "\"--output -\" writes one file to standard output, and fails at the end if it was not the vark's.";
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
    GetDisplay(CommandSurroundings& surroundings, bool json)
        : console_(surroundings.console),
          clock_(surroundings.clock),
          json_(json),
          isLive_(!json && Terminal::canDraw()) {}

    void leaveOut(const WantedFiles::LeftOut& leftOut) {
        ++failed_;
        if (json_) {
            printFailure(leftOut.path, leftOut.why);
        } else {
            console_.say(fmt::format("\"{}\" was left out: {}", leftOut.path, leftOut.why));
        }
    }

    void fileEnded(const FetchedFile& file) {
        erase();
        if (file.failure) {
            failed_ += file.files;
            const std::string why = *file.failure + (file.isKept ? " Overwrite it with --force." : "");
            if (json_) {
                printFailure(file.to.string(), why);
            } else {
                console_.say(fmt::format("{}: {}", file.to.string(), why));
            }
            return;
        }
        file.wasThere ? ++present_ : ++arrived_;
        if (!file.wasThere) bytes_ += file.size;
        if (json_) {
            JSONWriter line;
            line.beginObject()
                .field("event", file.wasThere ? "present" : "arrived")
                .field("path", file.to.string());
            line.field("size", file.size).field("checked", file.checked);
            console_.printJSON(line.endObject().take());
        } else if (!file.wasThere) {
            console_.print(fmt::format("{} ({}{})", file.to.string(), Format::bytes(file.size),
                                       file.checked ? "" : "; the vark has no checksum to check it by"));
        }
    }

    void begin(const WantedFiles& wanted) {
        files_ = static_cast<std::int64_t>(wanted.files.size());
        totalBytes_ = wanted.totalBytes;
        begun_ = clock_.now();
    }

    void show(std::int64_t received, std::int64_t moved) {
        if (!isLive_) return;
        const std::optional<TerminalSize> size = Terminal::size();
        if (!size) return;
        std::vector<std::string> words = {
            fmt::format("{} of {}", Format::number(arrived_ + present_ + failed_),
                        Format::count(files_, "file")),
            fmt::format("{} of {}", Format::bytes(received), Format::bytes(totalBytes_))};
        const double seconds = inSeconds(clock_.now() - begun_);
        if (seconds > 1) words.push_back(Format::rate(static_cast<double>(moved) / seconds));
        draw({clippedToWidth(fmt::format("{}", fmt::join(words, console_.signs().between)),
                             size->columns - 1)});
    }

    ExitCode finish() {
        close();
        if (!json_ && (files_ != 1 || present_ > 0 || failed_ > 0)) {
            std::vector<std::string> words = {
                fmt::format("{} fetched, {}", Format::count(arrived_, "file"), Format::bytes(bytes_))};
            if (present_ > 0)
                words.push_back(fmt::format("{} {} here already", Format::number(present_),
                                            present_ == 1 ? "was" : "were"));
            if (failed_ > 0) words.push_back(fmt::format("{} not", Format::number(failed_)));
            console_.say(fmt::format("{}", fmt::join(words, console_.signs().between)));
        }
        return failed_ == 0 ? ExitCode::allLanded : ExitCode::somethingFailed;
    }

    ExitCode stop() {
        close();
        console_.say(files_ == 0
                         ? "Stopped before anything was fetched."
                         : fmt::format("Stopped with {} of {} here. The same command carries on.",
                                       Format::number(arrived_ + present_), Format::count(files_, "file")));
        return ExitCode::interrupted;
    }

  private:
    void printFailure(const std::string& path, const std::string& why) {
        JSONWriter line;
        line.beginObject().field("event", "failed").field("path", path).field("error", why);
        console_.printJSON(line.endObject().take());
    }

    void erase() { draw({}); }
    /// Nothing is drawn from here on.
    void close() {
        erase();
        isLive_ = false;
    }

    void draw(const std::vector<std::string>& lines) {
        if (isLive_) console_.printText(area_.replace(lines));
    }

    Console& console_;
    Clock& clock_;
    const bool json_;
    bool isLive_;
    LiveArea area_;
    Instant begun_{};
    std::int64_t files_ = 0;
    std::int64_t totalBytes_ = 0;
    std::int64_t arrived_ = 0;
    std::int64_t present_ = 0;
    std::int64_t failed_ = 0;
    std::int64_t bytes_ = 0;
};

Task<void> showWhileItLasts(GetDisplay& display, const Fetching& fetching) {
    for (;;) {
        co_await sleepFor(beatLength);
        display.show(fetching.receivedBytes(), fetching.movedBytes());
    }
}

/// Somebody who takes the bytes as they come, in the place of a file.
struct Reader {
    Descriptor descriptor;
    std::string name;
};

bool isSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

Reader standardOutput() {
    return {Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)), "standard output"};
}

/// What is named when that is no place for a file: standard output, also by its path, a pipe or a device. It
/// is written to, and never replaced.
std::optional<Reader> readerAt(const std::string& to) {
    if (to == "-") return standardOutput();
    struct stat there{};
    if (to.empty() || stat(to.c_str(), &there) != 0 || S_ISDIR(there.st_mode)) return std::nullopt;
    struct stat output{};
    if (fstat(STDOUT_FILENO, &output) == 0 && isSameFile(there, output)) return standardOutput();
    if (S_ISREG(there.st_mode)) return std::nullopt;
    if (!S_ISCHR(there.st_mode) && !S_ISFIFO(there.st_mode))
        throw Failure(Outcome::misuse,
                      fmt::format("\"{}\" is a disk or a socket. Nothing is written to it.", to));
    Descriptor descriptor(open(to.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!descriptor && errno == ENXIO)
        throw Failure(Outcome::failed, fmt::format("Nobody reads from \"{}\". Start the reader first.", to));
    if (!descriptor) throw FileError("Could not open", to, errno);
    return Reader{std::move(descriptor), to};
}

struct Destination {
    std::filesystem::path folder;
    std::string name;
};

/// Control characters pass: the person has typed them.
void requireName(const std::string& name) {
    const std::optional<NameFault> fault = faultOf(name);
    if (fault == NameFault::tooLong)
        throw Failure(Outcome::misuse,
                      "The name is longer than the 255 bytes that a file here can have. Give it a shorter "
                      "one with: --output FILE");
    if (fault == NameFault::leadsElsewhere)
        throw Failure(Outcome::misuse,
                      fmt::format("A file here cannot be called \"{}\". Name it with: --output FILE", name));
}

/// A folder goes into the one that is named, under its own name; so does a file when it is a folder that is
/// named, there already or with a "/" at its end. `name` is what the person asked for, not what the vark
/// answered: its answer has no say in where things go.
Destination destinationFor(const std::string& to, const VarkItem& item, std::string name) {
    std::error_code failure;
    const std::filesystem::path here = std::filesystem::current_path(failure);
    if (failure)
        throw Failure(Outcome::failed, "The folder that this runs in is no longer there. Go to another one.");
    if (item.isDir || to.empty() || to.ends_with('/') || std::filesystem::is_directory(to, failure)) {
        if (!item.isDir || !name.empty()) requireName(name);
        return {here / to, std::move(name)};
    }
    std::filesystem::path file = here / to;
    if (std::filesystem::is_symlink(file, failure)) {
        // The person named the link, so it stays, and the file that it leads to is meant.
        file = std::filesystem::canonical(file, failure);
        if (failure)
            throw Failure(Outcome::misuse,
                          fmt::format("\"{}\" is a link that leads nowhere. Name the file itself.", to));
    }
    requireName(file.filename());
    return {file.parent_path(), file.filename()};
}

Task<void> fetch(std::shared_ptr<VarkAPI> api, VarkItem item, Destination to, GetDisplay& display,
                 Fetching& fetching) {
    WantedFiles wanted = co_await listWanted(std::move(api), std::move(item), std::move(to.name));
    for (const WantedFiles::LeftOut& leftOut : wanted.leftOut)
        display.leaveOut(leftOut);
    display.begin(wanted);
    co_await fetching.all(std::move(wanted), std::move(to.folder));
}

Task<void> stream(std::shared_ptr<VarkAPI> api, VarkItem item, const Reader& reader) {
    StreamSink sink(reader.descriptor.get(), reader.name, co_await thisToken());
    co_await api->fetch(item.id, sink);
    if (item.sha256.empty() ? sink.next() == item.size : sink.sha256() == item.sha256) co_return;
    throw Failure(Outcome::failed,
                  fmt::format("What went to {} is not what the vark has. It may have been changed just "
                              "now; get it again.",
                              reader.name));
}

/// Until it has ended, or has been told by a signal to end and has done so.
void runToItsEnd(CommandSurroundings& surroundings, const TaskHandle<void>& work) {
    Terminal terminal(false, [work](std::optional<char>) { work.cancel(); });
    surroundings.executor.runUntil([&] { return work.done(); });
}

ExitCode getToReader(CommandSurroundings& surroundings, std::shared_ptr<VarkAPI> api, const VarkItem& item,
                     const Reader& reader) {
    TaskScope scope(surroundings.executor, surroundings.clock);
    const TaskHandle<void> work = scope.start(stream(std::move(api), item, reader));
    runToItsEnd(surroundings, work);
    try {
        work.result();
    } catch (const CancellationError&) {
        surroundings.console.say("Stopped: not all of the file has gone out.");
        return ExitCode::interrupted;
    }
    return ExitCode::allLanded;
}

ExitCode getToFiles(CommandSurroundings& surroundings, std::shared_ptr<VarkAPI> api, const VarkItem& item,
                    const GetOptions& options, Destination to) {
    GetDisplay display(surroundings, options.json);
    Fetching fetching({api, surroundings.pool(), surroundings.date},
                      options.force ? WhatStands::isReplaced : WhatStands::stays,
                      [&display](const FetchedFile& file) { display.fileEnded(file); });
    TaskScope scope(surroundings.executor, surroundings.clock);
    const TaskHandle<void> showing = scope.start(showWhileItLasts(display, fetching));
    const TaskHandle<void> work = scope.start(fetch(api, item, std::move(to), display, fetching));
    runToItsEnd(surroundings, work);
    showing.cancel();
    try {
        work.result();
    } catch (const CancellationError&) {
        return display.stop();
    }
    return display.finish();
}

ExitCode get(CommandSurroundings& surroundings, const GetOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const std::optional<Reader> reader = readerAt(options.to);
    if (reader && options.json)
        throw Failure(Outcome::misuse, "--json would mix with the file. Leave it out, or name a file.");
    std::shared_ptr<VarkAPI> api = surroundings.api(connection, Fetching::filesAtOnce);
    const std::string path = joinedVarkPath(connection.rootPath, options.path);
    const VarkItem item = surroundings.neededItem(*api, path);
    if (item.isDir && !options.recursive)
        throw Failure(Outcome::misuse, fmt::format("\"{}\" is a folder. Get all that is in it with: vark get "
                                                   "--recursive",
                                                   path));
    if (reader && item.isDir)
        throw Failure(Outcome::misuse,
                      fmt::format("\"{}\" is a folder. Name a folder to put it into with: --output "
                                  "FOLDER",
                                  path));
    if (reader) return getToReader(surroundings, std::move(api), item, *reader);
    return getToFiles(surroundings, std::move(api), item, options,
                      destinationFor(options.to, item, std::string(lastPathComponent(path))));
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
    command
        .add_option("-o,--output", options->to,
                    "The file to write, or a folder to put it into; - for standard output")
        ->type_name("FILE");
    command.add_flag("-r,--recursive", options->recursive, "A folder with all that is in it");
    command.add_flag("-f,--force", options->force, "Replace files that are there already");
    addJSON(command, options->json);
}

}  // namespace vark::cli
