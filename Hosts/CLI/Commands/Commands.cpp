#include "Hosts/CLI/Commands/Commands.h"

#include <fmt/format.h>

#include <sstream>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Documentation/CommandHelp.h"
#include "Hosts/CLI/ErrorCodes.h"
#include "Hosts/CLI/NextWords.h"
#include "VarkApp/Connect/GivenConnection.h"
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

/// Tells of failures in words, and programs in a record too.
class FailureOutput {
  public:
    FailureOutput(Console& console, bool json) : console_(console), json_(json) {}

    ExitCode tell(std::string_view code, const std::string& sentence, ExitCode exitCode) {
        console_.say(sentence);
        if (!json_) return exitCode;
        JSONWriter record;
        record.beginObject().field("event", "error").field("code", code).field("error", sentence);
        console_.printJSON(record.field("exitCode", static_cast<int>(exitCode)).endObject().text());
        return exitCode;
    }

  private:
    Console& console_;
    const bool json_;
};

/// What the person chose, with failures told.
ExitCode carryOut(const Chosen& chosen, CommandSurroundings& surroundings, bool json) {
    FailureOutput output(surroundings.console, json);
    try {
        if (std::optional<GivenConnection> given = GivenConnection::fromEnvironment())
            surroundings.give(*std::move(given));
        return chosen(surroundings);
    } catch (const Failure& failure) {
        return output.tell(nameOf(failure.outcome()), inWords(failure.said()), exitCodeOf(failure.outcome()));
    } catch (const VarkAPIError& error) {
        const ExitCode code =
            output.tell(codeOf(error), error.errorDescription(),
                        error.isSignOut() ? ExitCode::notConnected : ExitCode::somethingFailed);
        if (std::holds_alternative<VarkAPIError::Transport>(error.which())) sayWhereItIs(surroundings);
        if (error.isSignOut()) surroundings.console.say("Connect again with: vark connect URL");
        return code;
    } catch (const std::exception& error) {
        return output.tell(nameOf(Outcome::failed), error.what(), ExitCode::somethingFailed);
    }
}

/// Whether the command that was chosen prints for programs.
bool printsJSON(const CLI::App& program) {
    for (const CLI::App* command : program.get_subcommands()) {
        const CLI::Option* json = command->get_option_no_throw("--json");
        if ((json != nullptr && json->count() > 0) || printsJSON(*command)) return true;
    }
    return false;
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
    declareCat(program, chosen);
    declareCheck(program, chosen);
    declareFolderCommands(program, chosen);
    declareTag(program, chosen);
    declareSend(program, chosen);
    declareIngest(program, chosen);
    declareRun(program, chosen);
    declareVolumes(program, chosen);
    declareQueueCommands(program, chosen);
    declareShare(program, chosen);
    declareJobs(program, chosen);
    declareLog(program, chosen);
    declareConfig(program, chosen);
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
    return carryOut(chosen, surroundings, printsJSON(program));
}

}  // namespace

ExitCode runCommandLine(int count, const char* const* arguments, Platform& platform, Console& console) {
    return console.codeOfRun(runOn(count, arguments, platform, console));
}

}  // namespace vark::cli
