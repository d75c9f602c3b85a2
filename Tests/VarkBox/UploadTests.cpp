#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <thread>

#include "Tests/VarkBox/BoxFixture.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::box {

namespace json = boost::json;

class BoxUploads : public BoxFixture {
  protected:
    void SetUp() override { start(); }

    std::string idOf(const Answer& begun) { return std::string(begun.json().at("upload_id").as_string()); }

    Answer put(const Answer& begun, std::int64_t index, std::string_view bytes) {
        return client->send(
            "PUT", fmt::format("{}/{}", std::string(begun.json().at("chunk_url").as_string()), index), bytes);
    }

    Answer finish(const Answer& begun) {
        return client->send("POST", fmt::format("/api/upload/{}/finish", idOf(begun)));
    }

    std::string contentAt(std::string_view path) {
        return client->get(fmt::format("/api/file/{}", client->itemID(path))).body;
    }
};

TEST_F(BoxUploads, FilesOfEverySizeLandWithTheirFoldersAndComeBackByteForByte) {
    for (std::size_t size : std::initializer_list<std::size_t>{0, 1, 999, 1000, 1001, 3000, 2'500'000}) {
        std::string path = fmt::format("Jobs/2024/Site {}/file.bin", size);
        std::string bytes = someBytes(size, static_cast<unsigned>(size));
        EXPECT_EQ(client->upload(path, bytes).json().at("state"), "done") << size;
        EXPECT_EQ(contentAt(path), bytes) << size;
        EXPECT_EQ(client->begin(path, bytes).json(), json::value({{"exists", true}})) << size;
    }
}

TEST_F(BoxUploads, BytesThatTheVarkHoldsElsewhereAreNotAskedForAgain) {
    std::string bytes = someBytes(2500);
    client->upload("Jobs/first.bin", bytes);
    Answer begun = client->begin("Archive/second.bin", bytes);
    EXPECT_EQ(begun.json().at("have"), json::value({0, 1, 2}));
    EXPECT_EQ(finish(begun).status, 200);
    EXPECT_EQ(contentAt("Archive/second.bin"), bytes);
}

TEST_F(BoxUploads, ADifferentFileAtThePathIsAConflictUntilItIsToBeReplaced) {
    std::string old = someBytes(1500, 1);
    std::string fresh = someBytes(700, 2);
    client->upload("Jobs/plan.pdf", old);
    std::int64_t id = client->itemID("Jobs/plan.pdf");
    Answer refused = client->begin("Jobs/plan.pdf", fresh);
    EXPECT_EQ(refused.status, 409);
    EXPECT_EQ(refused.json().at("size"), 1500);
    EXPECT_EQ(refused.json().at("mtime"), 1700000000.5);
    EXPECT_EQ(client->upload("Jobs/plan.pdf", fresh, true).json().at("state"), "done");
    EXPECT_EQ(contentAt("Jobs/plan.pdf"), fresh);
    EXPECT_EQ(client->itemID("Jobs/plan.pdf"), id);
}

TEST_F(BoxUploads, AnUploadThatWasBrokenOffGoesOnWithWhatTheVarkHas) {
    std::string bytes = someBytes(3500);
    Answer begun = client->begin("Jobs/long.mov", bytes);
    EXPECT_EQ(begun.json().at("have"), json::array());
    EXPECT_EQ(put(begun, 2, bytes.substr(2000, 1000)).status, 200);
    EXPECT_EQ(put(begun, 3, bytes.substr(3000)).status, 200);
    Answer status = client->get("/api/upload/" + idOf(begun));
    EXPECT_EQ(status.json().at("state"), "receiving");
    EXPECT_EQ(status.json().at("received"), 1500);
    EXPECT_EQ(status.json().at("total"), 3500);
    Answer early = finish(begun);
    EXPECT_EQ(early.status, 409);
    EXPECT_EQ(early.json().at("missing"), json::value({0, 1}));

    Answer again = client->begin("Jobs/long.mov", bytes);
    EXPECT_EQ(idOf(again), idOf(begun));
    EXPECT_EQ(again.json().at("have"), json::value({2, 3}));
    EXPECT_EQ(client->upload("Jobs/long.mov", bytes).json().at("state"), "done");
    EXPECT_EQ(finish(begun).status, 200);
    EXPECT_EQ(client->get("/api/upload/" + idOf(begun)).json().at("state"), "done");
    EXPECT_EQ(put(begun, 0, bytes.substr(0, 1000)).status, 410);
}

