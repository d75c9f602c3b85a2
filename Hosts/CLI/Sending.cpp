#include "Hosts/CLI/Sending.h"

#include <unistd.h>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/Terminal.h"

namespace vark::cli {

namespace {

constexpr int mostChunksAtOnce = 64;

std::unique_ptr<SendDisplay> makeDisplay(Surroundings& surroundings, bool json, bool isLive) {
    if (json) return std::make_unique<JSONDisplay>(surroundings.console, surroundings.date);
    if (isLive) return std::make_unique<LiveDisplay>(surroundings.console, Terminal::size);
    return std::make_unique<PlainDisplay>(surroundings.console);
}

template <class Parsed>
CLI::Validator readableBy(Parsed (*parse)(std::string_view)) {
    return CLI::Validator(
        [parse](std::string& text) {
            const Parsed parsed = parse(text);
            return parsed ? std::string() : parsed.error();
        },
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
    command
        .add_option("--rate", options.rate,
                    "At most so much a second: 10MB, 500KB/s, 3MiB; 10M is 10MB, and a number alone is bytes")
        ->check(readableBy(parseRate))
        ->type_name("RATE");
    command
        .add_flag(
            "--outside-office-hours{09:00-17:30}", options.officeHours,
            "Wait while the office works: on weekdays from 09:00 to 17:30, or as given; 22:00-06:00 goes "
            "past midnight")
        ->check(readableBy(parseWorkingHours))
        ->type_name("HOURS");
    command.add_option("--chunks", options.chunks, "Pieces on their way at once, of all files together")
        ->check(wholeNumber(1, mostChunksAtOnce))
        ->type_name("N")
        ->capture_default_str();
    addJSON(command, options.json);
}

SendSession::Settings settingsFrom(const SendingOptions& options) {
    SendSession::Settings settings;
    if (options.onConflict != "ask") settings.replaceConflicts = options.onConflict == "replace";
    if (!options.rate.empty()) settings.bytesPerSecond = *parseRate(options.rate);
    if (!options.officeHours.empty()) settings.workingHours = *parseWorkingHours(options.officeHours);
    settings.chunksAtOnce = options.chunks;
    return settings;
}

ExitCode sendHere(Surroundings& surroundings, const SharedConnection& connection,
                  SendSession::Settings settings, bool json) {
    const bool isLive = !json && Terminal::canDraw();
    const bool wantsKeys = !json && Terminal::isTerminal(STDOUT_FILENO) && Terminal::isTerminal(STDIN_FILENO);
    std::unique_ptr<SendDisplay> display = makeDisplay(surroundings, json, isLive);
    if (wantsKeys)
        display->say("Keys: p pauses and resumes, r tries again what failed, q quits; the queue stays.");
    SendSession session(surroundings, connection, std::move(settings), *display);
    Terminal terminal(wantsKeys, [&](std::optional<char> key) { session.post(key); });
    surroundings.executor.runUntil([&] { return session.ended().has_value(); });
    return *session.ended();
}

}  // namespace vark::cli
