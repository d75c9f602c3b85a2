#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/CLI/CommandLine.h"
#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {
namespace {

using test::CommandLine;
using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(CommandLine, UsageIsCheckedBeforeAnythingIsTouched) {
    const std::vector<std::string> cases[] = {
        {},
        {"send", "--rate", "fast", "x"},
        {"send", "--on-conflict", "perhaps", "x"},
        {"send", "--to", "Jobs/../x", "x"},
        {"ingest", "CARD", "--to", "Jobs/../x"},
        {"send", "--to", "Jobs/a\nb", "x"},
        {"send", "--to", "Jobs"},
        {"connect", "https://vark.example", "--code", "A", "--token-file", "b"},
        {"connect", "https://vark.example", "--secret-store", "drawer"},
        {"resolve", "--replace", "--skip"},
    };
    for (const std::vector<std::string>& arguments : cases) {
        EXPECT_EQ(vark(arguments), ExitCode::usage) << ::testing::PrintToString(arguments);
        EXPECT_THAT(said(), Not(::testing::IsEmpty())) << ::testing::PrintToString(arguments);
        EXPECT_EQ(printed(), "");
    }
    EXPECT_EQ(vark({"log", "-n", "many"}), ExitCode::usage);
    EXPECT_EQ(said(),
              "--lines: many is no whole number from 1 to 1,000,000.\n"
              "Run with --help for more information.\n");
}

TEST_F(CommandLine, HelpAndVersionCanBeAskedForInEachUsualWay) {
    EXPECT_EQ(vark({"help", "send"}), ExitCode::allLanded);
    const std::string page = printed();
    EXPECT_THAT(page, HasSubstr("Usage: vark send [OPTIONS] [PATH...]"));
    EXPECT_EQ(vark({"send", "--help"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), page);
    EXPECT_EQ(vark({"-V"}), ExitCode::allLanded);
    EXPECT_THAT(printed(), ::testing::MatchesRegex("vark [0-9.]+\n"));
}

TEST_F(CommandLine, AnUnknownCommandIsNamedWithTheOneThatWasProbablyMeant) {
    const std::string list = " All of them are listed by: vark help\n";
    EXPECT_EQ(vark({"--json", "Qeueu", "--watch"}), ExitCode::usage);
    EXPECT_EQ(said(), "There is no command \"Qeueu\". Did you mean \"queue\"?" + list);
    EXPECT_EQ(vark({"job", "fnd", "x"}), ExitCode::usage);
    EXPECT_EQ(said(), "There is no command \"job fnd\". Did you mean \"job find\"?" + list);
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsNoSuccess) {
    std::ofstream full("/dev/full");
    std::ostringstream advice;
    Console console(full, advice);
    const char* const arguments[] = {"vark", "help"};
    EXPECT_EQ(runCommandLine(2, arguments, world.platform, console), ExitCode::somethingFailed);
    EXPECT_THAT(advice.str(), HasSubstr("No space left on device"));
}

TEST_F(CommandLine, WithoutAConnectionOneIsToldHowToGetIt) {
    EXPECT_EQ(vark({"ls"}), ExitCode::notConnected);
    EXPECT_THAT(said(), HasSubstr("vark connect"));
    world.connect();
    server.refusals = {VarkAPIError::transport("Could not reach the vark.")};
    EXPECT_EQ(vark({"whoami"}), ExitCode::somethingFailed);
    EXPECT_EQ(said(),
              "Could not reach the vark.\nIt is at https://vark.example. Look whether this machine is online "
              "and whether that address opens in a browser, then try again.\n");
}

TEST_F(CommandLine, ListingGoesThroughAllPagesBelowTheRoot) {
    world.connect("Acme");
    server.items["Acme/Jobs"] = folder("Acme/Jobs", 7);
    VarkItem file;
    file.id = 8;
    file.name = "evil\x1b[2J\n.mov";
    file.path = "Acme/Jobs/" + file.name;
    file.size = 1'500'000;
    file.mtime = 1'700'000'000;
    server.folders_[7] = {folder("Acme/Jobs/A", 9), file, folder("Acme/Jobs/B", 10)};
    EXPECT_EQ(vark({"ls", "Jobs"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), "A/\nevil\\x1b[2J\\n.mov\nB/\n");
    EXPECT_EQ(vark({"ls", "--json", "/Jobs/"}), ExitCode::allLanded);
    EXPECT_THAT(
        printed(),
        HasSubstr("\"name\":\"evil\\u001b[2J\\n.mov\",\"path\":\"Acme/Jobs/evil\\u001b[2J\\n.mov\",\"id\":8,"
                  "\"isFolder\":false,\"size\":1500000,\"modified\":\"2023-11-14T22:13:20Z\""));
    EXPECT_EQ(vark({"ls", "Nowhere"}), ExitCode::somethingFailed);
    EXPECT_THAT(said(), HasSubstr("Acme/Nowhere"));
}

TEST_F(CommandLine, WhatWasDoneIsToldLineByLine) {
    const SharedStore::Folder& shared = world.surroundings.sharedFolder();
    const Date now = systemDate();
    ActivityEntry entry{.at = now - 5000, .text = "Sent a\x1b.mov", .kind = "put"};
    entry.group = "put:Jobs";
    entry.many = "Sent %d files";
    SharedActivity::append(entry, shared);
    entry.place = "Jobs › 2026";
    entry.at = now - 4900;
    SharedActivity::append(entry, shared);
    EXPECT_EQ(vark({"activity"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), "1 hour ago    Sent a\\x1b.mov · Jobs › 2026\n1 hour ago    Sent a\\x1b.mov\n");
    EXPECT_EQ(vark({"activity", "--history"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), "1 hour ago    Sent 2 files · Jobs › 2026\n");
}

TEST_F(CommandLine, TheSavedQueueIsShownAndChangedWithoutAVark) {
    TransferJob job;
    job.id = UUID::random();
    job.title = "Card";
    for (const char* name : {"a", "b"}) {
        TransferEntry entry;
        entry.id = UUID::random();
        entry.name = name;
        entry.localPath = std::string("/in/") + name;
        for (ItemState state : {ItemState::failed, ItemState::conflict, ItemState::queued}) {
            TransferItem item;
            item.id = UUID::random();
            item.entryID = entry.id;
            item.state = state;
            item.relativePath = fmt::format("{}/{}", name, text(state));
            item.localPath = "/in/" + item.relativePath;
            job.items.push_back(item);
        }
        job.entries.push_back(entry);
    }
    world.surroundings.store().save(&job);
    auto states = [&] {
        std::string all;
        for (const TransferItem& item : world.surroundings.store().load()->items)
            all += fmt::format("{} ", text(item.state));
        return all;
    };

    EXPECT_EQ(vark({"queue", "--json"}), ExitCode::allLanded);
    EXPECT_EQ(std::ranges::count(printed(), '\n'), 1 + 2 + 4);
    EXPECT_EQ(vark({"resolve", "--skip", "a/conflict"}), ExitCode::allLanded);
    EXPECT_EQ(states(), "failed skipped queued failed conflict queued ");
    EXPECT_EQ(vark({"resolve", "--replace", "/in/b"}), ExitCode::allLanded);
    EXPECT_EQ(states(), "failed skipped queued failed queued queued ");
    EXPECT_EQ(vark({"retry", "--json"}), ExitCode::allLanded);
    EXPECT_EQ(printed(),
              "{\"changed\":2,\"results\":[\"Trying 2 files again\"],\"problems\":[],\"exitCode\":0}\n");
    EXPECT_EQ(states(), "queued skipped queued queued queued queued ");
    EXPECT_EQ(vark({"pause"}), ExitCode::allLanded);
    EXPECT_TRUE(world.surroundings.store().load()->isPaused);
    EXPECT_EQ(vark({"resume"}), ExitCode::allLanded);
    EXPECT_FALSE(world.surroundings.store().load()->isPaused);
    EXPECT_EQ(vark({"remove", "2", "x", "--json"}), ExitCode::somethingFailed);
    EXPECT_THAT(printed(),
                HasSubstr("{\"changed\":1,\"results\":[\"Removed 2 from the queue\"],\"problems\":["));
    EXPECT_EQ(states(), "queued skipped queued ");
    EXPECT_EQ(vark({"clear"}), ExitCode::allLanded);
    EXPECT_FALSE(world.surroundings.store().load());
}

}  // namespace
}  // namespace vark::cli
