#include "Hosts/CLI/Commands/Commands.h"

#include <fmt/format.h>

#include <sstream>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Documentation/CommandHelp.h"
#include "Hosts/CLI/NextWords.h"
#include "VarkCore/Errors/VarkAPIError.h"

namespace vark::cli {

namespace {

constexpr const char* exitCodes =
    "Exit codes: 0 all landed, 1 something failed, was left behind or changed under way, 2 wrong usage,\n"
    "3 not connected or signed out, 4 a decision is waiting, 5 handed over to another vark and not "
    "followed,\n"
    "130 interrupted (the queue is saved; \"vark send\" carries on), 141 whoever read the output went away.";

/// What to try when nothing was heard of the vark.
void sayWhereItIs(CommandSurroundings& surroundings) {
    const std::optional<SharedConnection> connection = surroundings.connection();
    if (!connection) return;
    surroundings.console.say(fmt::format(
        "It is at {}. Look whether this machine is online and whether that address opens in a browser, then "
        "try again.",
        connection->server));
}

/// What the person chose, with failures told in words.
ExitCode carryOut(const Chosen& chosen, CommandSurroundings& surroundings) {
    try {
        return chosen(surroundings);
    } catch (const Failure& failure) {
        surroundings.console.say(inWords(failure.said()));
        return exitCodeOf(failure.outcome());
    } catch (const VarkAPIError& error) {
        surroundings.console.say(error.errorDescription());
        if (std::holds_alternative<VarkAPIError::Transport>(error.which())) sayWhereItIs(surroundings);
        if (!error.isSignOut()) return ExitCode::somethingFailed;
        surroundings.console.say("Connect again with: vark connect URL");
        return ExitCode::notConnected;
    } catch (const std::exception& error) {
        surroundings.console.say(error.what());
        return ExitCode::somethingFailed;
    }
}

}  // namespace

CLI::App& addBareCommand(CLI::App& program, const std::string& name, const std::string& help) {
    return *program.add_subcommand(name, help)->group("Commands");
}

void addJSON(CLI::App& command, bool& json) {
    command.add_flag("--json", json, "Print one JSON object a line, for programs");
}

CLI::Validator wholeNumber(std::int64_t least, std::int64_t most) {
    return CLI::Validator(
        [least, most](std::string& text) {
            const Parsed<std::int64_t> number = parseWholeNumber(text, least, most);
            return number ? std::string() : number.error();
        },
        "");
}

void declareProgram(CLI::App& program, Chosen& chosen) {
    program.name("vark");
    program.description("Sends files to the vark through a queue that survives a restart.");
    program.set_version_flag("-V,--version", "vark " VARK_VERSION, "Print the version");
    program.set_help_flag("-h,--help", "Print this help");
    program.require_subcommand(1);
    program.get_formatter()->label("SUBCOMMAND", "COMMAND");
    program.get_formatter()->column_width(34);
    declareConnect(program, chosen);
    declareConnectionCommands(program, chosen);
    declareListing(program, chosen);
    declareGet(program, chosen);
    declareSend(program, chosen);
    declareIngest(program, chosen);
    declareVolumes(program, chosen);
    declareQueueCommands(program, chosen);
    declareShare(program, chosen);
    declareJobs(program, chosen);
    declareLog(program, chosen);
    declareDiagnostics(program, chosen);
    declareCache(program, chosen);
    declareActivity(program, chosen);
    declareSync(program, chosen);
    declareNodes(program, chosen);
    declareHelp(program, chosen);
    declareDocumentation(program, chosen);
    // Last, since commands take over what the program has when they are added.
    program.footer(exitCodes);
}

namespace {

ExitCode runOn(int count, const char* const* arguments, Platform& platform, Console& console) {
    Chosen chosen;
    CLI::App program;
    declareProgram(program, chosen);
    try {
        program.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            const CommandsNamed named =
                commandsNamed(program, std::vector<std::string>(arguments + 1, arguments + count));
            if (named.isUnknown) return refuseUnknown(console, named);
            if (named.lacksOne && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
                console.sayText(helpOn(named.words));
                return ExitCode::usage;
            }
        }
        std::ostringstream results;
        std::ostringstream advice;
        const int code = program.exit(error, results, advice);
        console.printText(results.str());
        console.sayText(advice.str());
        return code == 0 ? ExitCode::allLanded : ExitCode::usage;
    }
    SerialExecutor executor;
    SystemClock clock;
    CommandSurroundings surroundings(platform, console, executor, clock);
    return carryOut(chosen, surroundings);
}

}  // namespace

ExitCode runCommandLine(int count, const char* const* arguments, Platform& platform, Console& console) {
    return console.codeOfRun(runOn(count, arguments, platform, console));
}

}  // namespace vark::cli
