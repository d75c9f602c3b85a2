#include <unistd.h>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/QueueHolder.h"
#include "Hosts/CLI/QueueOutput.h"
#include "Hosts/CLI/SendSession.h"
#include "Hosts/CLI/Terminal.h"

namespace vark::cli {

namespace {

constexpr const char* explanation =
    "Without a PATH it carries on with the saved queue. While it runs, the key p pauses and resumes, r "
    "tries\n"
    "again what failed, and q quits; the queue stays. While another vark is sending, the paths are handed to "
    "it.";
constexpr int mostChunksAtOnce = 64;

struct SendOptions {
    std::vector<std::string> paths;
    std::optional<std::string> destination;
    std::optional<std::string> title;
    std::string onConflict = "ask";
    std::string rate;
    std::string officeHours;
    int chunks = 4;
    bool json = false;
};

SendSession::Settings settingsFrom(const SendOptions& options, const SharedConnection& connection) {
    SendSession::Settings settings;
    settings.add.command = QueueRequest::Command::add;
    for (const std::string& path : options.paths)
        settings.add.named.push_back(QueueRequest::Named::of(path));
    settings.add.title = options.title;
    if (options.destination)
        settings.add.destination = joinedVarkPath(connection.rootPath, *options.destination);
    if (options.onConflict != "ask") settings.replaceConflicts = options.onConflict == "replace";
    if (!options.rate.empty()) settings.bytesPerSecond = *parseRate(options.rate);
    if (!options.officeHours.empty()) settings.officeHours = parseOfficeHours(options.officeHours);
    settings.chunksAtOnce = options.chunks;
    return settings;
}

std::unique_ptr<SendDisplay> makeDisplay(Surroundings& surroundings, bool json, bool isLive) {
    if (json) return std::make_unique<JSONDisplay>(surroundings.console, surroundings.date);
    if (isLive) return std::make_unique<LiveDisplay>(surroundings.console, Terminal::size);
    return std::make_unique<PlainDisplay>(surroundings.console);
}

ExitCode sendHere(Surroundings& surroundings, const SharedConnection& connection,
                  const SendOptions& options) {
    const bool isLive = !options.json && Terminal::isTerminal(STDOUT_FILENO);
    const bool wantsKeys = isLive && Terminal::isTerminal(STDIN_FILENO);
    std::unique_ptr<SendDisplay> display = makeDisplay(surroundings, options.json, isLive);
    if (wantsKeys)
        display->say("Keys: p pauses and resumes, r tries again what failed, q quits; the queue stays.");
    SendSession session(surroundings, connection, settingsFrom(options, connection), *display);
    Terminal terminal(wantsKeys, [&](std::optional<char> key) { session.post(key); });
    surroundings.executor.runUntil([&] { return session.ended().has_value(); });
    return *session.ended();
}

ExitCode send(Surroundings& surroundings, const SendOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const SendSession::Settings settings = settingsFrom(options, connection);
    if (settings.add.named.empty()) {
        if (QueueLock lock = takeQueue(surroundings)) return sendHere(surroundings, connection, options);
        throw CommandError(ExitCode::somethingFailed,
                           "Another vark is sending the queue already. Watch it with: vark queue --watch");
    }
    const Asked asked = surroundings.await(takeQueueOrAsk(surroundings, settings.add));
    if (asked.lock) return sendHere(surroundings, connection, options);
    if (asked.answer.code == ExitCode::allLanded)
        surroundings.console.say(
            "Another vark is sending, and has taken this on. Watch it with: vark queue --watch");
    return printAnswer(surroundings.console, asked.answer, options.json);
}

CLI::Validator readableBy(auto parse, const char* advice) {
    return CLI::Validator([parse, advice](std::string& text) { return parse(text) ? "" : text + advice; },
                          "");
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
    command
        .add_option(
            "--on-conflict", options->onConflict,
            "When a different file is in the vark: wait for \"vark resolve\", overwrite it, or leave it")
        ->check(CLI::IsMember({"ask", "replace", "skip"}).description(""))
        ->type_name("ask|replace|skip");
    command.add_option("--rate", options->rate, "At most so many bytes a second, like 10MB or 500KB/s")
        ->check(readableBy(parseRate, " is no rate. Give one like 10MB or 500KB/s"))
        ->type_name("RATE");
    command
        .add_flag("--outside-office-hours{09:00-17:30}", options->officeHours,
                  "Wait while the office works: on weekdays from 09:00 to 17:30, or as given")
        ->check(readableBy(parseOfficeHours, " is no working day. Give it like 09:00-17:30"))
        ->type_name("HOURS");
    command.add_option("--chunks", options->chunks, "Pieces on their way at once, of all files together")
        ->check(CLI::Range(1, mostChunksAtOnce).description(""))
        ->type_name("N")
        ->capture_default_str();
    addJSON(command, options->json);
}

}  // namespace vark::cli
