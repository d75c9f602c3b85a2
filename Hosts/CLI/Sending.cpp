#include "Hosts/CLI/Sending.h"

#include <unistd.h>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/Terminal.h"

namespace vark::cli {

namespace {

/// The connections that the session keeps to one host: a piece that waits for one would seem to stand still.
constexpr int mostChunksAtOnce = 6;

std::unique_ptr<SendDisplay> makeDisplay(Surroundings& surroundings, bool json, bool isLive) {
    if (json) return std::make_unique<JSONDisplay>(surroundings.console, surroundings.date);
    if (isLive) return std::make_unique<LiveDisplay>(surroundings.console, Terminal::size);
    return std::make_unique<PlainDisplay>(surroundings.console);
}

CLI::Validator readableBy(auto parse, const char* advice) {
    return CLI::Validator([parse, advice](std::string& text) { return parse(text) ? "" : text + advice; },
                          "");
}

}  // namespace

void addSendingOptions(CLI::App& command, SendingOptions& options) {
    command
        .add_option(
            "--on-conflict", options.onConflict,
            "When a different file is in the vark: wait for \"vark resolve\", overwrite it, or leave it")
        ->check(CLI::IsMember({"ask", "replace", "skip"}).description(""))
        ->type_name("ask|replace|skip");
    command.add_option("--rate", options.rate, "At most so many bytes a second, like 10MB or 500KB/s")
        ->check(readableBy(parseRate, " is no rate. Give one like 10MB or 500KB/s"))
        ->type_name("RATE");
    command
        .add_flag("--outside-office-hours{09:00-17:30}", options.officeHours,
                  "Wait while the office works: on weekdays from 09:00 to 17:30, or as given")
        ->check(readableBy(parseOfficeHours, " is no working day. Give it like 09:00-17:30"))
        ->type_name("HOURS");
    command.add_option("--chunks", options.chunks, "Pieces on their way at once, of all files together")
        ->check(CLI::Validator(
            [](std::string& text) {
                int number = 0;
                const bool isNumber = CLI::detail::lexical_cast(text, number);
                return isNumber && number >= 1 && number <= mostChunksAtOnce
                           ? ""
                           : fmt::format(
                                 "{} is not to be had: from 1 to {} pieces can be on their way at once", text,
                                 mostChunksAtOnce);
            },
            ""))
        ->type_name("N")
        ->capture_default_str();
    addJSON(command, options.json);
}

SendSession::Settings settingsFrom(const SendingOptions& options) {
    SendSession::Settings settings;
    if (options.onConflict != "ask") settings.replaceConflicts = options.onConflict == "replace";
    if (!options.rate.empty()) settings.bytesPerSecond = *parseRate(options.rate);
    if (!options.officeHours.empty()) settings.officeHours = parseOfficeHours(options.officeHours);
    settings.chunksAtOnce = options.chunks;
    return settings;
}

ExitCode sendHere(Surroundings& surroundings, const SharedConnection& connection,
                  SendSession::Settings settings, bool json) {
    const bool isLive = !json && Terminal::isTerminal(STDOUT_FILENO);
    const bool wantsKeys = isLive && Terminal::isTerminal(STDIN_FILENO);
    std::unique_ptr<SendDisplay> display = makeDisplay(surroundings, json, isLive);
    if (wantsKeys)
        display->say("Keys: p pauses and resumes, r tries again what failed, q quits; the queue stays.");
    SendSession session(surroundings, connection, std::move(settings), *display);
    Terminal terminal(wantsKeys, [&](std::optional<char> key) { session.post(key); });
    surroundings.executor.runUntil([&] { return session.ended().has_value(); });
    return *session.ended();
}

}  // namespace vark::cli
