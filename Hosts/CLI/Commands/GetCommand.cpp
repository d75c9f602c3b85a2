#include <fmt/ranges.h>

#include <set>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Commands/Interruptible.h"
#include "Hosts/CLI/Commands/Streaming.h"
#include "Hosts/CLI/Display/ProgressLine.h"
#include "Hosts/CLI/PathOptions.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkCore/Fetching/Fetching.h"
#include "VarkCore/Foundation/FileName.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr const char* aboutGet =
    "Each file is checked against the vark's checksum before it takes its place. What stands there already "
    "with\n"
    "the same contents is not fetched again; what differs is left alone without --force. A folder is put "
    "into the\n"
    "folder of --output under its own name, so the same command again fetches what is missing; so is each of "
    "several\n"
    "PATHs. What had come of a file is kept beside its place when the command is interrupted, and is gone on "
    "with by\n"
    "the next one. \"--output -\" writes one file to standard output, and fails at the end if it was not the "
    "vark's.";

struct GetOptions {
    NamedPaths paths;
    std::string to;
    PathFilter filter;
    bool recursive = false;
    bool force = false;
    bool quiet = false;
    bool json = false;
};

/// What one run shows while it lasts, and what it has come to.
class GetDisplay {
  public:
    GetDisplay(CommandSurroundings& surroundings, const GetOptions& options)
        : console_(surroundings.console),
          clock_(surroundings.clock),
          json_(options.json),
          isQuiet_(options.quiet),
          line_(console_, !json_ && !isQuiet_, [this] { return words(); }) {}

    void leaveOut(const WantedFiles::LeftOut& leftOut) {
        ++failed_;
        if (json_) {
            printFailure(leftOut.path, "leftOut", leftOut.why);
        } else {
            console_.say(fmt::format("\"{}\" was left out: {}", leftOut.path, leftOut.why));
        }
    }

