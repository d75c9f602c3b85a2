#include <gtest/gtest.h>

#include <cstdlib>

#include "Tests/Support/BuildTree.h"
#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark {
namespace {

using test::Process;

TEST(ManyProcesses, FourWritersOfTheBoardLoseNoChange) {
    // Of 20 changes each: at full scale all four make ten thousand.
    const char* const rounds = std::getenv("VARK_FULL_SCALE") != nullptr ? "125" : "10";
    const TemporaryFolder folder;
    std::vector<Process> writers;
    for (const char* name : {"a", "b", "c", "d"}) {
        Process::Options options;
        options.program = test::buildTree() / "Tests/VarkCore/Sync/StatusWriter";
        options.arguments = {folder / "shared", name, rounds};
        options.output = folder / (std::string(name) + ".output");
        options.errors = folder / (std::string(name) + ".errors");
        writers.emplace_back(options);
    }
    for (Process& writer : writers)
        EXPECT_EQ(writer.wait(std::chrono::minutes(10)).code, 0) << writer.errors();
}

}  // namespace
}  // namespace vark
