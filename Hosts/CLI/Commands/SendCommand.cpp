#include <fmt/ranges.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/QueueOutput.h"
#include "Hosts/CLI/Sending/Sending.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkApp/Queue/QueueHolder.h"

namespace vark::cli {

namespace {

constexpr const char* explanation =
    "Without a PATH it carries on with the saved queue. While it runs, the key p pauses and resumes, r "
    "tries\n"
    "again what failed, and q quits; the queue stays. While another vark is sending, the paths are handed to "
    "it\n"
    "and followed to their end. A folder that is in the queue already is looked through again, for what is "
    "new\n"
    "or has changed. Hidden files, links, special files and empty folders are left out and counted; what\n"
    "systems leave in folders (.DS_Store, ._*, Thumbs.db) is not sent either. Exit code 0 means that all "
    "that\n"
    "was named has landed.";

struct SendOptions {
    std::vector<std::string> paths;
    std::optional<std::string> destination;
    std::optional<std::string> title;
    bool hidden = false;
    bool followLinks = false;
    bool handOver = false;
    SendingOptions sending;
};

SendSession::Settings settingsFrom(const SendOptions& options, const SharedConnection& connection) {
    SendSession::Settings settings = settingsFrom(options.sending);
    settings.add.command = QueueRequest::Command::add;
    for (const std::string& path : options.paths)
        settings.add.named.push_back(QueueRequest::Named::of(path));
    settings.add.title = options.title;
    settings.add.walk = {options.hidden, options.followLinks};
    if (options.destination)
        settings.add.destination = joinedVarkPath(connection.rootPath, *options.destination);
    return settings;
}

/// What a run that another one sends for cannot do in its place.
void refuseWhatCannotBeHandedOver(const SendOptions& options) {
    const SendingOptions& sending = options.sending;
    std::vector<std::string_view> refused;
    if (!sending.rate.empty()) refused.emplace_back("--rate");
    if (!sending.officeHours.empty()) refused.emplace_back("--outside-office-hours");
    if (sending.chunks) refused.emplace_back("--chunks");
    if (options.handOver && sending.onConflict != "ask") refused.emplace_back("--on-conflict");
    if (refused.empty()) return;
    throw Failure(
        Outcome::misuse,
        fmt::format("Another vark is sending, and would take this on, but not {}. Leave that out, or wait "
                    "until it has finished. Nothing was added.",
                    fmt::join(refused, " and ")));
}

ExitCode send(CommandSurroundings& surroundings, const SendOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const SendSession::Settings settings = settingsFrom(options, connection);
    const bool json = options.sending.json;
    if (QueueLock lock = takeQueue(surroundings)) return sendHere(surroundings, connection, settings, json);
    if (settings.add.named.empty())
        throw Failure(Outcome::failed,
                      "Another vark is sending the queue already. Watch it with: vark queue --watch");
    refuseWhatCannotBeHandedOver(options);
    const Asked asked = surroundings.await(takeQueueOrAsk(surroundings, settings.add));
    if (asked.lock) return sendHere(surroundings, connection, settings, json);
    if (asked.answer.entries.empty()) return printAnswer(surroundings.console, asked.answer, json);
    if (!options.handOver) return sendThere(surroundings, connection, settings, asked.answer, json);
    const ExitCode code = printAnswer(surroundings.console, asked.answer, json);
    if (code != ExitCode::allLanded) return code;
    surroundings.console.say(
        "Another vark is sending, and has taken this on. Watch it with: vark queue --watch");
    return ExitCode::handedOver;
}

}  // namespace

void declareSend(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<SendOptions>();
    CLI::App& command = addCommand(program, chosen, "send", "Send files and folders", options, send);
    command.footer(explanation);
    CLI::Option* paths = command.add_option("PATH", options->paths, "Files and folders to add to the queue")
                             ->type_name("FILE");
    command.add_option("--to", options->destination, "The folder of the vark that they go to")
        ->type_name("FOLDER")
        ->check(isVarkFolder())
        ->needs(paths);
    command.add_option("--title", options->title, "A name for the whole")->type_name("TITLE")->needs(paths);
    command.add_flag("--hidden", options->hidden, "Send hidden files and folders too")->needs(paths);
    command.add_flag("--follow-links", options->followLinks, "Send what links lead to in their place")
        ->needs(paths);
    command
        .add_flag("--hand-over", options->handOver,
                  "While another vark is sending, leave the paths to it and end at once with exit code 5")
        ->needs(paths);
    addSendingOptions(command, options->sending);
}

}  // namespace vark::cli
