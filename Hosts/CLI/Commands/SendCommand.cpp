#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/QueueOutput.h"
#include "Hosts/CLI/PathOptions.h"
#include "Hosts/CLI/Sending/DryRun.h"
#include "Hosts/CLI/Sending/Sending.h"
#include "Hosts/CLI/Sending/Spool.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkApp/Queue/QueueHolder.h"
#include "VarkCore/Foundation/FileName.h"

namespace vark::cli {

namespace {

constexpr const char* aboutSend =
    "Without a PATH it carries on with the saved queue. While it runs, the key p pauses and resumes, r "
    "tries\n"
    "again what failed, and q quits; the queue stays. While another vark is sending, the paths are handed to "
    "it\n"
    "and followed to their end, or the whole queue without a PATH. A folder that is in the queue already is "
    "looked through again, for what is "
    "new\n"
    "or has changed. Hidden files, links, special files and empty folders are left out and counted; what\n"
    "systems leave in folders (.DS_Store, ._*, Thumbs.db) is not sent either. Exit code 0 means that all "
    "that\n"
    "was named has landed.";

struct SendOptions {
    NamedPaths paths;
    /// Of what comes from standard input.
    std::string name;
    PathFilter filter;
    bool dryRun = false;
    std::optional<std::string> destination;
    std::optional<std::string> title;
    bool hidden = false;
    bool followLinks = false;
    bool handOver = false;
    SendingOptions sending;
};

/// Whether what comes from standard input is to be sent.
bool takesInput(const SendOptions& options) {
    return options.paths.typed == std::vector<std::string>{"-"} && options.paths.listedIn.empty();
}

void refuseWhatMakesNoSense(const SendOptions& options) {
    const auto refuseIf = [](bool isSo, const char* why) {
        if (isSo) throw Failure(Outcome::misuse, why);
    };
    const bool namesInput = std::ranges::find(options.paths.typed, "-") != options.paths.typed.end();
    refuseIf(namesInput && !takesInput(options), "Standard input is sent by itself: vark send - --name NAME");
    refuseIf(namesInput && options.name.empty(), "What comes from standard input needs a name: --name NAME");
    refuseIf(!namesInput && !options.name.empty(),
             "--name is for what comes from standard input: vark send -");
    refuseIf(namesInput && options.dryRun,
             "Standard input cannot be looked at without taking it. Leave out --dry-run.");
    if (!options.name.empty() && faultOf(options.name))
        throw Failure(Outcome::misuse, fmt::format("A file cannot be called \"{}\".", options.name));
    const bool isAboutPaths = options.destination || options.title || options.hidden || options.followLinks ||
                              options.handOver || options.dryRun || !options.filter.isEmpty();
    refuseIf(isAboutPaths && options.paths.isEmpty(),
             "That is about files and folders, and none was named: vark send PATH...");
}

SendRun::Settings settingsFrom(Surroundings& surroundings, const SendOptions& options,
                               const SharedConnection& connection) {
    SendRun::Settings settings = settingsFrom(surroundings, options.sending);
    settings.add.command = QueueRequest::Command::add;
    settings.add.title = options.title;
    settings.add.walk = {options.hidden, options.followLinks, options.filter};
    settings.add.wish.onConflict = settings.onConflict;
    if (options.destination)
        settings.add.destination = joinedVarkPath(connection.rootPath, *options.destination);
    if (takesInput(options)) return settings;
    for (const std::string& path : options.paths.all())
        settings.add.named.push_back(QueueRequest::Named::of(path));
    return settings;
}

/// What stands in the queue of whoever has it, as if it had been handed over just now.
QueueAnswer wholeQueue(const QueueAnswer& shown) {
    QueueAnswer taken = shown;
    if (!shown.queue) return taken;
    for (const EntryView& entry : shown.queue->entries)
        taken.entries.push_back(entry.id);
    return taken;
}

ExitCode sayHandedOver(CommandSurroundings& surroundings, const QueueAnswer& answer, bool json) {
    const ExitCode code = printAnswer(surroundings.console, answer, json);
    if (code != ExitCode::allLanded) return code;
    surroundings.console.say("Handed over, not landed yet. Watch it with: vark queue --watch");
    return ExitCode::handedOver;
}

ExitCode sendOrHandOver(CommandSurroundings& surroundings, const SharedConnection& connection,
                        const SendRun::Settings& settings, const SendOptions& options) {
    const bool json = options.sending.json;
    if (QueueLock lock = takeQueue(surroundings))
        return sendHere(surroundings, connection, std::move(lock), settings, json);
    refuseWhatCannotBeHandedOver(options.sending);
    const bool isWholeQueue = settings.add.named.empty();
    Asked asked =
        surroundings.await(takeQueueOrAsk(surroundings, isWholeQueue ? QueueRequest{} : settings.add));
    if (asked.lock) return sendHere(surroundings, connection, std::move(asked.lock), settings, json);
    if (isWholeQueue && settings.onConflict) {
        QueueRequest decision;
        decision.command = QueueRequest::Command::resolve;
        decision.rule = *settings.onConflict;
        surroundings.await(changeQueue(surroundings, std::move(decision)));
    }
    if (isWholeQueue) asked.answer = wholeQueue(asked.answer);
    if (isWholeQueue && asked.answer.entries.empty() && asked.answer.outcome == Outcome::done) {
        surroundings.console.say("There is no saved queue. Send something with: vark send PATH...");
        return ExitCode::allLanded;
    }
    if (asked.answer.entries.empty()) return printAnswer(surroundings.console, asked.answer, json);
    if (options.handOver) return sayHandedOver(surroundings, asked.answer, json);
    return sendThere(surroundings, connection, settings, std::move(asked.answer), json);
}

/// What comes from standard input is kept on this machine until the vark has it.
ExitCode sendInput(CommandSurroundings& surroundings, const SharedConnection& connection,
                   SendRun::Settings settings, const SendOptions& options) {
    const Spool spool(surroundings.locations().spool());
    const std::string folder = settings.add.destination.value_or(connection.rootPath);
    const std::filesystem::path kept =
        spool.take(STDIN_FILENO, options.name, joinedVarkPath(folder, options.name));
    settings.add.named.push_back({options.name, kept.string()});
    const ExitCode code = sendOrHandOver(surroundings, connection, settings, options);
    surroundings.await(spool.sweep(surroundings.api(connection)));
    if (std::filesystem::exists(kept))
        surroundings.console.say(fmt::format("What came from standard input is kept in {}", kept.string()));
    return code;
}

ExitCode send(CommandSurroundings& surroundings, const SendOptions& options) {
    refuseWhatMakesNoSense(options);
    const SharedConnection connection = surroundings.neededConnection();
    SendRun::Settings settings = settingsFrom(surroundings, options, connection);
    if (options.dryRun) return dryRun(surroundings, settings.add, options.sending.json);
    if (takesInput(options)) return sendInput(surroundings, connection, std::move(settings), options);
    const Spool spool(surroundings.locations().spool());
    if (!spool.isEmpty()) surroundings.await(spool.sweep(surroundings.api(connection)));
    return sendOrHandOver(surroundings, connection, settings, options);
}

}  // namespace

void declareSend(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<SendOptions>();
    CLI::App& command = addCommand(program, chosen, "send", "Send files and folders", options, send);
    command.footer(aboutSend);
    command
        .add_option("PATH", options->paths.typed,
                    "Files and folders to add to the queue; - for what comes from standard input")
        ->type_name("FILE");
    command.add_option("--name", options->name, "What a file is called that comes from standard input")
        ->type_name("NAME");
    command.add_option("--to", options->destination, "The folder of the vark that they go to")
        ->type_name("FOLDER")
        ->check(isVarkFolder());
    command.add_option("--title", options->title, "A name for the whole")->type_name("TITLE");
    command.add_flag("--hidden", options->hidden, "Send hidden files and folders too");
    command.add_flag("--follow-links", options->followLinks, "Send what links lead to in their place");
    addFilter(command, options->filter);
    addFilesFrom(command, options->paths);
    command.add_flag("-n,--dry-run", options->dryRun, "Tell what would be sent, and send nothing");
    command.add_flag("--hand-over", options->handOver,
                     "While another vark is sending, leave the paths to it and end at once with exit code 5");
    addSendingOptions(command, options->sending);
}

}  // namespace vark::cli
