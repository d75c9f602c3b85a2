#pragma once

#include <string>
#include <vector>

#include "Hosts/CLI/Documentation/CommandTree.h"

namespace vark::cli {

// Documents made of the program's own commands. Pure functions.

struct Document {
    /// Below the folder of all documents: "man/vark-send.1".
    std::string path;
    std::string content;
};

struct Example {
    std::string what;
    /// What is typed; may be several lines.
    std::string line;
};
/// Nothing for a command that needs none.
std::vector<Example> examplesOf(const std::string& command);

/// vark(1), and a page for each command.
std::vector<Document> manPages(const CommandWords& program, const std::vector<CommandWords>& commands);
/// For bash, zsh and fish, under the names that these look for.
std::vector<Document> shellCompletions(const std::vector<CommandWords>& commands);

}  // namespace vark::cli
