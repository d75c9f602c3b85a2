#include "Hosts/CLI/Sending/Sending.h"

#include <unistd.h>

#include <fmt/ranges.h>

#include <charconv>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/Terminal.h"
#include "Hosts/CLI/NextWords.h"
#include "Hosts/CLI/Sending/Following.h"
#include "VarkApp/Settings.h"
#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr int mostChunksAtOnce = 6;
constexpr std::int64_t longestTimeout = 365 * 24 * 3600;

std::unique_ptr<SendDisplay> makeDisplay(CommandSurroundings& surroundings, bool json, Loudness loudness) {
    if (json) return std::make_unique<JSONDisplay>(surroundings.console, surroundings.date);
    if (loudness != Loudness::quiet && Terminal::canDraw())
        return std::make_unique<LiveDisplay>(surroundings.console, Terminal::size, loudness);
    return std::make_unique<PlainDisplay>(surroundings.console, loudness);
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

/// What is told of a name that no folder of the vark can have; nothing when it can.
std::optional<std::string> whyNoName(std::string_view name) {
    if (name == "." || name == "..") return fmt::format("a folder cannot be called \"{}\"", name);
    if (name.size() > 255) return "a name is longer than 255 bytes";
    if (!isUTF8(name)) return "a name is not UTF-8 text";
    const bool isPlain = std::ranges::none_of(
        name, [](char letter) { return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7f; });
    if (!isPlain) return "a name holds a control character";
    return std::nullopt;
}

Task<ExitCode> followOrSay(CommandSurroundings& surroundings, SendDisplay& display, Followed followed,
                           std::optional<Duration> timeout, QueueLock& lock) {
    try {
        const Duration limit = timeout.value_or(std::chrono::hours(24 * 365));
        const std::optional<ExitCode> code =
            co_await withTimeout(limit, follow(surroundings, display, std::move(followed), lock));
        co_return code.value_or(ExitCode::allLanded);
    } catch (const TimeoutError&) {
        display.breakOff(
            fmt::format("Not all has landed within {}, so this run ends. The other vark goes on; watch it "
                        "with: vark queue --watch",
                        asGiven(*timeout)));
    }
    co_return ExitCode::somethingFailed;
}

}  // namespace

CLI::Validator isVarkFolder() {
    return CLI::Validator(
        [](std::string& folder) {
            for (std::string_view rest = folder; !rest.empty();) {
                const std::size_t end = std::min(rest.find('/'), rest.size());
                if (std::optional<std::string> why = whyNoName(rest.substr(0, end)))
                    return fmt::format("{} is no folder of the vark: {}. Name it like Jobs/2026",
                                       escapedForTerminal(folder), *why);
                rest.remove_prefix(std::min(end + 1, rest.size()));
            }
            return std::string();
        },
        "");
}

Parsed<Duration> parseTimeout(std::string_view given) {
    const std::unexpected noTime(
        fmt::format("{} is no time. Give one like 90s, 15m or 2h", escapedForTerminal(std::string(given))));
    std::string_view unit = given;
    std::int64_t number = 0;
    const auto [end, failure] = std::from_chars(given.data(), given.data() + given.size(), number);
    if (failure != std::errc() || number < 1) return noTime;
    unit.remove_prefix(static_cast<std::size_t>(end - given.data()));
    const std::int64_t seconds = unit.empty() || unit == "s" ? 1 : unit == "m" ? 60 : unit == "h" ? 3600 : 0;
    if (seconds == 0 || number > longestTimeout / seconds) return noTime;
    return std::chrono::seconds(number * seconds);
}

void addSendingOptions(CLI::App& command, SendingOptions& options) {
    command
        .add_option("--on-conflict", options.onConflict,
                    "When a different file is in the vark: wait for \"vark resolve\", overwrite it, leave "
                    "it, let the "
                    "later one win, or put yours beside it; without it as \"vark config\" says")
        ->check(CLI::IsMember(std::vector<std::string>{Settings::onConflictNames.begin(),
                                                       Settings::onConflictNames.end()})
                    .description(""))
        ->type_name("ask|replace|skip|newer|keep-both");
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
    command
        .add_option(
            "--chunks", options.chunks,
            "Pieces on their way at once, of all files together, at most 6; without it as many as the "
            "line makes use of")
        ->check(wholeNumber(1, mostChunksAtOnce))
        ->type_name("N");
    command
        .add_option(
            "--timeout", options.timeout,
            "End with exit code 1 when not all has landed by then, like 90s, 15m or 2h; the queue stays")
        ->check(readableBy(parseTimeout))
        ->type_name("TIME");
    CLI::Option* quiet = command.add_flag("-q,--quiet", options.quiet,
                                          "Tell of nothing but what fails or waits for a decision");
    command.add_flag("-v,--verbose", options.verbose, "Tell of each file, on a terminal too")
        ->excludes(quiet);
    addJSON(command, options.json);
}