TEST_F(BoxUploads, ChunksThatCannotBeRightAreRefusedWithASentence) {
    std::string bytes = someBytes(2500);
    Answer begun = client->begin("Jobs/a.bin", bytes);
    std::string base(begun.json().at("chunk_url").as_string());
    std::string host = base.substr(0, base.find("/u/"));
    struct Case {
        std::string target;
        std::size_t length;
        long status;
    };
    for (const Case& wrong : std::vector<Case>{{base + "/0", 999, 400},
                                               {base + "/0", 1001, 400},
                                               {base + "/2", 1000, 400},
                                               {base + "/3", 1000, 400},
                                               {base + "/-1", 1000, 400},
                                               {base + "/one", 1000, 400},
                                               {host + "/u/0123/0", 1000, 404},
                                               {"/api/upload/0123/0", 1000, 404}}) {
        Answer answer = client->send("PUT", wrong.target, someBytes(wrong.length));
        EXPECT_EQ(answer.status, wrong.status) << wrong.target << " " << wrong.length;
        EXPECT_FALSE(answer.error().empty()) << wrong.target;
    }
    EXPECT_EQ(client->begin("Jobs/a.bin", bytes).json().at("have"), json::array());
}

TEST_F(BoxUploads, BytesThatAreNotTheAnnouncedOnesFailTheCheckAndTheNextBeginStartsAfresh) {
    for (std::size_t size : std::initializer_list<std::size_t>{1500, 2'000'000}) {
        std::string announced = someBytes(size, 1);
        std::string other = someBytes(size, 2);
        Answer begun = client->begin("Jobs/wrong.bin", announced);
        for (std::size_t i = 0; i * 1000 < size; ++i)
            put(begun, static_cast<std::int64_t>(i), other.substr(i * 1000, 1000));
        EXPECT_EQ(finish(begun).status, 202);
        Answer status = client->settled(idOf(begun));
        EXPECT_EQ(status.json().at("state"), "failed");
        EXPECT_FALSE(status.error().empty());
        EXPECT_EQ(client->get("/api/item?path=Jobs/wrong.bin").status, 404);
        Answer again = client->begin("Jobs/wrong.bin", announced);
        EXPECT_NE(idOf(again), idOf(begun));
        EXPECT_EQ(again.json().at("have"), json::array());
    }
}

TEST_F(BoxUploads, OfTwoUploadsToOnePathTheSecondLandsOnlyIfItReplaces) {
    struct Case {
        bool replaces;
        const char* state;
    };
    for (const Case& second : {Case{false, "failed"}, Case{true, "done"}}) {
        std::string path = fmt::format("Jobs/race {}.bin", second.replaces);
        std::string first = someBytes(800, 1);
        std::string other = someBytes(900, 2);
        Answer slow = client->begin(path, other, second.replaces);
        client->upload(path, first);
        put(slow, 0, other);
        finish(slow);
        EXPECT_EQ(client->settled(idOf(slow)).json().at("state"), second.state);
        EXPECT_EQ(contentAt(path), second.replaces ? other : first);
    }
}

TEST_F(BoxUploads, TwoSendersOfOneChunkAtOnceDoNoHarm) {
    std::string bytes = someBytes(1000);
    Answer begun = client->begin("Jobs/twice.bin", bytes);
    std::vector<std::jthread> senders;
    std::vector<long> statuses(8);
    for (long& status : statuses) {
        senders.emplace_back([&, url = std::string(begun.json().at("chunk_url").as_string())] {
            status = BoxClient(*box).send("PUT", url + "/0", bytes).status;
        });
    }
    senders.clear();
    EXPECT_EQ(statuses, std::vector<long>(8, 200));
    EXPECT_EQ(finish(begun).status, 200);
    EXPECT_EQ(contentAt("Jobs/twice.bin"), bytes);
}

