#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/CLI/CommandLine.h"
#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Sync/SharedSync.h"

namespace vark::cli {
namespace {

using test::CommandLine;
using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(CommandLine, UsageIsCheckedBeforeAnythingIsTouched) {
    const std::vector<std::string> cases[] = {
        {},
        {"send", "--rate", "fast", "x"},
        {"send", "--outside-office-hours=17:00-17:00", "x"},
        {"send", "--on-conflict", "perhaps", "x"},
        {"send", "--chunks", "7", "x"},
        {"send", "--timeout", "soon", "x"},
        {"send", "--to", "Jobs/../x", "x"},
        {"ingest", "CARD", "--to", "Jobs/../x"},
        {"send", "--to", "Jobs/a\nb", "x"},
        {"send", "--to", "Jobs"},
        {"connect", "https://vark.example", "--code", "A", "--token-file", "b"},
        {"connect", "https://vark.example", "--secret-store", "drawer"},
        {"job"},
        {"resolve"},
        {"resolve", "--replace", "--skip"},
    };
    for (const std::vector<std::string>& arguments : cases) {
        EXPECT_EQ(vark(arguments), ExitCode::usage) << ::testing::PrintToString(arguments);
        EXPECT_THAT(said(), Not(::testing::IsEmpty())) << ::testing::PrintToString(arguments);
        EXPECT_EQ(printed(), "");
    }
    for (const char* number : {"0", "-1", "many", "99999999999999999999"}) {
        EXPECT_EQ(vark({"log", "-n", number}), ExitCode::usage);
        EXPECT_EQ(said(), fmt::format("--lines: {} is no whole number from 1 to 1,000,000.\n"
                                      "Run with --help for more information.\n",
                                      number));
    }
}

TEST_F(CommandLine, HelpAndVersionCanBeAskedForInEachUsualWay) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"send", "--help"}, {"help", "send"}, {"send", "-h"}}) {
        EXPECT_EQ(vark(arguments), ExitCode::allLanded);
        EXPECT_THAT(printed(), HasSubstr("Usage: vark send [OPTIONS] [PATH...]")) << arguments[0];
    }
    EXPECT_EQ(vark({"help", "job", "find"}), ExitCode::allLanded);
    EXPECT_THAT(printed(), HasSubstr("Usage: vark job find "));
    EXPECT_EQ(vark({}), ExitCode::usage);
    const std::string all = said();
    EXPECT_EQ(vark({"help"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), all);
    EXPECT_EQ(vark({"-V"}), ExitCode::allLanded);
    EXPECT_THAT(printed(), ::testing::MatchesRegex("vark [0-9.]+\n"));
}

TEST_F(CommandLine, AnUnknownCommandIsNamedWithTheOneThatWasProbablyMeant) {
    const std::string list = " All of them are listed by: vark help\n";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"sen"}, "There is no command \"sen\". Did you mean \"send\"?" + list},
        {{"--json", "Qeueu", "--watch"}, "There is no command \"Qeueu\". Did you mean \"queue\"?" + list},
        {{"frob", "x"}, "There is no command \"frob\"." + list},
        {{"job", "fnd", "x"}, "There is no command \"job fnd\". Did you mean \"job find\"?" + list},
        {{"help", "sned"}, "There is no command \"sned\". Did you mean \"send\"?" + list},
    };
    for (const auto& [arguments, sentence] : cases) {
        EXPECT_EQ(vark(arguments), ExitCode::usage);
        EXPECT_EQ(said(), sentence);
    }
}

/// Takes some bytes, and then fails as a file does.
class FailingBuffer : public std::stringbuf {
  public:
    FailingBuffer(int error, std::streamsize room) : error_(error), room_(room) {}

  protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        if (count > room_) {
            errno = error_;
            return 0;
        }
        room_ -= count;
        return std::stringbuf::xsputn(bytes, count);
    }

  private:
    int error_;
    std::streamsize room_;
};

