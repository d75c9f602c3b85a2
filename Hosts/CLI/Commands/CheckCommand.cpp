#include <fmt/format.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Commands/Interruptible.h"
#include "Hosts/CLI/Display/ProgressLine.h"
#include "Hosts/CLI/PathOptions.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkApp/Queue/QueueRequest.h"
#include "VarkCore/Checking/Checking.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

using Verdict = CheckedFile::Verdict;

constexpr const char* aboutCheck =
    "What \"vark send PATH --to FOLDER\" sends is compared with what the vark has there: every file is read "
    "and its\n"
    "checksum compared with the vark's, and nothing is changed on either side. Exit code 0 means that the "
    "vark "
    "has\n"
    "the very bytes of every file in what was named. Everything else is listed, with exit code 1: what the "
    "vark\n"
    "does not have, what differs, what cannot be read, what changed meanwhile, and what is never sent "
    "(links, "
    "special\n"
    "files, what systems leave in folders). Hidden files are looked at too. What --exclude leaves out is "
    "counted\n"
    "and not looked at.";

struct CheckOptions {
    NamedPaths paths;
    std::string against;
    Walker::Options walk;
    bool verbose = false;
    bool quiet = false;
    bool json = false;
};

std::string_view labelOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::same:
            return "Same";
        case Verdict::missing:
            return "Not in the vark";
        case Verdict::differs:
            return "Different in the vark";
        case Verdict::unreadable:
            return "Cannot be read here";
        case Verdict::changed:
            return "Changed meanwhile";
        case Verdict::unproved:
            return "Not proved";
    }
}

std::string shown(const std::string& folder) {
    return folder.empty() ? "the top of the vark" : folder;
}

class CheckOutput {
  public:
    CheckOutput(Console& console, const CheckOptions& options, std::string against)
        : console_(console), options_(options), against_(std::move(against)) {}

    ExitCode print(const CheckReport& report) {
        for (const CheckedFile& file : report.files) {
            if (file.verdict != Verdict::same || options_.verbose) print(file);
        }
        const ExitCode code = report.isProved() ? ExitCode::allLanded : ExitCode::somethingFailed;
        if (options_.json) {
            printSum(report, code);
        } else if (!options_.quiet) {
            saySum(report);
        }
        return code;
    }

  private:
    void print(const CheckedFile& file) {
        if (options_.json) {
            JSONWriter json;
            json.beginObject()
                .field("event", CheckedFile::verdictNames.at(static_cast<std::size_t>(file.verdict)))
                .field("path", file.path)
                .field("localPath", file.localPath)
                .field("size", file.size);
            if (!file.why.empty()) json.field("why", file.why);
            console_.printJSON(json.endObject().text());
            return;
        }
        const bool needsReason = file.verdict != Verdict::missing && !file.why.empty();
        console_.print(fmt::format("{}: {}{}", labelOf(file.verdict), file.path,
                                   needsReason ? fmt::format(": {}", file.why) : ""));
    }

    void printSum(const CheckReport& report, ExitCode code) {
        JSONWriter json;
        json.beginObject().field("event", "finished").field("against", against_);
        json.field("files", std::ssize(report.files)).field("same", report.same);
        json.field("sameBytes", report.sameBytes).field("excluded", report.excluded);
        json.field("emptyFolders", report.emptyFolders).field("isProved", report.isProved());
        json.field("exitCode", static_cast<int>(code)).endObject();
        console_.printJSON(json.text());
    }

    void saySum(const CheckReport& report) {
        const std::int64_t files = std::ssize(report.files);
        if (report.excluded > 0)
            console_.say(
                fmt::format("Left out and not looked at: {}.", Format::count(report.excluded, "thing")));
        if (report.emptyFolders > 0)
            console_.say(
                fmt::format("{} no file and {} not looked for.",
                            report.emptyFolders == 1
                                ? "1 folder holds"
                                : fmt::format("{} folders hold", Format::number(report.emptyFolders)),
                            report.emptyFolders == 1 ? "was" : "were"));
        if (files == 0) {
            console_.say("There was no file to look at, so nothing is proved.");
        } else if (report.isProved()) {
            console_.print(
                fmt::format("{} ({}) {} in {}, with the same bytes.",
                            files == 1 ? "The 1 file" : fmt::format("All {} files", Format::number(files)),
                            Format::bytes(report.sameBytes), files == 1 ? "is" : "are", shown(against_)));
        } else {
            console_.say(fmt::format("{} of {} {} in {} with the same bytes. Keep what is listed.",
                                     Format::number(report.same), Format::number(files),
                                     report.same == 1 ? "is" : "are", shown(against_)));
            sayWherePerhaps(report);
        }
    }

