#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

/// A machine that is not connected, whose desktop hands the address of a page to the test.
class SignIn : public EndToEndTest {
  protected:
    using EndToEndTest::EndToEndTest;

    void SetUp() override {
        const fs::path opener =
            vark.write("tools/xdg-open",
                       "#!/bin/sh\nprintf %s \"$1\" > \"$HOME/part\"; mv \"$HOME/part\" \"$HOME/page\"\n");
        fs::permissions(opener, fs::perms::owner_all);
        vark.moveTo({.environment = {{"PATH", pathOf("tools") + ":/usr/bin:/bin"}, {"DISPLAY", ":7"}}});
    }

    std::vector<std::string> connecting(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"connect", box.url(), "--ca-file", box.authority()});
        return options;
    }
    /// The end of a run for whose page somebody presses a button, or nobody any.
    Finished connect(const std::string& button) {
        Process run = vark.start(connecting());
        EXPECT_TRUE(run.untilThere(pathOf("page"))) << run.errors();
        const std::string page = readWholeFile(pathOf("page"));
        if (!button.empty()) box.press(page + "/" + button);
        Finished finished = run.finish();
        EXPECT_THAT(finished.errors, HasSubstr(page));
        return finished;
    }
    void expectRefused(const Finished& run, const char* words) const {
        expectExit(run, 3);
        EXPECT_THAT(run.errors, HasSubstr(words));
        EXPECT_FALSE(vark.find("connection.json") || vark.find("secrets.json"));
    }
};

TEST_F(SignIn, ACodeFromThePortalConnectsOnce) {
    const std::string code(box.control("POST", "/control/codes").at("code").as_string());
    expectRefused(vark.run(connecting({"--code", "no such"})), "The vark did not accept the code");
    const Finished connected = vark.run(connecting({"--code", code}));
    expectExit(connected, 0);
    EXPECT_THAT(connected.output, HasSubstr("Connected.\nAcme at " + box.url() + "\n"));
    expectExit(vark.run(connecting({"--code", code})), 3);
    expectExit(vark.run({"whoami"}), 0);
}

TEST_F(SignIn, APersonWhoSaysYesIsConnectedThoughTheWayThereWasBad) {
    fault(R"({"kind": "reset", "path": "/api/device/poll", "count": 1})");
    fault(R"({"kind": "status", "status": 429, "path": "/api/device/poll", "skip": 1, "count": 1})");
    expectExit(connect("yes"), 0);
    for (const boost::json::value& fault : box.faults())
        EXPECT_EQ(fault.at("fired"), 1);
    expectExit(vark.run({"ls"}), 0);
}

TEST_F(SignIn, APersonWhoSaysNoIsNot) {
    expectRefused(connect("no"), "The sign-in was refused in the browser.");
}

class ShortSignIn : public SignIn {
  protected:
    ShortSignIn() : SignIn({"--sign-in-lasts", "0.01"}) {}
};

TEST_F(ShortSignIn, RunsOutWhenNobodyAnswers) {
    expectRefused(connect(""), "Nobody answered in the browser in time.");
}

}  // namespace
}  // namespace vark::test
