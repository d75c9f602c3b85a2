#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

struct Decision {
    const char* name;
    bool replaces = false;
};

class Conflict : public EndToEndTest, public testing::WithParamInterface<Decision> {
  protected:
    void SetUp() override {
        EndToEndTest::SetUp();
        box.put("Report.pdf", "what somebody else wrote");
    }

    SampleFile report = file("Report.pdf", 2 * chunkSize);
    SampleFile other = file("Other.pdf", 1000);

    void expectDecision() {
        EXPECT_EQ(box.bytesAt("Report.pdf") == "what somebody else wrote", !GetParam().replaces);
        if (GetParam().replaces) expectHeld(report);
        EXPECT_EQ(vark.savedState("Report.pdf"), GetParam().replaces ? "verified" : "skipped");
    }
};

TEST_P(Conflict, WaitsForThePersonAndThenDoesAsDecided) {
    Finished sent = vark.run({"send", pathOf(report), pathOf(other)});
    expectExit(sent, 4);
    expectHeld(other);
    EXPECT_EQ(vark.savedState("Report.pdf"), "conflict");
    EXPECT_EQ(box.bytesAt("Report.pdf"), "what somebody else wrote");

    expectExit(vark.run({"resolve", GetParam().replaces ? "--replace" : "--skip", "Report.pdf"}), 0);
    expectExit(vark.run({"send"}), 0);
    expectDecision();
}

TEST_P(Conflict, IsDecidedBeforehandByAnOption) {
    expectExit(send(report, {"--on-conflict", GetParam().replaces ? "replace" : "skip"}), 0);
    expectDecision();
}

INSTANTIATE_TEST_SUITE_P(EndToEnd, Conflict,
                         testing::Values(Decision{"Replace", true}, Decision{"Skip", false}),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace vark::test
