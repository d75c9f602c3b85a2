#include <fmt/format.h>

#include <csignal>

#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Getting : public EndToEndTest {
  protected:
    static constexpr std::size_t size = 2 << 20;
    const std::string bytes = readWholeFile(pathOf(file("source", size)));
    const std::filesystem::path here = pathOf("here");
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
    // A write beyond the limit, which is told in blocks of 512 bytes, fails as it does on a full disk.
    const std::string limited = fmt::format("trap '' XFSZ; ulimit -f {}; exec \"$@\"", size / 2 / 512);
    vark.moveTo({.prefix = {"/bin/sh", "-c", limited, "sh"}});
    expectExit(vark.run({"get", "Take.mov", "-o", target}), 1);
    vark.moveTo({});
    ASSERT_EQ(filesHere().size(), 1U);
    EXPECT_EQ(std::filesystem::file_size(filesHere()[0]), size / 2);

    expectExit(vark.run({"get", "Take.mov", "-o", target}), 0);
    EXPECT_TRUE(readWholeFile(target) == bytes);
    EXPECT_THAT(filesHere(), ElementsAre(target)) << "nothing is left beside it";
    EXPECT_EQ(box.count("GET", "/api/file/", 206), 1) << "only the rest was asked for";
}

TEST_F(Getting, CtrlCIsToldInOneTrueLine) {
    fault(R"({"kind": "stall", "path_contains": "/api/file/", "count": 1})");
    Process fetching = vark.start({"get", "Take.mov", "-o", target});
    ASSERT_TRUE(fetching.until([this] { return !filesHere().empty(); }));
    fetching.signal(SIGINT);
    const Finished stopped = fetching.finish();
    expectExit(stopped, 130);
    EXPECT_EQ(stopped.output + stopped.errors,
              "Stopped with 0 of 1 file here. The same command carries on.\n");
    EXPECT_THAT(filesHere(), IsEmpty()) << "there is nothing to go on with";
}

}  // namespace
}  // namespace vark::test
