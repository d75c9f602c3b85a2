// The commands about this machine: its volumes, its health, its room.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/CLI/CommandLine.h"

namespace vark::cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class MachineCommand : public test::CommandLine {
  public:
    void mount(const Volume& volume) { world.platform.mounted.table.push_back(volume); }
};

TEST_F(MachineCommand, VolumesAreNamedForWhatTheyAre) {
    world.home.file("ALPHA/DCIM/1.jpg");
    world.home.file("STICK/notes.txt");
    mount({.name = "ALPHA", .path = world.home / "ALPHA", .id = "1234-ABCD", .ejectable = true});
    mount({.name = "STICK", .path = world.home / "STICK", .ejectable = true});
    EXPECT_EQ(vark({"volumes"}), ExitCode::allLanded);
    const std::string card = world.home / "ALPHA";
    EXPECT_THAT(printed(), HasSubstr("ALPHA  card  " + card + "\n"));
    EXPECT_THAT(printed(), HasSubstr("STICK  disk  "));
    EXPECT_EQ(said(), "Bring this card in with: vark ingest \"" + card + "\"\n");

    EXPECT_EQ(vark({"volumes", "--json"}), ExitCode::allLanded);
    EXPECT_THAT(printed(), HasSubstr(R"("id":"1234-ABCD","isCard":true,"ejectable":true,"isBoot":false,)"
                                     R"("offer":"sheet"})"));
}

TEST_F(MachineCommand, AnIngestNamesOneVolumeThatIsNotTheStartUpDisk) {
    world.connect();
    mount({.name = "Root", .path = "/", .isBoot = true});
    for (const char* place : {"one", "two"}) {
        world.home.file(std::string(place) + "/DCIM/1.jpg", place);
        mount({.name = "EOS", .path = world.home / place, .ejectable = true});
    }
    struct Case {
        std::vector<std::string> arguments;
        ExitCode code;
        const char* said;
    };
    const Case cases[] = {
        {{"ingest", "NIKON"}, ExitCode::usage, "vark volumes"},
        {{"ingest", world.home / "one/DCIM"},
         ExitCode::usage,
         "is a folder, and no card or disk. Send it with"},
        {{"ingest", "/proc"}, ExitCode::usage, "Only what is mounted below /media, /run/media or /mnt"},
        {{"ingest", "EOS"}, ExitCode::usage, "Several volumes are called EOS"},
        {{"ingest", "/"}, ExitCode::usage, "start-up disk"},
        {{"ingest", world.home / "two/", "--leave-out", world.home / "two/none"},
         ExitCode::usage,
         "is called none."},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(vark(one.arguments), one.code) << ::testing::PrintToString(one.arguments) << said();
        EXPECT_THAT(said(), HasSubstr(one.said));
    }
    EXPECT_EQ(server.announced, 0);
}

TEST_F(MachineCommand, DiagnosticsAreShownAndSentOnlyWhenAsked) {
    EXPECT_EQ(vark({"diagnostics", "--send"}), ExitCode::notConnected);
    world.connect();
    world.surroundings.log().write("The proxy said: Bearer secret is not known here");
    EXPECT_EQ(vark({"diagnostics"}), ExitCode::allLanded);
    EXPECT_THAT(printed(), HasSubstr("on TestOS 1\n"));
    EXPECT_THAT(printed(), HasSubstr("Bearer [token] is not known here\n"));
    EXPECT_THAT(printed(), Not(HasSubstr("secret")));
    std::vector<DiagnosticsReport>& sent = server.diagnostics;
    EXPECT_EQ(sent.size(), 0U);

    EXPECT_EQ(vark({"diagnostics", "--send", "--json"}), ExitCode::allLanded);
    ASSERT_EQ(sent.size(), 1U);
    JSONWriter json;
    sent[0].encode(json);
    EXPECT_EQ(printed(), json.text() + "\n");
    EXPECT_THAT(sent[0].logs.at("transfer"), HasSubstr("Bearer [token] is not known here\n"));

    EXPECT_EQ(vark({"diagnostics", "--send"}), ExitCode::allLanded);
    EXPECT_TRUE(sent.at(1).logs.empty());
}

TEST_F(MachineCommand, TheCacheGivesBackOldDiariesAndKeepsTheQueue) {
    TransferJob job;
    job.id = UUID::random();
    world.surroundings.store().save(&job);
    world.surroundings.log().write("Paused");
    const std::filesystem::path logs = world.surroundings.locations().logsFolder();
    std::filesystem::copy_file(logs / "transfer.log", logs / "transfer.previous.log");
    EXPECT_EQ(vark({"cache"}), ExitCode::allLanded);
    EXPECT_THAT(printed(), HasSubstr("  The queue: "));
    EXPECT_EQ(vark({"cache", "--free"}), ExitCode::allLanded);
    EXPECT_THAT(printed(), ::testing::MatchesRegex("Freed [0-9]+ KB.\n"));
    EXPECT_FALSE(std::filesystem::exists(logs / "transfer.previous.log"));
    EXPECT_TRUE(std::filesystem::exists(logs / "transfer.log"));
    EXPECT_TRUE(world.surroundings.store().load());
}

TEST_F(MachineCommand, ARescueSaysWhereTheFilesAreAndRefusesToMoveAFolderIntoItself) {
    const std::filesystem::path file = world.home.file("leaving/a.mov", "1234");
    for (const std::filesystem::path& wrong : {file, world.home / "nowhere", world.home.path()})
        EXPECT_EQ(vark({"rescue", wrong}), ExitCode::usage) << wrong;
    std::filesystem::create_directory_symlink(world.home / "leaving", world.home / "link");
    EXPECT_EQ(vark({"rescue", (world.home / "link").string() + "/"}), ExitCode::usage);
    EXPECT_THAT(said(), HasSubstr("is a link. Give the folder that it leads to: " +
                                  (world.home / "leaving").string()));
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(vark({"rescue", world.home / "leaving"}), ExitCode::allLanded);
    EXPECT_THAT(printed(),
                HasSubstr("1 file is now in " + (world.home / "Downloads/Vark – not sent yet ").string()));
    EXPECT_FALSE(std::filesystem::exists(world.home / "leaving"));
}

}  // namespace
}  // namespace vark::cli
