#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Hosts/CLI/Display/Console.h"

namespace vark::cli {

/// The commands that words name, "job", "find", and how far that leads.
struct CommandsNamed {
    std::vector<std::string> words;
    /// The last word is no command of those before it.
    bool isUnknown = false;
    /// One more is needed: what is named only has others below it.
    bool lacksOne = false;
    /// The names that could stand in the place of the last word, or behind it when one is lacking.
    std::vector<std::string> known;
};

/// Goes by the words among the arguments that are no options, as far as commands are wanted there.
CommandsNamed commandsNamed(const CLI::App& program, const std::vector<std::string>& arguments);

/// Says that there is no such command, and which was probably meant.
ExitCode refuseUnknown(Console& console, const CommandsNamed& named);

/// The help of a command, or of the program without words. All of them are commands.
std::string helpOn(const std::vector<std::string>& words);

}  // namespace vark::cli
