#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

namespace fs = std::filesystem;

/// A machine that is not connected, whose desktop hands the address of a page to the test.
class SignIn : public EndToEndTest {
  protected:
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
};

TEST_F(SignIn, ACodeFromThePortalConnectsOnce) {
    const std::string code(box.control("POST", "/control/codes").at("code").as_string());
    const Finished connected = vark.run(connecting({"--code", code}));
    expectExit(connected, 0);
    EXPECT_THAT(connected.output, testing::HasSubstr("Connected.\nAcme at " + box.url() + "\n"));
    expectExit(vark.run(connecting({"--code", code})), 3);
    expectExit(vark.run({"whoami"}), 0);
}

TEST_F(SignIn, APersonWhoSaysYesIsConnectedThoughTheWayThereWasBad) {
    fault(R"({"kind": "reset", "path": "/api/device/poll", "count": 1})");
    fault(R"({"kind": "status", "status": 429, "path": "/api/device/poll", "skip": 1, "count": 1})");
    Process connecting = vark.start(this->connecting());
    ASSERT_TRUE(connecting.untilThere(pathOf("page"))) << connecting.errors();
    box.press(readWholeFile(pathOf("page")) + "/yes");
    expectExit(connecting.finish(), 0);
    for (const boost::json::value& fault : box.faults())
        EXPECT_EQ(fault.at("fired"), 1);
    expectExit(vark.run({"ls"}), 0);
}

}  // namespace
}  // namespace vark::test
