#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

/// A machine that is not connected, whose browser is the test.
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
    /// Presses a button of the page that the machine opens, and waits for the end of the run.
    Finished answer(const std::string& button) {
        const FileWatch watch(vark.home());
        Process run = vark.start(connecting());
        const fs::path page = vark.home() / "page";
        EXPECT_TRUE(watch.until([&] { return fs::exists(page); }, std::chrono::minutes(1), run.descriptor()));
        const std::string address = readWholeFile(page);
        EXPECT_EQ(box.client().send("POST", address + button).status, 200) << address;
        const Exit exit = run.wait();
        EXPECT_THAT(run.errors(), HasSubstr(address));
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
    EXPECT_EQ(readWholeFile(*vark.find("connection.json")).find(box.token()), std::string::npos);
    EXPECT_TRUE(vark.find("level.json"));
    EXPECT_EQ(vark.run({"whoami"}).exit, exitCode(0));
    EXPECT_EQ(vark.run(connecting({"--code", code})).exit, exitCode(3));
    EXPECT_EQ(vark.run({"whoami"}).exit, exitCode(0));
}

TEST_F(SignIn, ThePersonsYesInTheBrowserConnects) {
    const Finished connected = answer("/yes");
    EXPECT_EQ(connected.exit, exitCode(0)) << connected.errors;
    EXPECT_THAT(connected.output, HasSubstr("Connected.\nAcme at "));
    EXPECT_EQ(vark.run({"ls"}).exit, exitCode(0));
}

TEST_F(SignIn, ThePersonsNoConnectsNothing) {
    const Finished refused = answer("/no");
    EXPECT_EQ(refused.exit, exitCode(3));
    EXPECT_THAT(refused.errors, HasSubstr("The sign-in was refused in the browser."));
    expectNothingKept();
}

class ShortSignIn : public SignIn {
  protected:
    ShortSignIn() : SignIn({.arguments = {"--sign-in-lasts", "0.01"}}) {}
};

TEST_F(ShortSignIn, WithoutAnAnswerItEnds) {
    const Finished expired = vark.run(connecting());
    EXPECT_EQ(expired.exit, exitCode(3));
    EXPECT_THAT(expired.errors, HasSubstr("Nobody answered in the browser in time."));
    expectNothingKept();
}

}  // namespace
}  // namespace vark::test
