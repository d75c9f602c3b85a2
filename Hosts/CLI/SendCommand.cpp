#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/QueueHolder.h"
#include "Hosts/CLI/QueueOutput.h"
#include "Hosts/CLI/Sending.h"

namespace vark::cli {

namespace {

constexpr const char* explanation =
    "Without a PATH it carries on with the saved queue. While it runs, the key p pauses and resumes, r "
    "tries\n"
    "again what failed, and q quits; the queue stays. While another vark is sending, the paths are handed to "
    "it.";

struct SendOptions {
    std::vector<std::string> paths;
    std::optional<std::string> destination;
    std::optional<std::string> title;
    SendingOptions sending;
};

SendSession::Settings settingsFrom(const SendOptions& options, const SharedConnection& connection) {
    SendSession::Settings settings = settingsFrom(options.sending);
    settings.add.command = QueueRequest::Command::add;
    for (const std::string& path : options.paths)
        settings.add.named.push_back(QueueRequest::Named::of(path));
    settings.add.title = options.title;
    if (options.destination)
        settings.add.destination = joinedVarkPath(connection.rootPath, *options.destination);
    return settings;
}

ExitCode send(Surroundings& surroundings, const SendOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const SendSession::Settings settings = settingsFrom(options, connection);
    if (settings.add.named.empty()) {
        if (QueueLock lock = takeQueue(surroundings))
            return sendHere(surroundings, connection, settings, options.sending.json);
        throw CommandError(ExitCode::somethingFailed,
                           "Another vark is sending the queue already. Watch it with: vark queue --watch");
    }
    const Asked asked = surroundings.await(takeQueueOrAsk(surroundings, settings.add));
    if (asked.lock) return sendHere(surroundings, connection, settings, options.sending.json);
    if (asked.answer.code == ExitCode::allLanded)
        surroundings.console.say(
            "Another vark is sending, and has taken this on. Watch it with: vark queue --watch");
    return printAnswer(surroundings.console, asked.answer, options.sending.json);
}

}  // namespace

void declareSend(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<SendOptions>();
    CLI::App& command = addCommand(program, chosen, "send", "Send files and folders", options, send);
    command.footer(explanation);
    command.add_option("PATH", options->paths, "Files and folders to add to the queue")->type_name("FILE");
    command.add_option("--to", options->destination, "The folder of the vark that they go to")
        ->type_name("FOLDER");
    command.add_option("--title", options->title, "A name for the whole")->type_name("TITLE");
    addSendingOptions(command, options->sending);
}

}  // namespace vark::cli
