#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/CLI/CommandLine.h"
#include "VarkCore/Connection/SharedLevel.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::cli {
namespace {

using ::testing::Contains;
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
    using Words = std::vector<std::string>;
    struct Case {
        const char* said;
        ExitCode code;
        Words arguments;
        std::function<void()> arrange = [] {};
    };
    auto& keychain = *world.platform.keychain;
    const std::string url = "https://vark.example";
    const std::string empty = world.home.file("empty", " \n");
    const std::string blanks = world.home.file("blanks", "two words\n");
    const Words good = {url, "--token-file", token};
    const Case cases[] = {
        {"/no/such", ExitCode::usage, {url, "--token-file", "/no/such"}},
        {"has no token", ExitCode::usage, {url, "--token-file", empty}},
        {"is no token", ExitCode::usage, {url, "--token-file", blanks}},
        {"/no/ca", ExitCode::usage, {url, "--token-file", token, "--ca-file", "/no/ca"}},
        {"no certificate", ExitCode::usage, {url, "--token-file", token, "--ca-file", token}},
        {"no address", ExitCode::usage, {"https://", "--token-file", token}},
        {"https", ExitCode::usage, {"http://vark.example", "--token-file", token}},
        {"https", ExitCode::usage, {"http://127.evil.example", "--token-file", token}},
        {"Nowhere", ExitCode::usage, {url, "--token-file", token, "--root", "Nowhere"}},
        {"--secret-store file", ExitCode::notConnected, good,
         [&] { keychain.failures = {{"open", SecretStatus::absent}}; }},
        {"The keychain is locked. Open it and try again. To keep", ExitCode::notConnected, good,
         [&] { keychain.failures = {{"open", SecretStatus::locked}}; }},
        {"The keychain is locked.", ExitCode::somethingFailed, good,
         [&] { keychain.failures = {{"update", SecretStatus::locked}}; }},
        {"did not accept the code: No such code.", ExitCode::notConnected, {url, "--code", "BAD"}},
        {"cannot be used",
         ExitCode::somethingFailed,
         {url, "--code", "GOOD-CODE"},
         [&] { server.issuedToken = "a\r\nb"; }},
        {"refused", ExitCode::notConnected, {url}, [&] { server.polls = {DevicePoll::Refused{}}; }},
        {"in time", ExitCode::notConnected, {url}, [&] { server.polls = {DevicePoll::Expired{}}; }},
        {"--code CODE", ExitCode::somethingFailed, {url}, [&] { server.signInPage = "file:///etc/passwd"; }},
        {"Device revoked.", ExitCode::notConnected, good,
         [&] { server.refusals = {VarkAPIError::unauthorized("Device revoked.")}; }},
        {"Could not reach the vark.", ExitCode::notConnected, good,
         [&] { server.refusals = {VarkAPIError::transport("Could not reach the vark.")}; }},
        {"--ca-file", ExitCode::notConnected, good,
         [&] {
             server.refusals = {VarkAPIError::transport("SSL trouble")};
             world.platform.isTrusted = false;
         }},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.said);
        keychain.failures.clear();
        one.arrange();
        Words arguments = one.arguments;
        arguments.insert(arguments.begin(), "connect");
        EXPECT_EQ(vark(arguments), one.code);
        EXPECT_THAT(said(), HasSubstr(one.said));
        EXPECT_THAT(said(), Not(HasSubstr("tok-123")));
        EXPECT_EQ(printed(), "");
        EXPECT_FALSE(std::filesystem::exists(connectionFile()));
        EXPECT_TRUE(keychain.secrets.empty());
        EXPECT_THAT(world.platform.opened, Not(Contains("file:///etc/passwd")));
    }
}

TEST_F(Connecting, WithoutADesktopThePageIsShownAlone) {
    world.platform.hasDesktop = false;
    server.polls = {DevicePoll::Connected{{"agreed", "Acme", ""}, std::nullopt}};
    ASSERT_EQ(vark({"connect", "vark.example", "--json"}), ExitCode::allLanded) << said();
    EXPECT_THAT(said(), HasSubstr("https://vark.example/device?n=1\nWaiting"));
    EXPECT_THAT(printed(), HasSubstr("\"client\":\"Acme\""));
    EXPECT_EQ(tokenOfConnection(), "agreed");
    EXPECT_THAT(server.deviceNames, ElementsAre("tower"));
}

TEST_F(Connecting, ATokenGoesFromAFileToTheKeychainAndIsInOneOfThem) {
    const std::vector<std::string> intoTheKeychain = {"connect", "vark.example", "--token-file", token};
    std::vector<std::string> intoTheFile = intoTheKeychain;
    intoTheFile.insert(intoTheFile.end(), {"--secret-store", "file"});
    ASSERT_EQ(vark(intoTheFile), ExitCode::allLanded) << said();
    EXPECT_EQ(vark({"whoami"}), ExitCode::allLanded) << said();
    EXPECT_TRUE(world.platform.keychain->calls.empty());

    ASSERT_EQ(vark(intoTheKeychain), ExitCode::allLanded) << said();
    EXPECT_FALSE(std::filesystem::exists(secrets()));
    EXPECT_EQ(vark({"whoami"}), ExitCode::allLanded) << said();

    ASSERT_EQ(vark(intoTheFile), ExitCode::allLanded);
    EXPECT_TRUE(world.platform.keychain->secrets.empty());
    EXPECT_EQ(vark({"disconnect"}), ExitCode::allLanded);
    EXPECT_FALSE(std::filesystem::exists(secrets()));
}

TEST_F(Connecting, AKeychainThatWouldNotSayIsNoSignOut) {
    const SharedConnection connection = world.connect();
    world.platform.keychain->failures["find"] = SecretStatus::absent;
    for (const char* command : {"whoami", "ls", "send"}) {
        EXPECT_EQ(vark({command}), ExitCode::somethingFailed);
        EXPECT_THAT(said(), HasSubstr("--secret-store file"));
    }
    EXPECT_EQ(world.surroundings.connection(), connection);
    world.platform.keychain->failures["find"] = SecretStatus::locked;
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
