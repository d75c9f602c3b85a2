#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/VarkPlatform/CurlFixture.h"

namespace vark::test {
namespace {

class CurlDownloadTest : public CurlFixture {
  protected:
    using Told = std::pair<std::int64_t, std::optional<std::int64_t>>;

    Task<HTTPResponse> download(const URL& from) {
        HTTPRequest asked = request(from);
        asked.headers = {{"Authorization", "Bearer secret"}};
        asked.longestAnswer = 10;
        return session->download(
            asked, to, [this](auto received, auto expected) { told.emplace_back(received, expected); },
            [this](const HTTPRedirect& redirect) {
                redirects.push_back(fmt::format("{} {}", redirect.status, redirect.location.path()));
                return follow;
            });
    }

    TemporaryFolder folder;
    std::filesystem::path to = folder / "incoming";
    bool follow = true;
    std::vector<Told> told;
    std::vector<std::string> redirects;
};

TEST_F(CurlDownloadTest, WritesABodyOfAnyLengthIntoAFileForItsOwnerAlone) {
    const std::string large(20 << 20, 'x');
    struct Case {
        const char* name;
        int status;
        std::string body;
        bool tellsItsLength;
    };
    const std::vector<Case> cases{
        {"large", 200, large, true},
        {"without a length", 200, large, false},
        {"empty", 200, "", true},
        {"a refusal", 404, R"({"error":"Gone"})", true},
        {"shorter than before", 200, "short", true},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        ScriptedServer server(authority, [&](Conversation& client) {
            client.readHead();
            if (one.tellsItsLength) {
                client.answer(one.status, one.body);
            } else {
                client.write("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + one.body);
            }
        });
        told.clear();
        const TaskHandle<HTTPResponse> handle = scope.start(download(server.url("/")));
        EXPECT_EQ(outcome(handle), std::to_string(one.status));
        EXPECT_EQ(handle.result().body, "");
        EXPECT_TRUE(readWholeFile(to) == one.body);
        struct stat values{};
        ASSERT_EQ(stat(to.c_str(), &values), 0);
        EXPECT_EQ(values.st_mode & 07777, 0600U);
        ASSERT_EQ(told.empty(), one.body.empty());
        if (told.empty()) continue;
        const auto length = static_cast<std::int64_t>(one.body.size());
        EXPECT_EQ(told.back(), Told(length, one.tellsItsLength ? std::optional(length) : std::nullopt));
    }
}

TEST_F(CurlDownloadTest, FollowsARedirectOnlyAsFarAsItIsAllowedTo) {
    std::vector<std::string> log;
    ScriptedServer other(authority, answeringAll([&](Conversation& client, const RequestHead& head) {
                             log.push_back(head.header("Authorization").value_or("no token"));
                             client.answer(200, "bytes");
                         }));
    ScriptedServer first(
        authority, answeringAll([&](Conversation& client, const RequestHead& head) {
            log.push_back(head.header("Authorization").value_or("no token"));
            const bool isThere = head.target == "/there";
            client.answer(307, "moved",
                          "Location: " + (isThere ? other.url("/elsewhere").text() : "there") + "\r\n");
        }));
    EXPECT_EQ(outcome(download(first.url("/here"))), "200");
    EXPECT_EQ(readWholeFile(to), "bytes");
    EXPECT_THAT(log, testing::ElementsAre("Bearer secret", "Bearer secret", "no token"));
    EXPECT_THAT(redirects, testing::ElementsAre("307 /there", "307 /elsewhere"));
    // Nothing of what a redirect itself says.
    EXPECT_THAT(told, testing::ElementsAre(Told(5, 5)));

    follow = false;
    EXPECT_EQ(outcome(download(first.url("/here"))), "307");
    EXPECT_EQ(readWholeFile(to), "moved");
    EXPECT_EQ(log.size(), 4U);
}

TEST_F(CurlDownloadTest, LeavesNothingOfADownloadThatCameToNoAnswer) {
    struct Case {
        const char* name;
        ScriptedServer::Script end;
        const char* outcome;
    };
    TaskHandle<HTTPResponse> handle;
    const std::vector<Case> cases{
        {"broken off", [](Conversation& client) { client.reset(); }, "connection lost"},
        {"cancelled",
         [&](Conversation& client) {
             handle.cancel();
             client.waitForTheEnd();
         },
         "cancelled"},
        {"sent round in circles",
         [](Conversation& client) {
             // The rest of the first answer, which leads to the same again.
             client.write("five!");
             while (client.readHead())
                 client.answer(302, "", "Location: /again\r\n");
         },
         "other"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        ScriptedServer server(authority, [&](Conversation& client) {
            client.readHead();
            client.write("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 10\r\n\r\nhello");
            one.end(client);
        });
        handle = scope.start(download(server.url("/")));
        EXPECT_EQ(outcome(handle), one.outcome);
        EXPECT_FALSE(std::filesystem::exists(to));
    }
}

TEST_F(CurlDownloadTest, SaysWhyTheFileCannotBeWritten) {
    ScriptedServer server(authority, answeringAll([](Conversation& client, const RequestHead&) {
                              client.answer(200, std::string(1 << 20, 'x'));
                          }));
    const auto sentence = [&](const std::filesystem::path& path) -> std::string {
        to = path;
        const TaskHandle<HTTPResponse> handle = scope.start(download(server.url("/")));
        executor.runUntil([&] { return handle.done(); });
        try {
            handle.result();
        } catch (const FileError& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(sentence(folder / "gone/file"),
              fmt::format("Could not create {}: it is not there.", (folder / "gone/file").native()));
    EXPECT_EQ(server.connections(), 0);

    // A disk that is full in the middle of the file.
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit narrow{100'000, before.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &narrow);
    const std::string tooLarge = sentence(folder / "file");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(tooLarge, fmt::format("Could not write {}: it is too large.", (folder / "file").native()));
    EXPECT_FALSE(std::filesystem::exists(folder / "file"));
}

}  // namespace
}  // namespace vark::test
