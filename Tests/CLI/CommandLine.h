#pragma once

#include <gtest/gtest.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Tests/CLI/CLIWorld.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli::test {

/// The program as a person calls it, against a vark in memory.
class CommandLine : public ::testing::Test {
  public:
    ExitCode vark(std::vector<std::string> arguments) {
        world.results.str("");
        world.advice.str("");
        arguments.insert(arguments.begin(), "vark");
        std::vector<const char*> pointers;
        for (const std::string& argument : arguments)
            pointers.push_back(argument.c_str());
        return runCommandLine(static_cast<int>(pointers.size()), pointers.data(), world.platform,
                              world.console);
    }
    std::string printed() const { return world.results.str(); }
    std::string said() const { return world.advice.str(); }
    std::filesystem::path connectionFile() {
        return SharedFiles::connection(*world.surroundings.sharedFolder());
    }
    VarkItem folder(std::string path, std::int64_t id) {
        VarkItem item;
        item.id = id;
        item.path = path;
        item.name = lastPathComponent(path);
        item.isDir = true;
        return item;
    }

    CLIWorld world;
    TestVark& server = *world.platform.vark;
};

}  // namespace vark::cli::test
