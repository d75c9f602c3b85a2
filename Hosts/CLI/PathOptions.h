#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Hosts/CLI/Names.h"
#include "VarkCore/Transfer/PathFilter.h"

namespace vark::cli {

/// What a person may say about what of a folder they mean.
void addFilter(CLI::App& command, PathFilter& filter);

/// Paths that stand on the command line or in a file.
struct NamedPaths {
    std::vector<std::string> typed;
    /// "-" is standard input.
    std::string listedIn;
    /// Each ends in a zero byte, and not in a line end.
    bool endInZero = false;

    bool isEmpty() const { return typed.empty() && listedIn.empty(); }
    /// All of them. Fails with a `Failure` when the list cannot be read or names nothing.
    std::vector<std::string> all() const;
};
void addFilesFrom(CLI::App& command, NamedPaths& paths);

/// The paths in a list. Empty ones are no paths.
std::vector<std::string> pathsIn(std::string_view list, bool endInZero);

}  // namespace vark::cli
