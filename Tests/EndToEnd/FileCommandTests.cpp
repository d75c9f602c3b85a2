#include <filesystem>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::test {
namespace {

using testing::HasSubstr;

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
};

TEST_F(FileCommands, FoldersAreMadeListedMovedAndBinned) {
    expectRun({"mkdir", "Work/2026/Shoot"}, 1, "");
    expectRun({"mkdir", "-p", "Work/2026/Shoot"}, 0, "Work\nWork/2026\nWork/2026/Shoot\n");
    box.put("Work/2026/Shoot/a10.txt", "ten");
    box.put("Work/2026/Shoot/a2.txt", "three!");

    expectRun({"ls", "Work/2026/Shoot", "--sort", "size", "--reverse"}, 0, "a10.txt\na2.txt\n");
    expectRun({"ls", "-R", "Work"}, 0,
              "Work:\n2026/\n\nWork/2026:\nShoot/\n\nWork/2026/Shoot:\na10.txt\na2.txt\n");
    expectRun({"tree", "Work", "--sort", "name"}, 0,
              "Work\n└── 2026/\n    └── Shoot/\n        ├── a2.txt\n        └── a10.txt\n");
    expectRun({"complete-remote", "--", "Work/2026/Shoot/a1"}, 0, "Work/2026/Shoot/a10.txt\n");

    expectRun({"mv", "Work/2026/Shoot/a2.txt", "Work/2026/b.txt"}, 0,
              "Work/2026/Shoot/a2.txt is now Work/2026/b.txt\n");
    expectRun({"mv", "Work/2026/b.txt", "Work/2026/Shoot/a10.txt"}, 1, "");
    EXPECT_EQ(box.bytesAt("Work/2026/Shoot/a10.txt"), "ten") << "nothing is replaced";
    expectRun({"mv", "Work/2026/b.txt", "Work/2026/Shoot/a10.txt", "Work"}, 0,
              "Work/2026/b.txt is now Work/b.txt\nWork/2026/Shoot/a10.txt is now Work/a10.txt\n");

    expectRun({"rm", "Work/b.txt"}, 2, "");
    EXPECT_EQ(box.bytesAt("Work/b.txt"), "three!") << "nobody was asked";
    expectRun({"rm", "--yes", "Work/b.txt", "Work/gone"}, 1, "In the Bin: Work/b.txt\n");
    expectRun({"ls", "Work"}, 0, "2026/\na10.txt\n");
    expectRun({"tag", "Work/a10.txt", "Work/2026", "--with", "Summer"}, 0, "Tagged 2 items with Summer\n");
    expectRun({"tag", "--list"}, 0, "Summer\n");
}

TEST_F(FileCommands, BytesGoOutAndComeInByThePipe) {
    box.put("a.txt", "one ");
    box.put("b.txt", "two");
    expectRun({"cat", "a.txt", "b.txt"}, 0, "one two");

    const std::string bytes(700'000, 'x');
    feed(vark.write("input", bytes));
    const std::vector<std::string> command{"send", "-",    "--name",        "Cut.tar",
                                           "--to", "Jobs", "--on-conflict", "skip"};
    expectExit(vark.run(command), 0);
    EXPECT_EQ(box.bytesAt("Jobs/Cut.tar"), bytes);
    const std::filesystem::path spool = vark.queueFile().parent_path() / "spool";
    EXPECT_FALSE(exists(spool) && !is_empty(spool)) << "the vark has it";

    feed(vark.write("other", "something else"));
    EXPECT_THAT(vark.run(command).errors, HasSubstr("is kept in"));
    EXPECT_EQ(box.bytesAt("Jobs/Cut.tar"), bytes);
    EXPECT_FALSE(is_empty(spool)) << "nobody else has these bytes";
}

TEST_F(FileCommands, WhatTheVarkHasIsProvedBeforeAnythingIsDeleted) {
    for (const char* name : {"Shoot/a.mov", "Shoot/DCIM/b.mov", "Shoot/DCIM/.c", "Shoot/x.tmp"})
        file(name, 3'000);
    const std::string shoot = pathOf("Shoot");
    expectExit(vark.run({"send", shoot, "--to", "Jobs", "--hidden", "--exclude", "*.tmp"}), 0);
    expectRun({"check", shoot, "--against", "Jobs"}, 1, "Not in the vark: Shoot/x.tmp\n");
    const std::vector<std::string> without{"check", shoot, "--against", "Jobs", "--exclude", "*.tmp"};
    const Finished proved = expectRun(without, 0, "All 3 files (9 KB) are in Jobs, with the same bytes.\n");
    EXPECT_THAT(proved.errors, HasSubstr("Left out and not looked at: 1 thing."));

    vark.write("Shoot/a.mov", std::string(3'000, 'x'));
    expectRun(without, 1,
              "Different in the vark: Shoot/a.mov: It is as long as in the vark and has other bytes.\n");
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
    expectExit(send(file("Take.mov", 5'000)), 0);
    EXPECT_FALSE(vark.find("connection.json")) << "nothing of it is kept";
    std::filesystem::permissions(token, std::filesystem::perms::group_read,
                                 std::filesystem::perm_options::add);
    expectExit(vark.run({"cat", "a.txt"}), 2);

    vark.moveTo({.environment = {{"VARK_PROFILE", "work"}}});
    vark.connect(box);
    expectRun({"cat", "a.txt"}, 0, "one");
    vark.moveTo({});
    expectExit(vark.run({"cat", "a.txt"}), 3);
}

}  // namespace
}  // namespace vark::test
