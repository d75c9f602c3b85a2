#include "Hosts/CLI/PathOptions.h"

#include <fmt/format.h>

#include <iostream>
#include <iterator>

#include "VarkApp/Failure.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr std::uint64_t longestList = 1 << 30;

std::string listAt(const std::string& file) {
    if (file == "-") return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    try {
        return readWholeFile(file, longestList);
    } catch (const FileError& error) {
        throw Failure(Outcome::misuse, fmt::format("The list of paths cannot be read. {}", error.what()));
    }
}

}  // namespace

void addFilter(CLI::App& command, PathFilter& filter) {
    command
        .add_option(
            "--exclude", filter.exclude,
            "Leave out what is of this pattern, like \"*.tmp\", \"Cache/\" or \"DCIM/**/*.xml\"; can be "
            "given again")
        ->type_name("PATTERN")
        ->allow_extra_args(false);
    command
        .add_option("--include", filter.include,
                    "Of files take only those of this pattern, or in a folder of it; can be given again")
        ->type_name("PATTERN")
        ->allow_extra_args(false);
}

void addFilesFrom(CLI::App& command, NamedPaths& paths) {
    CLI::Option* list = command
                            .add_option("--files-from", paths.listedIn,
                                        "A file with a path in each line; - for standard input")
                            ->type_name("FILE");
    command
        .add_flag("-0,--null", paths.endInZero, "The paths of that file end in zero bytes, not in line ends")
        ->needs(list);
}

std::vector<std::string> NamedPaths::all() const {
    std::vector<std::string> paths = typed;
    if (listedIn.empty()) return paths;
    for (std::string& path : pathsIn(listAt(listedIn), endInZero))
        paths.push_back(std::move(path));
    if (paths.empty())
        throw Failure(Outcome::misuse,
                      fmt::format("There is no path in {}.", listedIn == "-" ? "the list" : listedIn));
    return paths;
}

std::vector<std::string> pathsIn(std::string_view list, bool endInZero) {
    std::vector<std::string> paths;
    for (std::string& path : splitKeepingEmpty(list, endInZero ? '\0' : '\n')) {
        if (!path.empty()) paths.push_back(std::move(path));
    }
    return paths;
}

}  // namespace vark::cli
