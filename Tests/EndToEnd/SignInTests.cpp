#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/Browser.h"

namespace vark::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

/// A machine that is not connected, whose desktop hands addresses to the test.
class SignIn : public testing::Test {
  protected:
    explicit SignIn(RealBox::Options options = {}) : box(std::move(options)) {
        const fs::path opener =
            vark.write("tools/xdg-open",
                       "#!/bin/sh\nprintf %s \"$1\" > \"$HOME/part\"; mv \"$HOME/part\" \"$HOME/page\"\n");
        fs::permissions(opener, fs::perms::owner_all);
        vark.moveTo({.environment = {{"PATH", (vark.home() / "tools").string() + ":/usr/bin:/bin"},
                                     {"DISPLAY", ":7"}}});
    }

    std::vector<std::string> connecting(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"connect", box.url(), "--ca-file", box.authority().string()});
        return options;
    }
    /// The page that the machine opens for signing in.
    std::string openedPage(const Process& run) const {
        const FileWatch watch(vark.home());
        const fs::path page = vark.home() / "page";
        EXPECT_TRUE(watch.until([&] { return fs::exists(page); }, std::chrono::minutes(1), run.descriptor()));
        return readWholeFile(page);
    }
    /// Clicks a button of that page, and waits for the end of the run.
    Finished answer(const std::string& button) {
        Browser browser;
        Process run = vark.start(connecting());
        const std::string page = openedPage(run);
        browser.open(page);
        EXPECT_THAT(browser.text(), HasSubstr("wants to connect to Acme"));
        browser.click(button);
        const Exit exit = run.wait();
        EXPECT_THAT(run.errors(), HasSubstr(page));
        return {exit, run.output(), run.errors()};
    }
    void expectNothingKept() const {
        EXPECT_FALSE(vark.find("connection.json"));
        EXPECT_FALSE(vark.find("secrets.json"));
    }

    RealBox box;
    RealVark vark;
};

TEST_F(SignIn, ACodeFromThePortalConnectsOnce) {
    const std::string code(box.client().control("POST", "/control/codes").json().at("code").as_string());
    const Finished wrong = vark.run(connecting({"--code", "no such"}));
    EXPECT_EQ(wrong.exit, exitCode(3));
    EXPECT_THAT(wrong.errors, HasSubstr("The vark did not accept the code"));
    expectNothingKept();

    const Finished connected = vark.run(connecting({"--code", code}));
    EXPECT_EQ(connected.exit, exitCode(0)) << connected.errors;
    EXPECT_THAT(connected.output, HasSubstr("Connected.\nAcme at " + box.url() + "\n"));
    EXPECT_THAT(readWholeFile(*vark.find("connection.json")), Not(HasSubstr(box.token())));
    EXPECT_TRUE(vark.find("level.json"));
    EXPECT_EQ(vark.run({"whoami"}).exit, exitCode(0));
    EXPECT_EQ(vark.run(connecting({"--code", code})).exit, exitCode(3));
    EXPECT_EQ(vark.run({"whoami"}).exit, exitCode(0));
}

TEST_F(SignIn, APersonWhoClicksYesIsConnectedThoughTheWayThereWasBad) {
    box.fault({{"kind", "reset"}, {"path", "/api/device/poll"}, {"count", 1}});
    box.fault({{"kind", "status"}, {"status", 429}, {"path", "/api/device/poll"}, {"skip", 1}, {"count", 1}});
    const Finished connected = answer("Yes");
    EXPECT_EQ(connected.exit, exitCode(0)) << connected.errors;
    EXPECT_THAT(connected.output, HasSubstr("Connected.\nAcme at "));
    for (const boost::json::value& fault : box.faults())
        EXPECT_EQ(fault.at("fired"), 1);
    EXPECT_EQ(vark.run({"ls"}).exit, exitCode(0));
}

TEST_F(SignIn, APersonWhoClicksNoIsNot) {
    const Finished refused = answer("No");
    EXPECT_EQ(refused.exit, exitCode(3));
    EXPECT_THAT(refused.errors, HasSubstr("The sign-in was refused in the browser."));
    expectNothingKept();
}

class ShortSignIn : public SignIn {
  protected:
    ShortSignIn() : SignIn({.arguments = {"--sign-in-lasts", "0.01"}}) {}
};

TEST_F(ShortSignIn, RunsOutOnBothSidesWhenNobodyClicks) {
    Process run = vark.start(connecting());
    const std::string page = openedPage(run);
    EXPECT_EQ(run.wait(), exitCode(3));
    EXPECT_THAT(run.errors(), HasSubstr("Nobody answered in the browser in time."));
    expectNothingKept();
    Browser browser;
    browser.open(page);
    EXPECT_THAT(browser.text(), AllOf(HasSubstr("has run out"), Not(HasSubstr("Yes"))));
}

}  // namespace
}  // namespace vark::test
