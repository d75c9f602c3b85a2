#include <curl/curl.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>

#include "Tests/VarkBox/BoxFixture.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::box {

namespace json = boost::json;

TEST_F(BoxFixture, EveryCallOfTheApplicationNeedsTheToken) {
    start();
    struct Case {
        const char* token;
        long status;
    };
    std::string right = box->token();
    std::string longer = right + "0";
    for (const Case& tried :
         {Case{"", 401}, Case{"wrong", 401}, Case{longer.c_str(), 401}, Case{right.c_str(), 200}}) {
        client->setToken(tried.token);
        for (std::string_view target : {"/api/whoami", "/api/folders", "/api/items/0", "/api/tags"}) {
            Answer answer = client->get(target);
            EXPECT_EQ(answer.status, tried.status) << target;
            EXPECT_EQ(answer.error().empty(), tried.status == 200) << target;
        }
    }
}

TEST_F(BoxFixture, TheTokenMayStandInAFileThatSomebodyElseWrote) {
    options.tokenFile = folder.path() / "given";
    for (std::string_view bytes : {"", "\n\r\n"}) {
        writeAtomically(options.tokenFile, bytes, 0600, Durability::cached);
        EXPECT_THROW(start(), std::runtime_error) << bytes;
    }
    writeAtomically(options.tokenFile, "a token of the test\r\n", 0600, Durability::cached);
    start();
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "token"));
    client->setToken("a token of the test");
    EXPECT_EQ(client->get("/api/whoami").status, 200);
}

TEST_F(BoxFixture, ALevelBelowFourReadsAndChangesNothing) {
    options.level = 4;
    start();
    EXPECT_EQ(client->upload("Jobs/a.txt", "a").json().at("state"), "done");
    client->control("POST", "/control/token", {{"level", 3}});
    EXPECT_EQ(client->get("/api/whoami").json().at("level"), 3);
    EXPECT_EQ(client->get("/api/item?path=Jobs/a.txt").status, 200);
    json::object path{{"path", "Jobs/a.txt"}, {"new_name", "b"}, {"to_folder", ""}};
    for (const Answer& refused :
         {client->begin("Jobs/b.txt", "b"), client->post("/api/folders", path),
          client->post("/api/files/rename", path), client->post("/api/files/move", path),
          client->send("DELETE", "/api/files?path=Jobs/a.txt"),
          client->post("/api/files/tag", json::object()), client->post("/api/ingest", json::object())}) {
        EXPECT_EQ(refused.status, 403) << refused.body;
        EXPECT_FALSE(refused.error().empty());
    }
    EXPECT_EQ(client->control("GET", "/control/files").json().at("files").as_array().size(), 1u);
}

TEST_F(BoxFixture, TheBoxListensOnThisMachineOnly) {
    for (const char* address : {"0.0.0.0:0", "192.168.1.1:0", "[::]:0", "8.8.8.8:443", "127.0.0.1",
                                "nonsense:1", "127.0.0.1:70000"}) {
        options.root = folder.path();
        options.listen = address;
        EXPECT_THROW(Box(options).start(), std::runtime_error) << address;
    }
}

TEST_F(BoxFixture, ARootIsServedByOneBoxAtATime) {
    start();
    EXPECT_THROW(Box(options).start(), std::runtime_error);
    box->stop();
    EXPECT_NO_THROW(Box(options).start());
}

TEST_F(BoxFixture, SecretsAreForTheOwnerOnlyAndTheAuthorityOutlivesARestart) {
    start();
    for (const char* name : {"authority-key.pem", "server-key.pem", "token", "requests.jsonl"}) {
        struct stat status{};
        ASSERT_EQ(::stat((folder.path() / name).c_str(), &status), 0) << name;
        EXPECT_EQ(status.st_mode & 0777u, 0600u) << name;
    }
    std::string authority = readWholeFile(box->authority());
    std::string token = box->token();
    box.reset();
    start();
    EXPECT_EQ(readWholeFile(box->authority()), authority);
    EXPECT_EQ(box->token(), token);
}

TEST_F(BoxFixture, OnlyTheAuthorityOfTheBoxVouchesForIt) {
    start();
    TemporaryFolder other;
    BoxOptions stranger = options;
    stranger.root = other.path();
    Box second(stranger);
    second.start();
    EXPECT_EQ(BoxClient(box->url(), second.authority(), box->token()).get("/api/whoami").problem,
              CURLE_PEER_FAILED_VERIFICATION);
    for (std::string_view host : {"localhost", "[::1]"}) {
        bool isV6 = host == "[::1]";
        TemporaryFolder third;
        BoxOptions named = options;
        named.root = third.path();
        named.listen = fmt::format("{}:0", host);
        Box thirdBox(named);
        thirdBox.start();
        std::string url = thirdBox.url();
        if (!isV6) url = "https://localhost" + url.substr(url.rfind(':'));
        EXPECT_EQ(BoxClient(url, thirdBox.authority(), thirdBox.token()).get("/api/whoami").status, 200)
            << host;
    }
}

TEST_F(BoxFixture, WithoutTLSTheSameCallsAreAnswered) {
    options.plain = true;
    start();
    EXPECT_TRUE(box->url().starts_with("http://"));
    EXPECT_EQ(client->upload("Jobs/a.bin", someBytes(2500)).json().at("state"), "done");
}

