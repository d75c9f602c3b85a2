#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace vark::cli {

/// One option or argument of a command, as documents need it.
struct OptionWords {
    /// "-l", "--long"; none for an argument.
    std::vector<std::string> names;
    /// What stands for the value: "FILE", "ask|replace|skip"; empty for a flag.
    std::string value;
    /// What kind of value it is: "FILE" on this machine, "ENTRY" of the queue, any other.
    std::string kind;
    std::string help;
    /// Whether the value may be left out, or stands behind "=" only.
    bool valueIsOptional = false;
    bool isRequired = false;
    bool isRepeated = false;

    /// "--rate RATE"
    std::string text() const;
    /// What the value is to be one of; empty when it is free.
    std::vector<std::string> choices() const;
};

/// One command of the program, read from the program itself, so that documents cannot differ from it.
struct CommandWords {
    /// "send", "job find"
    std::string name;
    std::string help;
    std::string footer;
    std::vector<OptionWords> options;
    std::vector<OptionWords> arguments;

    static CommandWords of(const CLI::App& command);
    /// "vark send [OPTIONS] [PATH...]"
    std::string usage() const;
};

/// All commands that are shown to people, in their order. A command that only has others below it stands for
/// those, under names of two words.
std::vector<CommandWords> commandsOf(const CLI::App& program);

}  // namespace vark::cli
