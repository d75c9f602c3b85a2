#include <filesystem>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class FileCommands : public EndToEndTest {
  protected:
    Finished expectRun(std::vector<std::string> arguments, int code, const std::string& output) {
        Finished run = vark.run(std::move(arguments));
        expectExit(run, code);
        EXPECT_EQ(run.output, output) << run.errors;
        return run;
    }
    /// From now on a run finds this on its standard input.
    void feed(const std::filesystem::path& file) {
        vark.moveTo({.prefix = {"/bin/sh", "-c", "exec \"$@\" < " + file.string(), "sh"}});
    }
    std::vector<std::filesystem::path> spooled() const {
        std::vector<std::filesystem::path> files;
        const std::filesystem::path spool = vark.queueFile().parent_path() / "spool";
        if (!std::filesystem::exists(spool)) return files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(spool))
            files.push_back(entry.path());
        return files;
    }
};

TEST_F(FileCommands, FoldersAreMadeListedMovedAndBinned) {
    expectRun({"mkdir", "Work/2026/Shoot"}, 1, "");
    expectRun({"mkdir", "-p", "Work/2026/Shoot"}, 0, "Work\nWork/2026\nWork/2026/Shoot\n");
    expectRun({"mkdir", "-p", "Work/2026/Shoot"}, 0, "");
    expectRun({"mkdir", "Work/2026/Shoot"}, 1, "");
    box.put("Work/2026/Shoot/a10.txt", "ten");
    box.put("Work/2026/Shoot/a2.txt", "three!");

    expectRun({"ls", "Work/2026/Shoot", "--sort", "name"}, 0, "a2.txt\na10.txt\n");
    expectRun({"ls", "Work/2026/Shoot", "--sort", "size", "--reverse"}, 0, "a10.txt\na2.txt\n");
    EXPECT_THAT(vark.run({"ls", "--bytes", "Work/2026/Shoot"}).output, HasSubstr("           6  "));
    expectRun({"ls", "-R", "Work"}, 0,
              "Work:\n2026/\n\nWork/2026:\nShoot/\n\nWork/2026/Shoot:\na10.txt\na2.txt\n");
    expectRun({"tree", "Work", "--sort", "name"}, 0,
              "Work\n└── 2026/\n    └── Shoot/\n        ├── a2.txt\n        └── a10.txt\n");
    expectRun({"tree", "Work", "--depth", "1"}, 0, "Work\n└── 2026/\n");
    expectRun({"complete-remote", "--", "Work/2026/Shoot/a1"}, 0, "Work/2026/Shoot/a10.txt\n");
    expectRun({"complete-remote", "--folders", "--", "W"}, 0, "Work/\n");

    expectRun({"mv", "Work/2026/Shoot/a2.txt", "Work/2026/b.txt"}, 0,
              "Work/2026/Shoot/a2.txt is now Work/2026/b.txt\n");
    expectRun({"mv", "Work/2026/b.txt", "Work/2026/Shoot/a10.txt"}, 1, "");
    EXPECT_EQ(box.bytesAt("Work/2026/Shoot/a10.txt"), "ten") << "nothing is replaced";
    expectRun({"mv", "Work/2026/b.txt", "Work/2026/Shoot/a10.txt", "Work"}, 0,
              "Work/2026/b.txt is now Work/b.txt\nWork/2026/Shoot/a10.txt is now Work/a10.txt\n");
    expectRun({"mv", "Work", "Work/2026"}, 1, "");
    expectRun({"mv", "Work/b.txt", "Work/a10.txt", "Nowhere"}, 2, "");

    expectRun({"rm", "Work/b.txt"}, 2, "");
    EXPECT_EQ(box.bytesAt("Work/b.txt"), "three!") << "nobody was asked";
    expectRun({"rm", "--yes", "Work/b.txt", "Work/gone"}, 1, "In the Bin: Work/b.txt\n");
    expectRun({"ls", "Work"}, 0, "2026/\na10.txt\n");
    expectRun({"tag", "Work/a10.txt", "Work/2026", "--with", "Summer", "--with", "To do"}, 0,
              "Tagged 2 items with Summer, To do\n");
    expectRun({"tag", "--list"}, 0, "Summer\nTo do\n");
}