/// The real program as a process of its own, so that it can be killed in the middle.
class BoxProcess {
  public:
    explicit BoxProcess(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VARK_BOX_PROGRAM);
        std::vector<char*> pointers;
        for (std::string& argument : arguments)
            pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        EXPECT_EQ(::posix_spawn(&process_, VARK_BOX_PROGRAM, &actions, nullptr, pointers.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        // The line that says that both listeners are up.
        char character = 0;
        while (::read(ends[0], &character, 1) == 1 && character != '\n')
            line_ += character;
        output_ = Descriptor(ends[0]);
    }
    BoxProcess(const BoxProcess&) = delete;
    BoxProcess& operator=(const BoxProcess&) = delete;
    ~BoxProcess() {
        if (process_ > 0) end(SIGKILL);
    }

    const std::string& line() const { return line_; }
    /// The exit code, or -1 after a signal.
    int end(int signal) {
        int status = 0;
        if (signal != 0) ::kill(process_, signal);
        ::waitpid(process_, &status, 0);
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    pid_t process_ = 0;
    std::string line_;
    Descriptor output_;
};

class BoxProgram : public testing::Test {
  protected:
    BoxClient connect() {
        json::value address = json::parse(readWholeFile(root() / "address.json"));
        std::string token = readWholeFile(root() / "token");
        token.pop_back();
        return {std::string(address.at("url").as_string()), std::string(address.at("authority").as_string()),
                token};
    }
    std::filesystem::path root() const { return folder.path() / "box"; }
    std::vector<std::string> serve(std::vector<std::string> more = {}) {
        more.insert(more.begin(), {"serve", "--root", root().string(), "--chunk-size", "1000"});
        return more;
    }

    TemporaryFolder folder;
};

TEST_F(BoxProgram, WhatWasAnsweredOutlivesAKillAtTheSameAddress) {
    std::string bytes = someBytes(3500);
    std::string uploadID;
    std::string listen;
    {
        BoxProcess process(serve());
        EXPECT_NE(process.line().find("https://127.0.0.1:"), std::string::npos) << process.line();
        BoxClient client = connect();
        EXPECT_EQ(client.upload("Jobs/done.bin", "done").json().at("state"), "done");
        json::value begun = client.begin("Jobs/half.bin", bytes).json();
        uploadID = begun.at("upload_id").as_string();
        std::string base(begun.at("chunk_url").as_string());
        client.send("PUT", base + "/1", std::string_view(bytes).substr(1000, 1000));
        // This one is cut off by the kill: its bytes are in the file, and it must not count.
        client.control("POST", "/control/faults",
                       {{"kind", "stall"}, {"listener", "chunk"}, {"after_bytes", 900}});
        client.send("PUT", base + "/2", std::string_view(bytes).substr(2000, 1000), {}, 150);
        std::string url(json::parse(readWholeFile(root() / "address.json")).at("url").as_string());
        listen = url.substr(url.rfind('/') + 1);
        EXPECT_EQ(process.end(SIGKILL), -1);
    }
    BoxProcess process(serve({"--listen", listen}));
    BoxClient client = connect();
    EXPECT_NE(process.line().find(listen), std::string::npos);
    EXPECT_EQ(client.begin("Jobs/done.bin", "done").json(), json::value({{"exists", true}}));
    json::value again = client.begin("Jobs/half.bin", bytes).json();
    EXPECT_EQ(again.at("upload_id"), json::value(uploadID));
    EXPECT_EQ(again.at("have"), json::value(json::array{1}));
    EXPECT_EQ(client.upload("Jobs/half.bin", bytes).json().at("state"), "done");
    std::int64_t id = client.itemID("Jobs/half.bin");
    EXPECT_EQ(client.get(fmt::format("/api/file/{}", id)).body, bytes);
}

TEST_F(BoxProgram, AChunkWhoseBytesAreLostIsAskedForAgain) {
    std::string bytes = someBytes(1500);
    {
        BoxProcess process(serve());
        BoxClient client = connect();
        json::value begun = client.begin("Jobs/a.bin", bytes).json();
        client.send("PUT", std::string(begun.at("chunk_url").as_string()) + "/0",
                    std::string_view(bytes).substr(0, 1000));
        process.end(SIGKILL);
    }
    for (const auto& entry : std::filesystem::directory_iterator(root() / "uploads")) {
        std::filesystem::resize_file(entry.path(), 999);
    }
    BoxProcess process(serve());
    BoxClient client = connect();
    EXPECT_EQ(client.begin("Jobs/a.bin", bytes).json().at("have"), json::array());
    EXPECT_EQ(client.upload("Jobs/a.bin", bytes).json().at("state"), "done");
}

TEST_F(BoxProgram, ItEndsCleanlyWhenToldToAndRefusesWithASentenceAndACode) {
    for (int signal : {SIGTERM, SIGINT}) {
        BoxProcess process(serve());
        EXPECT_EQ(process.end(signal), 0);
    }
    EXPECT_EQ(BoxProcess(serve({"--listen", "0.0.0.0:0"})).end(0), 1);
    EXPECT_NE(BoxProcess(serve({"--chunk-size", "0"})).end(0), 0);
    EXPECT_NE(BoxProcess(serve({"--token-file", (folder.path() / "none").string()})).end(0), 0);
    EXPECT_EQ(BoxProcess(serve({"--fault", "{"})).end(0), 1);
    EXPECT_EQ(BoxProcess(serve({"--fault", R"({"kind":"none"})"})).end(0), 1);
}

}  // namespace vark::box