    /// "--against Jobs/Shoot" for what was sent with "--to Jobs" is the mistake that everybody makes once.
    void sayWherePerhaps(const CheckReport& report) {
        for (const std::string& name : report.missingRoots) {
            if (lastPathComponent(against_) != name) continue;
            const std::string above =
                tidiedVarkPath(std::string_view(against_).substr(0, against_.size() - name.size()));
            console_.say(
                fmt::format("There is no \"{}\" in {}. What was sent to {} is compared with: --against {}",
                            name, against_, shown(above), above.empty() ? "/" : above));
        }
    }

    Console& console_;
    const CheckOptions& options_;
    const std::string against_;
};

std::vector<std::filesystem::path> pathsFrom(const CheckOptions& options) {
    std::vector<std::filesystem::path> paths;
    for (const std::string& typed : options.paths.all()) {
        std::filesystem::path path = QueueRequest::Named::of(typed).path;
        if (!path.has_filename())
            throw Failure(Outcome::misuse,
                          "A whole file system has no name that it could have in the vark. Name "
                          "the folders in it.");
        paths.push_back(std::move(path));
    }
    if (paths.empty())
        throw Failure(Outcome::misuse,
                      "Nothing was named. Check something with: vark check PATH... --against "
                      "FOLDER");
    return paths;
}

Task<CheckReport> checkShowing(Checking& checking, ProgressLine& line,
                               std::vector<std::filesystem::path> paths, std::string against) {
    std::optional<CheckReport> report;
    const auto body = [&](TaskGroup<void>& group) -> Task<void> {
        group.add(line.drawing());
        report = co_await checking.run(std::move(paths), std::move(against));
        group.cancelAll();
    };
    co_await withGroup<void>(body);
    co_return *std::move(report);
}

ExitCode check(CommandSurroundings& surroundings, const CheckOptions& options) {
    Console& console = surroundings.console;
    const std::vector<std::filesystem::path> paths = pathsFrom(options);
    const SharedConnection connection = surroundings.neededConnection();
    const std::string against = joinedVarkPath(connection.rootPath, options.against);
    Checking checking({surroundings.api(connection), surroundings.pool(), surroundings.platform.volumes()},
                      options.walk);
    const Instant begun = surroundings.clock.now();
    ProgressLine line(console, !options.json && !options.quiet, [&] {
        std::vector<std::string> words;
        if (checking.files() == 0) return words;
        words.push_back(fmt::format("{}, {} of {} read", Format::count(checking.files(), "file"),
                                    Format::bytes(checking.readBytes()),
                                    Format::bytes(checking.totalBytes())));
        const double seconds = inSeconds(surroundings.clock.now() - begun);
        if (seconds > 1) words.push_back(Format::rate(static_cast<double>(checking.readBytes()) / seconds));
        return words;
    });
    const std::optional<CheckReport> report =
        awaitUnlessInterrupted(surroundings, checkShowing(checking, line, paths, against));
    line.erase();
    if (!report) {
        console.say("Stopped before all was looked at, so nothing is proved.");
        return ExitCode::interrupted;
    }
    return CheckOutput(console, options, against).print(*report);
}

}  // namespace

void declareCheck(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App& command =
        addCommand(program, chosen, "check", "Compare files and folders here with the vark's, by checksum",
                   options, check);
    command.footer(aboutCheck);
    command.add_option("PATH", options->paths.typed, "Files and folders of this machine")->type_name("FILE");
    command
        .add_option("--against", options->against,
                    "The folder of the vark that they were sent to; / for the top")
        ->type_name("FOLDER")
        ->required();
    command.add_flag("--follow-links", options->walk.followLinks, "Look at what links lead to");
    addFilter(command, options->walk.filter);
    addFilesFrom(command, options->paths);
    command.add_flag("-v,--verbose", options->verbose, "List what is the same too");
    command.add_flag("-q,--quiet", options->quiet, "List what is not in the vark, and nothing else");
    addJSON(command, options->json);
}

}  // namespace vark::cli
