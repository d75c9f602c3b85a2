#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

struct Decision {
    const char* name;
    const char* option;
    const char* state;
    bool replaces;
};

class Conflict : public EndToEndTest, public testing::WithParamInterface<Decision> {
  protected:
    void expectDecided() const {
        EXPECT_EQ(vark.savedState("Report.pdf"), GetParam().state);
        EXPECT_EQ(box.bytesAt("Report.pdf") == theirs, !GetParam().replaces);
        if (GetParam().replaces) expectHeld(report);
    }

    const std::string theirs = "what somebody else wrote";
    SampleFile report = file("Report.pdf", 2 * chunkSize);
    SampleFile other = file("Other.pdf", 1000);
};

TEST_P(Conflict, WaitsForThePersonAndThenDoesAsDecided) {
    box.put("Report.pdf", theirs);
    expectExit(vark.run({"send", pathOf(report), pathOf(other)}), 4);
    expectHeld(other);
    EXPECT_EQ(vark.savedState("Report.pdf"), "conflict");
    EXPECT_EQ(box.bytesAt("Report.pdf"), theirs);

    expectExit(vark.run({"resolve", std::string("--") + GetParam().option, "Report.pdf"}), 0);
    expectExit(vark.run({"send"}), 0);
    expectDecided();
}

TEST_P(Conflict, IsDecidedBeforehandByAnOption) {
    box.put("Report.pdf", theirs);
    expectExit(send(report, {"--on-conflict", GetParam().option}), 0);
    expectDecided();
}

INSTANTIATE_TEST_SUITE_P(EndToEnd, Conflict,
                         testing::Values(Decision{"Replace", "replace", "verified", true},
                                         Decision{"Skip", "skip", "skipped", false}),
                         byName);

}  // namespace
}  // namespace vark::test
