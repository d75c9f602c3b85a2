#include <fmt/ranges.h>

#include "Hosts/CLI/ChosenItems.h"
#include "Hosts/CLI/Commands/Commands.h"
#include "VarkCore/Actions/ActionLines.h"
#include "VarkCore/Actions/VarkActions.h"
#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

struct FindOptions {
    std::vector<std::string> words;
    bool json = false;
};

struct FileOptions {
    std::vector<std::string> paths;
    std::string ref;
    bool json = false;
};

void print(Console& console, const VarkJob& job, bool json) {
    if (!json) {
        console.print(job.line());
        return;
    }
    JSONWriter record;
    record.beginObject().field("id", job.id).field("ref", job.ref).field("title", job.title);
    record.field("client", job.client).field("artist", job.artist).field("date", job.date).endObject();
    console.printJSON(record.text());
}

ExitCode find(CommandSurroundings& surroundings, const FindOptions& options) {
    const std::shared_ptr<VarkAPI> api = surroundings.api(surroundings.neededConnection());
    const VarkActions actions(*api);
    const std::string query = fmt::format("{}", fmt::join(options.words, " "));
    const std::vector<VarkJob> jobs = surroundings.await(actions.findJobs(query));
    for (const VarkJob& job : jobs)
        print(surroundings.console, job, options.json);
    if (jobs.empty())
        surroundings.console.say(query.empty() ? "The job book is empty."
                                               : fmt::format("The job book has nothing for \"{}\".", query));
    return ExitCode::allLanded;
}

/// The one job with the reference, in whatever case it was typed.
VarkJob neededJob(CommandSurroundings& surroundings, const VarkActions& actions, const std::string& ref) {
    std::vector<VarkJob> jobs = surroundings.await(actions.findJobs(ref));
    std::erase_if(jobs, [&](const VarkJob& job) { return lowercased(job.ref) != lowercased(ref); });
    if (jobs.size() == 1) return jobs.front();
    if (jobs.empty())
        throw Failure(Outcome::misuse,
                      fmt::format("There is no job \"{}\" in the job book. Look for it with: vark job "
                                  "find QUERY",
                                  ref));
    for (const VarkJob& job : jobs)
        surroundings.console.say(job.line());
    throw Failure(Outcome::misuse,
                  fmt::format("\"{}\" is the reference of {} jobs, so nothing was filed.", ref, jobs.size()));
}

ExitCode file(CommandSurroundings& surroundings, const FileOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const std::shared_ptr<VarkAPI> api = surroundings.api(connection);
    const VarkActions actions(*api);
    const VarkJob job = neededJob(surroundings, actions, options.ref);
    const std::vector<VarkItem> items = chosenItems(surroundings, *api, connection, options.paths);
    const auto wanted = static_cast<std::int64_t>(items.size());
    const std::int64_t filed = surroundings.await(actions.fileAgainstJob(idsOf(items), job));
    // Of fewer nobody knows which.
    if (filed >= wanted)
        SharedActivity::append(ActionLines::filed(items, job, surroundings.date()),
                               surroundings.sharedFolder());
    if (options.json) {
        JSONWriter record;
        record.beginObject().field("filed", filed).field("job", job.id).field("ref", job.ref).endObject();
        surroundings.console.printJSON(record.text());
    } else {
        surroundings.console.print(
            fmt::format("Filed {} under {}", Format::count(filed, "item"), job.line()));
    }
    if (filed >= wanted) return ExitCode::allLanded;
    surroundings.console.say(fmt::format("The vark did not file all {}.", wanted));
    return ExitCode::somethingFailed;
}

}  // namespace

void declareJobs(CLI::App& program, Chosen& chosen) {
    CLI::App& job = addBareCommand(program, "job", "Find jobs in the job book, and file items against them");
    job.require_subcommand(1);

    auto finding = std::make_shared<FindOptions>();
    CLI::App& findCommand = addCommand(job, chosen, "find", "Find jobs in the job book", finding, find);
    findCommand.add_option("QUERY", finding->words, "What to look for; without it, what the vark offers");
    addJSON(findCommand, finding->json);

    auto filing = std::make_shared<FileOptions>();
    CLI::App& fileCommand =
        addCommand(job, chosen, "file", "File items of the vark against a job", filing, file);
    fileCommand.add_option("PATH", filing->paths, "Below the connection's folder")
        ->required()
        ->type_name("REMOTE");
    fileCommand.add_option("--job", filing->ref, "The job's reference, as \"vark job find\" shows it")
        ->required()
        ->type_name("REF");
    addJSON(fileCommand, filing->json);
}

}  // namespace vark::cli
