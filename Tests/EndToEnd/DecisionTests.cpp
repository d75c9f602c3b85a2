#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

struct Decision {
    const char* name;
    const char* option;
    const char* state;
    bool replaces;
};

class Conflict : public EndToEndTest, public testing::WithParamInterface<Decision> {};

TEST_P(Conflict, WaitsForThePersonAndThenDoesAsDecided) {
    const SampleFile report = file("Report.pdf", 2 * chunkSize);
    const std::string theirs = "what somebody else wrote";
    box.put("Report.pdf", theirs);
    expectExit(send(report), 4);
    EXPECT_EQ(vark.savedStates()["Report.pdf"], "conflict");
    EXPECT_EQ(box.bytesAt("Report.pdf"), theirs);

    expectExit(vark.run({"resolve", std::string("--") + GetParam().option, "Report.pdf"}), 0);
    expectExit(vark.run({"send"}), 0);
    EXPECT_EQ(vark.savedStates()["Report.pdf"], GetParam().state);
    EXPECT_EQ(box.bytesAt("Report.pdf"), GetParam().replaces ? readWholeFile(pathOf(report)) : theirs);
}

INSTANTIATE_TEST_SUITE_P(EndToEnd, Conflict,
                         testing::Values(Decision{"Replace", "replace", "verified", true},
                                         Decision{"Skip", "skip", "skipped", false}),
                         byName);

}  // namespace
}  // namespace vark::test