Pace usualPace(Surroundings& surroundings) {
    const Settings kept = SettingsFile(surroundings.locations()).read();
    Pace pace;
    pace.bytesPerSecond = kept.bytesPerSecond;
    if (kept.officeHours) {
        if (const Parsed<WorkingHours> hours = parseWorkingHours(*kept.officeHours)) pace.hours = *hours;
    }
    return pace;
}

SendRun::Settings settingsFrom(Surroundings& surroundings, const SendingOptions& options) {
    SendRun::Settings settings;
    settings.pace = usualPace(surroundings);
    const Settings::OnConflict usual = SettingsFile(surroundings.locations()).read().onConflict;
    settings.onConflict = conflictRuleNamed(
        options.onConflict.empty() ? Settings::onConflictNames.at(static_cast<std::size_t>(usual))
                                   : options.onConflict);
    if (!options.rate.empty()) settings.pace.bytesPerSecond = *parseRate(options.rate);
    if (!options.officeHours.empty()) settings.pace.hours = *parseWorkingHours(options.officeHours);
    settings.pace.chunksAtOnce = options.chunks;
    if (!options.timeout.empty()) settings.timeout = *parseTimeout(options.timeout);
    settings.somebodyIsThere = Terminal::isTerminal(STDIN_FILENO);
    if (options.quiet) settings.loudness = Loudness::quiet;
    if (options.verbose) settings.loudness = Loudness::verbose;
    return settings;
}

void refuseWhatCannotBeHandedOver(const SendingOptions& options) {
    std::vector<std::string_view> refused;
    if (!options.rate.empty()) refused.emplace_back("--rate");
    if (!options.officeHours.empty()) refused.emplace_back("--outside-office-hours");
    if (options.chunks) refused.emplace_back("--chunks");
    if (refused.empty()) return;
    throw Failure(Outcome::misuse,
                  fmt::format("Vark is running and sends at its own pace. Leave out {}, or set it there.",
                              fmt::join(refused, " and ")));
}

ExitCode sendHere(CommandSurroundings& surroundings, const SharedConnection& connection, QueueLock lock,
                  SendRun::Settings settings, bool json) {
    const bool wantsKeys = !json && Terminal::isTerminal(STDOUT_FILENO) && Terminal::isTerminal(STDIN_FILENO);
    std::unique_ptr<SendDisplay> display = makeDisplay(surroundings, json, settings.loudness);
    if (wantsKeys && settings.loudness != Loudness::quiet)
        display->say("Keys: p pauses and resumes, r tries again what failed, q quits; the queue stays.");
    SendRun run(surroundings, connection, std::move(lock), std::move(settings), *display);
    Terminal terminal(wantsKeys, [&](std::optional<char> key) { run.post(key); });
    surroundings.executor.runUntil([&] { return run.ended().has_value(); });
    return *run.ended();
}

ExitCode sendThere(CommandSurroundings& surroundings, const SharedConnection& connection,
                   SendRun::Settings settings, QueueAnswer taken, bool json) {
    QueueLock lock;
    {
        const std::unique_ptr<SendDisplay> display = makeDisplay(surroundings, json, settings.loudness);
        for (const Said& problem : taken.problems)
            display->say(inWords(problem));
        display->say("Another vark is sending, and has taken this on. It is followed to its end here.");
        const bool addsSomething = !settings.add.named.empty() || settings.ingest;
        const Followed followed{std::move(taken), addsSomething ? settings.onConflict : std::nullopt,
                                settings.ingest.has_value(), settings.somebodyIsThere};
        bool isInterrupted = false;
        TaskScope scope(surroundings.executor, surroundings.clock);
        Terminal terminal(false, [&](std::optional<char>) {
            scope.start([](bool& interrupted) -> Task<void> {
                interrupted = true;
                co_return;
            }(isInterrupted));
        });
        const TaskHandle<ExitCode> following =
            scope.start(followOrSay(surroundings, *display, followed, settings.timeout, lock));
        surroundings.executor.runUntil([&] { return isInterrupted || following.done(); });
        if (isInterrupted && !following.done()) {
            display->breakOff("Vark goes on sending. Watch it with: vark queue --watch");
            return ExitCode::interrupted;
        }
        const ExitCode code = following.result();
        if (!lock) return code;
        if (std::optional<ExitCode> end = endOf(followed, savedQueue(surroundings), *display)) return *end;
        display->say("The vark that had taken this on has ended. Carrying on here.");
    }
    return sendHere(surroundings, connection, std::move(lock), std::move(settings), json);
}

}  // namespace vark::cli
