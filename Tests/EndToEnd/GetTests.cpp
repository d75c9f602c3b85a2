#include <csignal>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/FileWatch.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::test {
namespace {

using testing::ElementsAre;

class Getting : public EndToEndTest {
  protected:
    static constexpr std::size_t size = 6 << 20;
    const std::string bytes = readWholeFile(pathOf(file("source", size)));
    const std::filesystem::path here = vark.home() / "here";
    const std::filesystem::path target = here / "Take.mov";

    void SetUp() override {
        EndToEndTest::SetUp();
        std::filesystem::create_directory(here);
        box.put("Take.mov", bytes);
    }
    std::vector<std::filesystem::path> filesHere() const {
        return {std::filesystem::directory_iterator(here), std::filesystem::directory_iterator()};
    }
};

TEST_F(Getting, WhatHadNoRoomIsGoneOnWith) {
    Process first = vark.start({"get", "Take.mov", "-o", target.string()}, size / 2);
    EXPECT_EQ(first.wait(), exitCode(1)) << first.errors();
    ASSERT_EQ(filesHere().size(), 1U);
    EXPECT_EQ(std::filesystem::file_size(filesHere()[0]), size / 2);

    expectExit(vark.run({"get", "Take.mov", "-o", target.string()}), 0);
    EXPECT_TRUE(readWholeFile(target) == bytes);
    EXPECT_THAT(filesHere(), ElementsAre(target)) << "nothing is left beside it";
    EXPECT_TRUE(untilAnswered("GET", "/api/file/", 206)) << "only the rest was asked for";
}

TEST_F(Getting, CtrlCIsToldInOneTrueLine) {
    fault(R"({"kind": "stall", "path_contains": "/api/file/", "count": 1})");
    FileWatch watch(here);
    Process fetching = vark.start({"get", "Take.mov", "-o", target.string()});
    const auto hasBegun = [this] { return !filesHere().empty(); };
    ASSERT_TRUE(watch.until(hasBegun, std::chrono::minutes(1), fetching.descriptor())) << fetching.errors();
    fetching.signal(SIGINT);
    EXPECT_EQ(fetching.wait(), exitCode(130));
    EXPECT_EQ(fetching.output() + fetching.errors(),
              "Stopped with 0 of 1 file here. The same command carries on.\n");
    EXPECT_THAT(filesHere(), ElementsAre()) << "there is nothing to go on with";
}

TEST_F(Getting, StandardOutputTakesTheFileAndNothingElse) {
    const Finished streamed = vark.run({"get", "Take.mov", "-o", "-"});
    expectExit(streamed, 0);
    EXPECT_TRUE(streamed.output == bytes);
    EXPECT_EQ(streamed.errors, "");
    // The same by the path of it, which for an administrator is a link that could be replaced.
    const Finished byPath = vark.run({"get", "Take.mov", "--force", "-o", "/dev/stdout"});
    expectExit(byPath, 0);
    EXPECT_TRUE(byPath.output == bytes);
    EXPECT_TRUE(std::filesystem::is_symlink("/dev/stdout"));
}

}  // namespace
}  // namespace vark::test
