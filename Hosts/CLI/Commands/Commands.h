#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "Hosts/CLI/CommandSurroundings.h"
#include "Hosts/CLI/ExitCode.h"

namespace vark::cli {

/// What the person chose, to be run once the whole command line has been read.
using Chosen = std::function<ExitCode(CommandSurroundings&)>;

// Each adds its commands with their options and help to the program, and sets `chosen` when one of them
// stands on the command line. `chosen` outlives `program`.
void declareConnect(CLI::App& program, Chosen& chosen);
void declareConnectionCommands(CLI::App& program, Chosen& chosen);
void declareCat(CLI::App& program, Chosen& chosen);
void declareCheck(CLI::App& program, Chosen& chosen);
void declareConfig(CLI::App& program, Chosen& chosen);
void declareFolderCommands(CLI::App& program, Chosen& chosen);
void declareTag(CLI::App& program, Chosen& chosen);
void declareListing(CLI::App& program, Chosen& chosen);
void declareGet(CLI::App& program, Chosen& chosen);
void declareNodes(CLI::App& program, Chosen& chosen);
void declareShare(CLI::App& program, Chosen& chosen);
void declareJobs(CLI::App& program, Chosen& chosen);
void declareSend(CLI::App& program, Chosen& chosen);
void declareIngest(CLI::App& program, Chosen& chosen);
void declareRun(CLI::App& program, Chosen& chosen);
void declareVolumes(CLI::App& program, Chosen& chosen);
void declareQueueCommands(CLI::App& program, Chosen& chosen);
void declareCache(CLI::App& program, Chosen& chosen);
void declareDiagnostics(CLI::App& program, Chosen& chosen);
void declareLog(CLI::App& program, Chosen& chosen);
void declareActivity(CLI::App& program, Chosen& chosen);
void declareSync(CLI::App& program, Chosen& chosen);
void declareHelp(CLI::App& program, Chosen& chosen);
void declareDocumentation(CLI::App& program, Chosen& chosen);

/// A command of a program, or of another command. Not in the header, since whoever makes one takes all of the
/// parser's inline code into its object file.
CLI::App& addBareCommand(CLI::App& program, const std::string& name, const std::string& help);

/// Adds a command whose options are gathered in an object of their own, and run by `run`.
template <class Options>
CLI::App& addCommand(CLI::App& program, Chosen& chosen, const std::string& name, const std::string& help,
                     const std::shared_ptr<Options>& options,
                     ExitCode (*run)(CommandSurroundings&, const Options&)) {
    CLI::App& command = addBareCommand(program, name, help);
    command.callback([&chosen, options, run] {
        chosen = [options, run](CommandSurroundings& surroundings) { return run(surroundings, *options); };
    });
    return command;
}

/// The option of all commands that print.
void addJSON(CLI::App& command, bool& json);

/// For options whose values are whole numbers of that range.
CLI::Validator wholeNumber(std::int64_t least, std::int64_t most);

/// The whole program with all its commands.
void declareProgram(CLI::App& program, Chosen& chosen);

/// Reads the command line and does what it says.
ExitCode runCommandLine(int count, const char* const* arguments, Platform& platform, Console& console);

}  // namespace vark::cli