    void fileEnded(const FetchedFile& file) {
        line_.erase();
        if (file.failure) {
            failed_ += file.files;
            const std::string why = *file.failure + (file.isKept ? " Overwrite it with --force." : "");
            if (json_) {
                printFailure(file.to.string(), file.isKept ? "differs" : "failed", why);
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
        } else if (!file.wasThere && !isQuiet_) {
            console_.print(fmt::format("{} ({}{})", file.to.string(), Format::bytes(file.size),
                                       file.checked ? "" : "; the vark has no checksum to check it by"));
        }
    }

    void begin(const WantedFiles& wanted, const Fetching& fetching) {
        files_ = std::ssize(wanted.files);
        totalBytes_ = wanted.totalBytes;
        excluded_ = wanted.excluded;
        fetching_ = &fetching;
        begun_ = clock_.now();
    }
    Task<void> drawing() { return line_.drawing(); }

    ExitCode finish() {
        line_.erase();
        const ExitCode code = failed_ == 0 ? ExitCode::allLanded : ExitCode::somethingFailed;
        if (json_) {
            JSONWriter line;
            line.beginObject()
                .field("event", "finished")
                .field("arrived", arrived_)
                .field("present", present_);
            line.field("failed", failed_).field("excluded", excluded_).field("bytes", bytes_);
            console_.printJSON(line.field("exitCode", static_cast<int>(code)).endObject().text());
        } else if (!isQuiet_ && (files_ != 1 || present_ > 0 || failed_ > 0)) {
            console_.say(fmt::format("{}", fmt::join(outcome(), console_.signs().between)));
        }
        return code;
    }

    ExitCode stop() {
        line_.erase();
        console_.say(files_ == 0
                         ? "Stopped before anything was fetched."
                         : fmt::format("Stopped with {} of {} here. The same command carries on.",
                                       Format::number(arrived_ + present_), Format::count(files_, "file")));
        return ExitCode::interrupted;
    }

  private:
    std::vector<std::string> words() const {
        if (fetching_ == nullptr) return {};
        const std::int64_t received = fetching_->receivedBytes();
        std::vector<std::string> words = {
            fmt::format("{} of {}", Format::number(arrived_ + present_ + failed_),
                        Format::count(files_, "file")),
            fmt::format("{} of {}", Format::bytes(received), Format::bytes(totalBytes_))};
        const double seconds = inSeconds(clock_.now() - begun_);
        if (seconds > 1)
            words.push_back(Format::rate(static_cast<double>(fetching_->movedBytes()) / seconds));
        return words;
    }

    std::vector<std::string> outcome() const {
        std::vector<std::string> words = {
            fmt::format("{} fetched, {}", Format::count(arrived_, "file"), Format::bytes(bytes_))};
        if (present_ > 0)
            words.push_back(
                fmt::format("{} {} here already", Format::number(present_), present_ == 1 ? "was" : "were"));
        if (excluded_ > 0) words.push_back(fmt::format("{} excluded", Format::number(excluded_)));
        if (failed_ > 0) words.push_back(fmt::format("{} not", Format::number(failed_)));
        return words;
    }

    void printFailure(const std::string& path, std::string_view code, const std::string& why) {
        JSONWriter line;
        line.beginObject()
            .field("event", "failed")
            .field("path", path)
            .field("code", code)
            .field("error", why);
        console_.printJSON(line.endObject().take());
    }

    Console& console_;
    Clock& clock_;
    const bool json_;
    const bool isQuiet_;
    const Fetching* fetching_ = nullptr;
    Instant begun_{};
    std::int64_t files_ = 0;
    std::int64_t totalBytes_ = 0;
    std::int64_t arrived_ = 0;
    std::int64_t present_ = 0;
    std::int64_t failed_ = 0;
    std::int64_t excluded_ = 0;
    std::int64_t bytes_ = 0;
    ProgressLine line_;
};

/// An item of the vark and the name that it gets here.
struct Wanted {
    VarkItem item;
    std::string name;
};

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

std::filesystem::path workingFolder() {
    std::error_code failure;
    std::filesystem::path here = std::filesystem::current_path(failure);
    if (failure)
        throw Failure(Outcome::failed, "The folder that this runs in is no longer there. Go to another one.");
    return here;
}

/// A folder goes into the one that is named, under its own name; so does a file when it is a folder that is
/// named, there already or with a "/" at its end. The name is what the person asked for, not what the vark
/// answered: its answer has no say in where things go.
Destination destinationFor(const std::string& to, const Wanted& wanted) {
    const std::filesystem::path here = workingFolder();
    std::error_code failure;
    if (wanted.item.isDir || to.empty() || to.ends_with('/') || std::filesystem::is_directory(to, failure)) {
        if (!wanted.item.isDir || !wanted.name.empty()) requireName(wanted.name);
        return {here / to, wanted.name};
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

/// Several go into one folder, each under its own name.
std::filesystem::path folderForAll(const std::string& to, const std::vector<Wanted>& wanted) {
    std::error_code failure;
    if (!to.empty() && std::filesystem::exists(to, failure) && !std::filesystem::is_directory(to, failure))
        throw Failure(
            Outcome::misuse,
            fmt::format("\"{}\" is no folder, and several things were named. Nothing was fetched.", to));
    std::set<std::string_view> names;
    for (const Wanted& one : wanted) {
        requireName(one.name);
        if (!names.insert(one.name).second)
            throw Failure(Outcome::misuse,
                          fmt::format("Two of them are called \"{}\". Get them one by one. Nothing "
                                      "was fetched.",
                                      one.name));
    }
    return workingFolder() / to;
}

Task<void> fetch(std::shared_ptr<VarkAPI> api, std::vector<Wanted> items, const GetOptions& options,
                 std::filesystem::path folder, GetDisplay& display, Fetching& fetching) {
    WantedFiles all;
    for (Wanted& one : items) {
        WantedFiles wanted =
            co_await listWanted(api, std::move(one.item), std::move(one.name), options.filter);
        all.add(std::move(wanted));
    }
    for (const WantedFiles::LeftOut& leftOut : all.leftOut)
        display.leaveOut(leftOut);
    display.begin(all, fetching);
    co_await fetching.all(std::move(all), std::move(folder));
}

Task<void> fetchShowing(Task<void> fetching, GetDisplay& display) {
    const auto body = [&](TaskGroup<void>& group) -> Task<void> {
        group.add(display.drawing());
        co_await std::move(fetching);
        group.cancelAll();
    };
    co_await withGroup<void>(body);
}

ExitCode getToFiles(CommandSurroundings& surroundings, std::shared_ptr<VarkAPI> api,
                    std::vector<Wanted> items, const GetOptions& options) {
    std::filesystem::path folder;
    if (items.size() == 1) {
        Destination to = destinationFor(options.to, items.front());
        folder = std::move(to.folder);
        items.front().name = std::move(to.name);
    } else {
        folder = folderForAll(options.to, items);
    }
    GetDisplay display(surroundings, options);
    Fetching fetching({api, surroundings.pool(), surroundings.date},
                      options.force ? WhatStands::isReplaced : WhatStands::stays,
                      [&display](const FetchedFile& file) { display.fileEnded(file); });
    Task<void> work = fetch(api, std::move(items), options, std::move(folder), display, fetching);
    const bool isWhole = endsUninterrupted(surroundings, fetchShowing(std::move(work), display));
    return isWhole ? display.finish() : display.stop();
}

ExitCode get(CommandSurroundings& surroundings, const GetOptions& options) {
    const std::vector<std::string> paths = options.paths.all();
    if (paths.empty())
        throw Failure(Outcome::misuse, "Nothing was named. Fetch something with: vark get PATH");
    const SharedConnection connection = surroundings.neededConnection();
    const std::optional<Reader> reader = readerAt(options.to);
    if (reader && options.json)
        throw Failure(Outcome::misuse, "--json would mix with the file. Leave it out, or name a file.");
    if (reader && paths.size() > 1)
        throw Failure(Outcome::misuse, "Several files would run into one. To have it so: vark cat PATH...");
    std::shared_ptr<VarkAPI> api = surroundings.api(connection, Fetching::filesAtOnce);
    std::vector<Wanted> items;
    for (const std::string& typed : paths) {
        const std::string path = joinedVarkPath(connection.rootPath, typed);
        items.push_back({surroundings.neededItem(*api, path), std::string(lastPathComponent(path))});
        if (!items.back().item.isDir) continue;
        if (!options.recursive)
            throw Failure(Outcome::misuse,
                          fmt::format("\"{}\" is a folder. Get all that is in it with: vark get "
                                      "--recursive",
                                      path));
        if (reader)
            throw Failure(Outcome::misuse,
                          fmt::format("\"{}\" is a folder. Name a folder to put it into with: --output "
                                      "FOLDER",
                                      path));
    }
    if (reader) return streamTo(*reader, surroundings, std::move(api), items.front().item);
    return getToFiles(surroundings, std::move(api), std::move(items), options);
}

}  // namespace

void declareGet(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<GetOptions>();
    CLI::App& command =
        addCommand(program, chosen, "get", "Fetch files and folders of the vark", options, get);
    command.footer(aboutGet);
    command.add_option("PATH", options->paths.typed, "What to fetch, below the connection's folder")
        ->type_name("REMOTE");
    command
        .add_option("-o,--output", options->to,
                    "The file to write, or a folder to put it into; - for standard output")
        ->type_name("FILE");
    command.add_flag("-r,--recursive", options->recursive, "A folder with all that is in it");
    command.add_flag("-f,--force", options->force, "Replace files that are there already");
    addFilter(command, options->filter);
    addFilesFrom(command, options->paths);
    command.add_flag("-q,--quiet", options->quiet, "Tell of nothing but what is not there in the end");
    addJSON(command, options->json);
}

}  // namespace vark::cli