TEST_F(CommandLine, OutputThatCannotBeWrittenIsNoSuccess) {
    world.connect("Acme");
    server.items["Acme/Jobs"] = folder("Acme/Jobs", 7);
    server.folders_[7] = {folder("Acme/Jobs/A", 9), folder("Acme/Jobs/B", 10)};
    struct Case {
        std::vector<const char*> arguments;
        int error;
        ExitCode code;
        const char* said;
    };
    const Case cases[] = {
        {{"vark", "ls", "Jobs"}, ENOSPC, ExitCode::somethingFailed, "No space left on device"},
        {{"vark", "help"}, ENOSPC, ExitCode::somethingFailed, "No space left on device"},
        {{"vark", "ls", "Jobs"}, EPIPE, ExitCode::readerGone, ""},
        {{"vark", "ls", "Elsewhere"}, EPIPE, ExitCode::somethingFailed, "Elsewhere"},
    };
    for (const Case& one : cases) {
        FailingBuffer full(one.error, 3);
        std::ostream results(&full);
        std::ostringstream advice;
        Console console(results, advice);
        EXPECT_EQ(runCommandLine(static_cast<int>(one.arguments.size()), one.arguments.data(), world.platform,
                                 console),
                  one.code);
        EXPECT_THAT(advice.str(), HasSubstr(one.said));
        EXPECT_LE(std::ranges::count(advice.str(), '\n'), 1) << advice.str();
    }
}

TEST_F(CommandLine, WithoutAConnectionOneIsToldHowToGetIt) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"whoami"}, {"ls"}, {"send"}}) {
        EXPECT_EQ(vark(arguments), ExitCode::notConnected);
        EXPECT_THAT(said(), HasSubstr("vark connect"));
    }
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
    EXPECT_EQ(vark({"ls", "-l", "Jobs"}), ExitCode::allLanded);
    EXPECT_THAT(printed(), HasSubstr("        2 MB  "));
    EXPECT_EQ(vark({"ls", "Nowhere"}), ExitCode::somethingFailed);
    EXPECT_THAT(said(), HasSubstr("Acme/Nowhere"));
}

TEST_F(CommandLine, WhatWasDoneAndWhatIsOwedAreToldLineByLine) {
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

    const auto begin = [&](SyncOp::Kind kind, const char* path, std::int64_t bytes) {
        const SyncOp op(kind, path, bytes, now);
        SharedSync::begin(op, shared);
        return op.id;
    };
    begin(SyncOp::Kind::rename, "Jobs/x", 0);
    SharedSync::progress(begin(SyncOp::Kind::upload, "Jobs/clip.mov", 40'000'000), 12'000'000, 0, shared,
                         now);
    for (const char* path : {"Jobs/a", "top"})
        SharedSync::stop(begin(SyncOp::Kind::upload, path, 5), {SyncOp::State::waiting, "Later."}, shared,
                         now);
    SharedSync::stop(begin(SyncOp::Kind::bin, "Jobs/\x1b", 0), {SyncOp::State::problem, "Ask."}, shared, now);
    EXPECT_EQ(vark({"sync"}), ExitCode::allLanded);
    EXPECT_EQ(printed(),
              "2 under way, 12 MB of 40 MB · 2 waiting · 1 needs you\n"
              "Under way:\n  Jobs/clip.mov: sending, 12 MB of 40 MB\n  and 1 more\n"
              "Waiting:\n  1 change in Jobs: Later.\n  1 change at the top of the vark: Later.\n"
              "Needs you:\n  Jobs/\\x1b: Ask.\n");
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
    EXPECT_EQ(vark({"resolve", "--skip", "nothing"}), ExitCode::somethingFailed);
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
    EXPECT_EQ(vark({"log", "-n", "1", "--json"}), ExitCode::allLanded);
    EXPECT_THAT(printed(), HasSubstr("\"message\":\"Removed b from the queue\""));
    EXPECT_EQ(vark({"clear", "--finished"}), ExitCode::allLanded);
    EXPECT_TRUE(world.surroundings.store().load());
    EXPECT_EQ(vark({"clear"}), ExitCode::allLanded);
    EXPECT_FALSE(world.surroundings.store().load());
}

}  // namespace
}  // namespace vark::cli