TEST_F(BoxUploads, AChunkThatHasLandedIsNotChangedByALaterOne) {
    std::string bytes = someBytes(2000, 1);
    Answer begun = client->begin("Jobs/fixed.bin", bytes);
    put(begun, 0, bytes.substr(0, 1000));
    EXPECT_EQ(put(begun, 0, someBytes(1000, 2)).status, 200);
    put(begun, 1, bytes.substr(1000));
    EXPECT_EQ(finish(begun).status, 200);
}

TEST_F(BoxUploads, ACancelledUploadIsForgottenWithItsBytes) {
    std::string bytes = someBytes(2000);
    Answer begun = client->begin("Jobs/gone.bin", bytes);
    put(begun, 0, bytes.substr(0, 1000));
    std::string target = "/api/upload/" + idOf(begun);
    EXPECT_EQ(client->send("DELETE", target).status, 200);
    EXPECT_EQ(client->send("DELETE", target).status, 404);
    EXPECT_EQ(client->get(target).status, 404);
    EXPECT_EQ(put(begun, 1, bytes.substr(1000)).status, 404);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "uploads"));
}

TEST_F(BoxUploads, AnnouncementsThatMakeNoSenseAreRefusedWithASentence) {
    json::object good{{"path", "Jobs/a.bin"}, {"size", 3}, {"sha256", sha256("abc")}, {"mtime", 1.5}};
    client->upload("Jobs/file", "x");
    struct Case {
        const char* key;
        json::value value;
        long status;
    };
    for (const Case& wrong : std::vector<Case>{{"path", nullptr, 400},
                                               {"path", "", 400},
                                               {"path", 7, 400},
                                               {"path", "Jobs/file/inside", 400},
                                               {"path", "Jobs", 409},
                                               {"size", -1, 400},
                                               {"size", "3", 400},
                                               {"size", 1.5, 400},
                                               {"sha256", "ABC", 400},
                                               {"replace", "yes", 400}}) {
        json::object request = good;
        request[wrong.key] = wrong.value;
        Answer answer = client->post("/api/upload/begin", request);
        EXPECT_EQ(answer.status, wrong.status) << json::value(request);
        EXPECT_FALSE(answer.error().empty()) << json::value(request);
    }
    EXPECT_EQ(client->send("POST", "/api/upload/begin", "{").status, 400);
}

TEST_F(BoxUploads, TheRequestLogTellsOfTheTokenButNeverItsText) {
    client->send("GET", "/api/whoami", {}, {"X-Vark-Via: Finder", "User-Agent: tests"});
    Answer begun = client->begin("Jobs/a.bin", "abc");
    put(begun, 0, "abc");
    std::string log = readWholeFile(folder.path() / "requests.jsonl");
    EXPECT_EQ(log.find(box->token()), std::string::npos);
    std::vector<json::object> lines = logIn(folder.path());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].at("via"), "Finder");
    EXPECT_EQ(lines[0].at("user_agent"), "tests");
    EXPECT_EQ(lines[0].at("token"), true);
    EXPECT_EQ(lines[0].at("target"), "/api/whoami");
    EXPECT_EQ(lines[2].at("listener"), "chunk");
    EXPECT_EQ(lines[2].at("method"), "PUT");
    EXPECT_EQ(lines[2].at("status"), 200);
    EXPECT_EQ(lines[2].at("body_bytes"), 3);
    EXPECT_EQ(lines[2].at("token"), false);
}

TEST_F(BoxFixture, WithoutAChunkAddressChunksGoThroughTheApplicationWithTheToken) {
    options.givesChunkURL = false;
    start();
    EXPECT_FALSE(client->begin("Jobs/a.bin", "abc").json().as_object().contains("chunk_url"));
    EXPECT_EQ(client->upload("Jobs/a.bin", "abc").json().at("state"), "done");
    Answer begun = client->begin("Jobs/b.bin", "abd");
    client->setToken("");
    EXPECT_EQ(
        client
            ->send("PUT",
                   fmt::format("/api/upload/{}/0", std::string(begun.json().at("upload_id").as_string())),
                   "abd")
            .status,
        401);
}

}  // namespace vark::box
