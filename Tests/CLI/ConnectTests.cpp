#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/CLI/CommandLine.h"
#include "VarkCore/Connection/SharedLevel.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class Connecting : public test::CommandLine {
  public:
    std::filesystem::path secrets() { return world.surroundings.locations().secrets(); }
    std::optional<std::string> tokenOfConnection() {
        const std::optional<SharedConnection> connection = world.surroundings.connection();
        return connection ? std::optional(connection->token) : std::nullopt;
    }

    std::string token = world.home.file("token", "  tok-123 \nnever read\n");
    std::string authority = world.home.file("ca.pem", "-----BEGIN CERTIFICATE-----\n");
};

TEST_F(Connecting, ConnectingProvesTheTokenAndSaysWhoIsConnected) {
    server.items["Jobs/2026"] = folder("Jobs/2026", 42);
    ASSERT_EQ(vark({"connect", "vark.example/", "--token-file", token, "--ca-file", authority, "--root",
                    "/Jobs/2026/"}),
              ExitCode::allLanded)
        << said();
    EXPECT_EQ(
        printed(),
        "Connected.\nAcme (2026) at https://vark.example\nanna@acme.example on tower, Editor (level 5)\n"
        "1 MB of 4 MB used\n");
    EXPECT_EQ(said(), "The token is in the keychain.\n");
    EXPECT_EQ(world.platform.keychain->secrets.at(world.tokenName).bytes, "tok-123");
    std::optional<SharedConnection> connection = world.surroundings.connection();
    ASSERT_TRUE(connection);
    SharedConnection expected;
    expected.server = "https://vark.example";
    expected.token = "tok-123";
    expected.clientName = "Acme";
    expected.rootPath = "Jobs/2026";
    expected.rootID = 42;
    expected.level = 5;
    EXPECT_EQ(*connection, expected);
    EXPECT_EQ(std::filesystem::status(connectionFile()).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(readWholeFile(SharedFiles::authority(*world.surroundings.sharedFolder())),
              "-----BEGIN CERTIFICATE-----\n");

    // Connecting elsewhere without an authority leaves none behind.
    ASSERT_EQ(vark({"connect", "https://other.example", "--token-file", token}), ExitCode::allLanded);
    EXPECT_FALSE(std::filesystem::exists(SharedFiles::authority(*world.surroundings.sharedFolder())));
    EXPECT_EQ(world.surroundings.connection()->rootID, 0);

    EXPECT_EQ(SharedLevelStore::read(world.surroundings.sharedFolder())->level, 5);
    EXPECT_EQ(vark({"disconnect"}), ExitCode::allLanded);
    EXPECT_FALSE(std::filesystem::exists(connectionFile()));
    EXPECT_EQ(SharedLevelStore::read(world.surroundings.sharedFolder()), std::nullopt);
    EXPECT_TRUE(world.platform.keychain->secrets.empty());
}

TEST_F(Connecting, WhatKeepsFromConnectingIsSaidAndNothingIsWritten) {
    const std::string empty = world.home.file("empty", " \n");
    const std::string blanks = world.home.file("blanks", "two words\n");
    struct Case {
        const char* name;
        std::vector<std::string> arguments;
        std::function<void(Connecting&)> arrange;
        ExitCode code;
        const char* said;
    };
    const std::vector<std::string> good = {"connect", "https://vark.example", "--token-file", token};
    auto with = [&](std::initializer_list<std::string> more) {
        std::vector<std::string> all = good;
        all.insert(all.end(), more);
        return all;
    };
    auto nothing = [](Connecting&) {};
    const Case cases[] = {
        {"no token file",
         {"connect", "https://x", "--token-file", "/no/such"},
         nothing,
         ExitCode::usage,
         "/no/such"},
        {"empty token file",
         {"connect", "https://x", "--token-file", empty},
         nothing,
         ExitCode::usage,
         "has no token"},
        {"no token in it",
         {"connect", "https://x", "--token-file", blanks},
         nothing,
         ExitCode::usage,
         "no token"},
        {"no authority file", with({"--ca-file", "/no/ca"}), nothing, ExitCode::usage, "/no/ca"},
        {"no certificate in it", with({"--ca-file", token}), nothing, ExitCode::usage, "no certificate"},
        {"no address",
         {"connect", "https://", "--token-file", token},
         nothing,
         ExitCode::usage,
         "no address"},
        {"not safe",
         {"connect", "http://vark.example", "--token-file", token},
         nothing,
         ExitCode::usage,
         "https"},
        {"not this machine",
         {"connect", "http://127.evil.example", "--token-file", token},
         nothing,
         ExitCode::usage,
         "https"},
        {"no keychain", good,
         [](Connecting& t) { t.world.platform.keychain->failures["open"] = SecretStatus::absent; },
         ExitCode::notConnected, "--secret-store file"},
        {"keychain not opened", good,
         [](Connecting& t) { t.world.platform.keychain->failures["open"] = SecretStatus::locked; },
         ExitCode::notConnected, "The keychain is locked. Open it and try again. To keep"},
        {"keychain does not take it", good,
         [](Connecting& t) { t.world.platform.keychain->failures = {{"update", SecretStatus::locked}}; },
         ExitCode::somethingFailed, "The keychain is locked."},
        {"wrong code",
         {"connect", "https://vark.example", "--code", "BAD"},
         [](Connecting& t) { t.world.platform.keychain->failures.clear(); },
         ExitCode::notConnected,
         "did not accept the code: No such code."},
        {"a token that breaks lines",
         {"connect", "https://vark.example", "--code", "GOOD-CODE"},
         [](Connecting& t) { t.server.issuedToken = "a\r\nb"; },
         ExitCode::somethingFailed,
         "cannot be used"},
        {"refused in the browser",
         {"connect", "https://vark.example"},
         [](Connecting& t) { t.server.polls = {DevicePoll::Refused{}}; },
         ExitCode::notConnected,
         "refused"},
        {"nobody answers",
         {"connect", "https://vark.example"},
         [](Connecting& t) { t.server.polls = {DevicePoll::Expired{}}; },
         ExitCode::notConnected,
         "in time"},
        {"a page that is none",
         {"connect", "https://vark.example"},
         [](Connecting& t) { t.server.signInPage = "file:///etc/passwd"; },
         ExitCode::somethingFailed,
         "--code CODE"},
        {"refused", good,
         [](Connecting& t) { t.server.refusals = {VarkAPIError::unauthorized("Device revoked.")}; },
         ExitCode::notConnected, "Device revoked."},
        {"unreachable", good,
         [](Connecting& t) { t.server.refusals = {VarkAPIError::transport("Could not reach the vark.")}; },
         ExitCode::notConnected, "Could not reach the vark."},
        {"not trusted", good,
         [](Connecting& t) {
             t.server.refusals = {VarkAPIError::transport("SSL trouble")};
             t.world.platform.isTrusted = false;
         },
         ExitCode::notConnected, "--ca-file"},
        {"no such root", with({"--root", "Nowhere"}), nothing, ExitCode::usage, "Nowhere"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        one.arrange(*this);
        world.platform.opened.clear();
        EXPECT_EQ(vark(one.arguments), one.code);
        EXPECT_THAT(said(), HasSubstr(one.said));
        EXPECT_THAT(said(), Not(HasSubstr("tok-123")));
        EXPECT_EQ(printed(), "");
        EXPECT_FALSE(std::filesystem::exists(connectionFile()));
        EXPECT_TRUE(world.platform.keychain->secrets.empty());
        if (one.name == std::string_view("a page that is none")) EXPECT_TRUE(world.platform.opened.empty());
    }
}

TEST_F(Connecting, ACodeOrThePersonInTheBrowserGivesTheToken) {
    ASSERT_EQ(vark({"connect", "vark.example", "--code", "GOOD-CODE"}), ExitCode::allLanded) << said();
    EXPECT_EQ(tokenOfConnection(), "issued");
    EXPECT_EQ(world.platform.tokenGiven, "issued");
    EXPECT_TRUE(world.platform.opened.empty());

    server.polls = {DevicePoll::Connected{{"agreed", "Acme", ""}, "tower"}};
    ASSERT_EQ(vark({"connect", "vark.example"}), ExitCode::allLanded) << said();
    EXPECT_EQ(tokenOfConnection(), "agreed");
    EXPECT_EQ(world.platform.keychain->secrets.at(world.tokenName).bytes, "agreed");
    EXPECT_THAT(world.platform.opened, ElementsAre("https://vark.example/device?n=1"));
    EXPECT_THAT(said(), HasSubstr("https://vark.example/device?n=1\nThe browser is asked to show it.\n"));
    EXPECT_THAT(server.deviceNames, ElementsAre("tower", "tower"));

    world.platform.hasDesktop = false;
    server.polls = {DevicePoll::Connected{{"again", "Acme", ""}, std::nullopt}};
    ASSERT_EQ(vark({"connect", "vark.example", "--json"}), ExitCode::allLanded) << said();
    EXPECT_THAT(said(), HasSubstr("https://vark.example/device?n=1\nWaiting"));
    EXPECT_THAT(printed(), HasSubstr("\"client\":\"Acme\""));
}

TEST_F(Connecting, ATokenInAFileIsSaidAndNeverGoesToTheKeychain) {
    world.platform.keychain->failures = {{"open", SecretStatus::absent}, {"find", SecretStatus::absent}};
    ASSERT_EQ(vark({"connect", "vark.example", "--token-file", token, "--secret-store", "file"}),
              ExitCode::allLanded)
        << said();
    EXPECT_THAT(said(), HasSubstr(fmt::format("The token is in the file {}", secrets().string())));
    EXPECT_THAT(readWholeFile(secrets()), HasSubstr("tok-123"));
    EXPECT_EQ(std::filesystem::status(secrets()).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(vark({"whoami"}), ExitCode::allLanded) << said();
    EXPECT_TRUE(world.platform.keychain->calls.empty());

    world.platform.keychain->failures.clear();
    ASSERT_EQ(vark({"connect", "vark.example", "--token-file", token}), ExitCode::allLanded) << said();
    EXPECT_FALSE(std::filesystem::exists(secrets()));
    EXPECT_EQ(vark({"whoami"}), ExitCode::allLanded) << said();

    ASSERT_EQ(vark({"connect", "vark.example", "--token-file", token, "--secret-store", "file"}),
              ExitCode::allLanded);
    EXPECT_EQ(vark({"disconnect"}), ExitCode::allLanded);
    EXPECT_FALSE(std::filesystem::exists(secrets()));
}

TEST_F(Connecting, WhoeverAsksWhoHeIsKeepsTheLevelFresh) {
    world.connect();
    server.who.level = 2;
    server.who.jobNumbers = true;
    ASSERT_EQ(vark({"whoami"}), ExitCode::allLanded);
    const std::optional<SharedLevel> level = SharedLevelStore::read(world.surroundings.sharedFolder());
    ASSERT_TRUE(level);
    EXPECT_EQ(level->level, 2);
    EXPECT_TRUE(level->jobNumbers);
    EXPECT_TRUE(level->isFresh(systemDate()));
}

TEST_F(Connecting, AKeychainThatWouldNotSayIsNoSignOut) {
    const SharedConnection connection = world.connect();
    for (const auto& [status, words] : std::vector<std::pair<std::int32_t, const char*>>{
             {SecretStatus::locked,
              "The keychain is locked. So the token cannot be read. The connection stays"},
             {SecretStatus::absent, "--secret-store file"},
             {17, "Keychain error 17"}}) {
        world.platform.keychain->failures["find"] = status;
        for (const char* command : {"whoami", "ls", "send"}) {
            EXPECT_EQ(vark({command}), ExitCode::somethingFailed);
            EXPECT_THAT(said(), HasSubstr(words));
        }
        EXPECT_EQ(world.surroundings.connection(), connection);
    }
    EXPECT_EQ(vark({"disconnect"}), ExitCode::allLanded);
    EXPECT_THAT(said(), HasSubstr("a token may still be in it"));
}

TEST_F(Connecting, ALostTokenIsTakenBackOnceTheVarkHasAcceptedIt) {
    SharedConnection connection = world.connect();
    auto& keychain = *world.platform.keychain;
    keychain.secrets.clear();
    server.refusals = {VarkAPIError::unauthorized("Device revoked.")};
    EXPECT_EQ(vark({"ls"}), ExitCode::notConnected);
    EXPECT_TRUE(keychain.secrets.empty());
    server.refusals = {VarkAPIError::transport("Could not reach the vark.")};
    EXPECT_EQ(vark({"ls"}), ExitCode::somethingFailed);
    EXPECT_TRUE(keychain.secrets.empty());

    EXPECT_EQ(vark({"whoami"}), ExitCode::allLanded) << said();
    EXPECT_THAT(said(), HasSubstr("has been put back"));
    EXPECT_EQ(keychain.secrets.at(world.tokenName).bytes, "secret");
    EXPECT_EQ(vark({"whoami"}), ExitCode::allLanded);
    EXPECT_EQ(said(), "");

    keychain.secrets.clear();
    connection.clientName = " ";
    ASSERT_TRUE(SharedStore::write(connection, world.surroundings.sharedFolder()));
    EXPECT_EQ(vark({"whoami"}), ExitCode::notConnected);
    EXPECT_THAT(said(), HasSubstr("lost. Connect again"));
}

TEST_F(Connecting, ATokenNeverGoesToAVarkThatItIsNotFor) {
    world.connect();
    auto& keychain = *world.platform.keychain;
    keychain.secrets.at(world.tokenName).bytes = "of another vark";
    EXPECT_EQ(vark({"whoami"}), ExitCode::notConnected);
    EXPECT_THAT(said(), HasSubstr("not the one of this connection"));
    EXPECT_EQ(world.platform.tokenGiven, std::nullopt);
    EXPECT_EQ(vark({"disconnect"}), ExitCode::allLanded);
    EXPECT_EQ(keychain.secrets.at(world.tokenName).bytes, "of another vark");

    // Where the new token could not be kept, the old one must not stand beside the new vark.
    world.connect();
    keychain.failures["update"] = SecretStatus::locked;
    EXPECT_EQ(vark({"connect", "other.example", "--token-file", token}), ExitCode::somethingFailed);
    EXPECT_EQ(tokenOfConnection(), std::nullopt);
    world.connect();
    EXPECT_EQ(vark({"connect", "vark.example", "--token-file", token}), ExitCode::somethingFailed);
    EXPECT_EQ(tokenOfConnection(), "secret");
}

}  // namespace
}  // namespace vark::cli