TEST_F(FileCommands, BytesGoOutAndComeInByThePipe) {
    box.put("a.txt", "one ");
    box.put("b.txt", "two");
    expectRun({"cat", "a.txt", "b.txt"}, 0, "one two");
    expectRun({"cat", "a.txt", "gone"}, 1, "");

    const std::filesystem::path input = vark.write("input", std::string(700'000, 'x'));
    feed(input);
    const Finished sent = vark.run({"send", "-", "--name", "Cut.tar", "--to", "Jobs"});
    expectExit(sent, 0);
    EXPECT_THAT(sent.output, HasSubstr("Landed: Jobs/Cut.tar"));
    EXPECT_EQ(box.bytesAt("Jobs/Cut.tar"), std::string(700'000, 'x'));
    EXPECT_THAT(spooled(), IsEmpty()) << "the vark has it";

    const std::filesystem::path other = vark.write("other", "something else");
    feed(other);
    const Finished kept =
        vark.run({"send", "-", "--name", "Cut.tar", "--to", "Jobs", "--on-conflict", "skip"});
    EXPECT_THAT(kept.errors, HasSubstr("is kept in"));
    EXPECT_EQ(box.bytesAt("Jobs/Cut.tar"), std::string(700'000, 'x'));
    EXPECT_THAT(spooled(), Not(IsEmpty())) << "nobody else has these bytes";
    expectExit(vark.run({"send", "-", "--to", "Jobs"}), 2);
}

TEST_F(FileCommands, WhatTheVarkHasIsProvedBeforeAnythingIsDeleted) {
    for (const char* name : {"Shoot/a.mov", "Shoot/DCIM/b.mov", "Shoot/DCIM/.c", "Shoot/x.tmp"})
        file(name, 3'000);
    expectExit(vark.run({"send", (vark.home() / "Shoot").string(), "--to", "Jobs", "--hidden", "--exclude",
                         "*.tmp"}),
               0);
    const std::vector<std::string> check = {"check", (vark.home() / "Shoot").string(), "--against", "Jobs"};
    expectRun(check, 1, "Not in the vark: Shoot/x.tmp\n");
    std::vector<std::string> without = check;
    without.insert(without.end(), {"--exclude", "*.tmp"});
    const Finished proved = expectRun(without, 0, "All 3 files (9 KB) are in Jobs, with the same bytes.\n");
    EXPECT_THAT(proved.errors, HasSubstr("Left out and not looked at: 1 thing."));

    vark.write("Shoot/a.mov", std::string(3'000, 'x'));
    expectRun(without, 1,
              "Different in the vark: Shoot/a.mov: It is as long as in the vark and has other bytes.\n");
    without.push_back("--json");
    const Finished records = vark.run(without);
    EXPECT_THAT(records.output, HasSubstr(R"("event":"differs","path":"Shoot/a.mov")"));
    EXPECT_THAT(records.output, HasSubstr(R"("isProved":false,"exitCode":1)"));
}

TEST_F(FileCommands, AScriptAndASecondProfileWorkBesideTheConnection) {
    box.put("a.txt", "one");
    const std::filesystem::path token = vark.write("token", box.token());
    std::filesystem::permissions(token, std::filesystem::perms::owner_read);
    const std::map<std::string, std::string> given = {{"VARK_URL", box.url()},
                                                      {"VARK_TOKEN_FILE", token.string()},
                                                      {"VARK_CA_FILE", box.authority().string()}};
    expectExit(vark.run({"disconnect"}), 0);
    expectExit(vark.run({"cat", "a.txt"}), 3);
    vark.moveTo({.environment = given});
    expectRun({"cat", "a.txt"}, 0, "one");
    const SampleFile sample = file("Take.mov", 5'000);
    expectExit(send(sample), 0);
    expectHeld(sample);
    EXPECT_FALSE(vark.find("connection.json")) << "nothing of it is kept";
    std::filesystem::permissions(token, std::filesystem::perms::group_read,
                                 std::filesystem::perm_options::add);
    expectExit(vark.run({"cat", "a.txt"}), 2);

    vark.moveTo({.environment = {{"VARK_PROFILE", "work"}}});
    vark.connect(box);
    expectRun({"cat", "a.txt"}, 0, "one");
    vark.moveTo({});
    expectExit(vark.run({"cat", "a.txt"}), 3);
    vark.moveTo({.environment = {{"VARK_PROFILE", "../work"}}});
    expectExit(vark.run({"whoami"}), 2);
}

TEST_F(FileCommands, SettingsAreKept) {
    expectRun({"config", "set", "bytesPerSecond", "10MB"}, 0, "");
    expectRun({"config", "set", "volumes.EOS", "never"}, 0, "");
    expectRun({"config", "get", "bytesPerSecond"}, 0, "10000000\n");
    expectRun({"config", "get", "volumes.EOS"}, 0, "never\n");
    expectRun({"config", "set", "look", "pink"}, 2, "");
    EXPECT_THAT(vark.run({"config", "set", "lok", "dark"}).errors, HasSubstr("Did you mean \"look\"?"));
    EXPECT_THAT(vark.run({"config", "list"}).output, HasSubstr("officeHours = none\n"));
}

}  // namespace
}  // namespace vark::test
