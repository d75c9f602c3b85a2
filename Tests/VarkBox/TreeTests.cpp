#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <set>

#include "Tests/VarkBox/BoxFixture.h"

namespace vark::box {

namespace json = boost::json;

class BoxTree : public BoxFixture {
  protected:
    void SetUp() override { start(); }

    Answer makeFolder(std::string_view path) { return client->post("/api/folders", {{"path", path}}); }
    Answer rename(std::string_view path, std::string_view name) {
        return client->post("/api/files/rename", {{"path", path}, {"new_name", name}});
    }
    Answer move(std::string_view path, std::string_view folder) {
        return client->post("/api/files/move", {{"path", path}, {"to_folder", folder}});
    }
    Answer bin(std::string_view path) { return client->send("DELETE", "/api/files?path=" + escaped(path)); }
    Answer binned(std::string_view path) { return client->get("/api/binned?path=" + escaped(path)); }
    long statusAt(std::string_view path) { return client->get("/api/item?path=" + escaped(path)).status; }

    std::vector<std::string> namesIn(const json::value& page) {
        std::vector<std::string> names;
        for (const json::value& item : page.at("items").as_array())
            names.emplace_back(item.at("name").as_string());
        return names;
    }
};

TEST_F(BoxTree, ANewVarkHasFoldersWithAndWithoutAnArea) {
    EXPECT_EQ(client->get("/api/folders?path=").json(),
              json::value({{"folders", json::array{json::object{{"name", "Archive"}, {"area", "archive"}},
                                                   json::object{{"name", "Fridge"}, {"area", "fridge"}},
                                                   "Jobs", "Templates"}}}));
    makeFolder("Jobs/A");
    client->upload("Jobs/file.txt", "x");
    EXPECT_EQ(client->get("/api/folders?path=Jobs").json(), json::value({{"folders", json::array{"A"}}}));
}

TEST_F(BoxTree, AFileIsTheSameByIdByPathAndAsAChild) {
    client->upload("Jobs/2024/plan.pdf", "content");
    json::value byPath = client->get("/api/item?path=Jobs/2024/plan.pdf").json();
    json::object item = byPath.as_object();
    EXPECT_EQ(item.at("path"), "Jobs/2024/plan.pdf");
    EXPECT_EQ(item.at("name"), "plan.pdf");
    EXPECT_EQ(item.at("size"), 7);
    EXPECT_EQ(item.at("sha256"), json::value(sha256("content")));
    EXPECT_EQ(item.at("mtime"), 1700000000.5);
    EXPECT_EQ(item.at("is_dir"), false);
    auto parent = item.at("parent").to_number<std::int64_t>();
    EXPECT_EQ(parent, client->itemID("Jobs/2024"));
    EXPECT_EQ(client->get(fmt::format("/api/item/{}", item.at("id").to_number<std::int64_t>())).json(),
              byPath);
    EXPECT_EQ(client->get(fmt::format("/api/child?parent={}&name=plan.pdf", parent)).json(), byPath);
    json::value top = client->get("/api/item/0").json();
    EXPECT_EQ(top.at("path"), "");
    EXPECT_FALSE(top.as_object().contains("parent"));
}

TEST_F(BoxTree, WhatIsNotThereIsToldInWordsAndAnUnknownRouteIsNot) {
    for (std::string_view target :
         {"/api/item/999", "/api/item?path=Jobs/none", "/api/child?parent=0&name=none",
          "/api/child?parent=999&name=a", "/api/items/999", "/api/file/999", "/api/changes?under=999&limit=1",
          "/api/upload/none"}) {
        Answer answer = client->get(target);
        EXPECT_EQ(answer.status, 404) << target;
        EXPECT_FALSE(answer.error().empty()) << target;
    }
    EXPECT_EQ(client->get("/api/nothing").status, 404);
    EXPECT_TRUE(client->get("/api/nothing").error().empty());
    EXPECT_EQ(client->send("DELETE", "/api/whoami").status, 405);
}

TEST_F(BoxTree, ChangesOfTheTreeAnswerWithTheNewPathOrARefusal) {
    client->upload("Jobs/a.txt", "a");
    client->upload("Jobs/b.txt", "b");
    client->upload("Jobs/Sub/a.txt", "c");
    auto path = [](std::string_view text) { return json::value({{"path", text}}); };
    EXPECT_EQ(makeFolder("Jobs/New/Deep").status, 201);
    EXPECT_EQ(makeFolder("Jobs/New/Other").json(), path("Jobs/New/Other"));
    EXPECT_EQ(rename("Jobs/b.txt", "c.txt").json(), path("Jobs/c.txt"));
    EXPECT_EQ(rename("Jobs/c.txt", "c.txt").json(), path("Jobs/c.txt"));
    EXPECT_EQ(move("Jobs/c.txt", "Jobs/New").json(), path("Jobs/New/c.txt"));
    EXPECT_EQ(move("Jobs/New/c.txt", "").json(), path("c.txt"));
    EXPECT_EQ(move("c.txt", "Jobs").json(), path("Jobs/c.txt"));
    EXPECT_EQ(rename("Jobs/New", "Newer").json(), path("Jobs/Newer"));
    EXPECT_EQ(statusAt("Jobs/Newer/Deep"), 200);

    for (const Answer& taken : {makeFolder("Jobs/Sub"), makeFolder("Jobs/a.txt"),
                                rename("Jobs/c.txt", "a.txt"), move("Jobs/a.txt", "Jobs/Sub")}) {
        EXPECT_EQ(taken.status, 409);
        EXPECT_EQ(taken.json().at("conflict"), true);
        EXPECT_FALSE(taken.error().empty());
    }
    struct Case {
        Answer answer;
        long status;
    };
    for (const Case& refused :
         {Case{rename("Jobs/none", "x"), 404}, Case{move("Jobs/none", ""), 404},
          Case{move("Jobs/a.txt", "None"), 404}, Case{move("Jobs/a.txt", "Jobs/c.txt"), 400},
          Case{move("Jobs", "Jobs/Sub"), 400}, Case{move("Jobs", "Jobs"), 400}, Case{rename("", "x"), 400},
          Case{move("", "Jobs"), 400}, Case{bin(""), 400}, Case{bin("Jobs/none"), 404},
          Case{makeFolder(""), 400}, Case{makeFolder("Jobs/a.txt/b"), 400},
          Case{rename("Jobs/a.txt", "x/y"), 400}}) {
        EXPECT_EQ(refused.answer.status, refused.status) << refused.answer.body;
        EXPECT_FALSE(refused.answer.error().empty());
    }
}

TEST_F(BoxTree, ARefusedFolderLeavesNoneOfItsParentsBehind) {
    client->upload("Jobs/file", "x");
    makeFolder("Jobs/file/b");
    EXPECT_EQ(makeFolder("Jobs/P/..").status, 400);
    EXPECT_EQ(statusAt("Jobs/P"), 404);
}

TEST_F(BoxTree, TheBinRemembersWhereThingsLayAndWhatLayInThem) {
    client->upload("Jobs/Old/plan.pdf", "one");
    std::int64_t file = client->itemID("Jobs/Old/plan.pdf");
    EXPECT_EQ(binned("Jobs/Old").json(), json::value({{"binned", false}}));
    EXPECT_EQ(bin("Jobs/Old").json(), json::value({{"bin_path", "Bin/Old"}}));
    EXPECT_EQ(statusAt("Jobs/Old/plan.pdf"), 404);
    EXPECT_EQ(client->get(fmt::format("/api/item/{}", file)).status, 404);
    json::value inside = binned("Jobs/Old/plan.pdf").json();
    EXPECT_EQ(inside.at("binned"), true);
    EXPECT_EQ(inside.at("id"), file);
    EXPECT_EQ(inside.at("sha256"), json::value(sha256("one")));
    EXPECT_EQ(inside.at("original_path"), "Jobs/Old/plan.pdf");
    EXPECT_EQ(binned("Jobs/Old/other").json(), json::value({{"binned", false}}));

    makeFolder("Jobs/Old");
    EXPECT_EQ(bin("Jobs/Old").json().at("bin_path"), "Bin/Old (2)");
    EXPECT_EQ(binned("Jobs/Old/plan.pdf").json().at("id"), file);
}

TEST_F(BoxTree, PagesGoThroughAFolderOnceWithAnyNames) {
    std::set<std::string> names = {"a",   "b\nc",     "d\"e",      "f&g=h",           "i%20j",
                                   "k+l", "\xC3\xA9", "e\xCC\x81", "\xF0\x9F\x8E\xAC"};
    for (const std::string& name : names)
        ASSERT_EQ(makeFolder("Jobs/Many/" + name).status, 201) << name;
    std::int64_t folder = client->itemID("Jobs/Many");
    std::vector<std::string> seen;
    std::string cursor;
    int pages = 0;
    while (true) {
        json::value page =
            client->get(fmt::format("/api/items/{}?limit=2&cursor={}", folder, escaped(cursor))).json();
        for (std::string& name : namesIn(page))
            seen.push_back(std::move(name));
        ++pages;
        if (!page.at("more").as_bool()) break;
        cursor = page.at("cursor").as_string();
    }
    EXPECT_EQ(pages, 5);
    EXPECT_EQ(seen, std::vector<std::string>(names.begin(), names.end()));
}

TEST_F(BoxTree, PagesAheadHoldTheFirstPageOfEachSubfolder) {
    for (std::string_view path : {"Jobs/A/1", "Jobs/A/2", "Jobs/A/3", "Jobs/B"})
        makeFolder(path);
    client->upload("Jobs/file", "x");
    std::string target = fmt::format("/api/items/{}?limit=2", client->itemID("Jobs"));
    EXPECT_FALSE(client->get(target).json().as_object().contains("ahead"));
    json::object ahead = client->get(target + "&ahead=1").json().at("ahead").as_object();
    ASSERT_EQ(ahead.size(), 2u);
    json::value first = ahead.at(fmt::format("{}", client->itemID("Jobs/A")));
    EXPECT_EQ(namesIn(first), (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(first.at("more"), true);
    std::string rest = fmt::format("/api/items/{}?cursor={}", client->itemID("Jobs/A"),
                                   std::string(first.at("cursor").as_string()));
    EXPECT_EQ(namesIn(client->get(rest).json()), std::vector<std::string>{"3"});
}

TEST_F(BoxTree, ALimitIsAtLeastOneAndAtMostAThousand) {
    json::array wanted;
    for (int i = 0; i < 1001; ++i)
        makeFolder(fmt::format("Jobs/Wide/{:04}", i));
    std::string target = fmt::format("/api/items/{}", client->itemID("Jobs/Wide"));
    EXPECT_EQ(client->get(target + "?limit=5000").json().at("items").as_array().size(), 1000u);
    for (std::string_view wrong : {"?limit=0", "?limit=-1", "?limit=many", "?limit="}) {
        EXPECT_EQ(client->get(target + std::string(wrong)).status, 400) << wrong;
    }
}

class BoxChanges : public BoxTree {
  protected:
    json::value changes(std::string_view folder, std::string_view since, int limit = 100) {
        std::int64_t id = folder.empty() ? 0 : client->itemID(folder);
        return client->get(fmt::format("/api/changes?under={}&limit={}&since={}", id, limit, escaped(since)))
            .json();
    }
    std::string end() {
        json::value answer = client->get("/api/changes?under=0&limit=1").json();
        EXPECT_TRUE(answer.at("changed").as_array().empty());
        return std::string(answer.at("cursor").as_string());
    }
    std::vector<std::string> changed(const json::value& page) {
        std::vector<std::string> paths;
        for (const json::value& item : page.at("changed").as_array())
            paths.emplace_back(item.at("path").as_string());
        return paths;
    }
};

TEST_F(BoxChanges, TheFeedTellsEachFolderWhatCameChangedAndWent) {
    client->upload("Jobs/A/keep.txt", "1");
    client->upload("Jobs/A/bin.txt", "2");
    client->upload("Jobs/A/move.txt", "3");
    makeFolder("Jobs/B");
    std::int64_t binnedID = client->itemID("Jobs/A/bin.txt");
    std::int64_t movedID = client->itemID("Jobs/A/move.txt");
    std::string start = end();
    rename("Jobs/A/keep.txt", "kept.txt");
    client->upload("Jobs/A/new.txt", "4");
    bin("Jobs/A/bin.txt");
    move("Jobs/A/move.txt", "Jobs/B");

    using Paths = std::vector<std::string>;
    json::value inA = changes("Jobs/A", start);
    EXPECT_EQ(changed(inA), (Paths{"Jobs/A/kept.txt", "Jobs/A/new.txt"}));
    EXPECT_EQ(inA.at("gone"), json::value({binnedID, movedID}));
    json::value inB = changes("Jobs/B", start);
    EXPECT_EQ(changed(inB), Paths{"Jobs/B/move.txt"});
    EXPECT_EQ(inB.at("gone"), json::array());
    json::value everywhere = changes("", start);
    EXPECT_EQ(changed(everywhere), (Paths{"Jobs/A/kept.txt", "Jobs/A/new.txt", "Jobs/B/move.txt"}));
    EXPECT_EQ(everywhere.at("gone"), json::value(json::array{binnedID}));
    EXPECT_EQ(std::string(everywhere.at("cursor").as_string()), end());
    EXPECT_TRUE(changed(changes("", end())).empty());
}

TEST_F(BoxChanges, AFolderThatMovesTakesAllThatLiesInItAlong) {
    client->upload("Jobs/A/Sub/deep.txt", "1");
    makeFolder("Jobs/B");
    std::int64_t folder = client->itemID("Jobs/A/Sub");
    std::int64_t file = client->itemID("Jobs/A/Sub/deep.txt");
    std::string start = end();
    rename("Jobs/A", "Renamed");
    using Paths = std::vector<std::string>;
    EXPECT_EQ(changed(changes("", start)),
              (Paths{"Jobs/Renamed", "Jobs/Renamed/Sub", "Jobs/Renamed/Sub/deep.txt"}));
    EXPECT_EQ(changed(changes("Jobs/Renamed/Sub", start)), Paths{"Jobs/Renamed/Sub/deep.txt"});

    start = end();
    move("Jobs/Renamed/Sub", "Jobs/B");
    EXPECT_EQ(changed(changes("Jobs/B", start)), (Paths{"Jobs/B/Sub", "Jobs/B/Sub/deep.txt"}));
    EXPECT_EQ(changes("Jobs/Renamed", start).at("gone"), json::value({folder, file}));

    start = end();
    bin("Jobs/B");
    EXPECT_EQ(changes("", start).at("gone").as_array().size(), 3u);
}

TEST_F(BoxChanges, PagesOfTheFeedGoOnWhereTheLastOneEnded) {
    std::string cursor = end();
    for (int i = 0; i < 5; ++i)
        makeFolder(fmt::format("Jobs/{}", i));
    std::vector<std::string> paths;
    for (bool more = true; more;) {
        json::value page = changes("", cursor, 2);
        for (std::string& path : changed(page))
            paths.push_back(std::move(path));
        cursor = page.at("cursor").as_string();
        more = page.at("more").as_bool();
    }
    EXPECT_EQ(paths, (std::vector<std::string>{"Jobs/0", "Jobs/1", "Jobs/2", "Jobs/3", "Jobs/4"}));
}

TEST_F(BoxChanges, APlaceMayBeATimeAndNonsenseIsRefused) {
    EXPECT_EQ(changed(changes("", "0.000000|0")).size(), 4u);
    EXPECT_TRUE(changed(changes("", "99999999999.000000|0")).empty());
    for (std::string_view wrong : {"", "x", "1|", "|1", "1|x", "1|-1", "pending"}) {
        Answer answer = client->get("/api/changes?under=0&limit=5&since=" + escaped(wrong));
        EXPECT_EQ(answer.status, 400) << wrong;
        EXPECT_FALSE(answer.error().empty()) << wrong;
    }
}

TEST_F(BoxTree, NamesAreKeptByteForByteOrRefusedWithASentence) {
    for (const std::string& name : std::vector<std::string>{
             "a b", "line\nbreak", "\"quoted\"", "it's", "back\\slash", "\xF0\x9F\x8E\xAC film.mov",
             "caf\xC3\xA9", "cafe\xCC\x81", "...", ".hidden", "100%", "a+b", "#1?", "\x01", "<b>"}) {
        std::string path = "Jobs/Names/" + name;
        EXPECT_EQ(client->upload(path, name).json().at("state"), "done") << name;
        EXPECT_EQ(client->get("/api/item?path=" + escaped(path)).json().at("name"), json::value(name));
    }
    EXPECT_EQ(makeFolder("Jobs/" + std::string(255, 'n')).status, 201);
    for (const std::string& path :
         std::vector<std::string>{"", "/Jobs", "Jobs/", "Jobs//a", "Jobs/.", "Jobs/../a", "..", "Jobs/",
                                  "Jobs/" + std::string(256, 'n')}) {
        Answer folder = makeFolder(path);
        EXPECT_EQ(folder.status, 400) << path;
        EXPECT_FALSE(folder.error().empty()) << path;
        EXPECT_EQ(client->begin(path, "x").status, 400) << path;
    }
    EXPECT_EQ(makeFolder(std::string_view("Jobs/a\0b", 8)).status, 400);
    EXPECT_EQ(client->get("/api/item?path=Jobs%2F%FF").status, 400);
}

TEST_F(BoxTree, BytesOfAFileComeWholeOrInStretches) {
    std::string bytes = someBytes(2500);
    client->upload("Jobs/film.mov", bytes);
    std::string target = fmt::format("/api/file/{}", client->itemID("Jobs/film.mov"));
    struct Case {
        const char* range;
        long status;
        std::string body;
    };
    for (const Case& range : std::vector<Case>{{"bytes=0-99", 206, bytes.substr(0, 100)},
                                               {"bytes=2400-", 206, bytes.substr(2400)},
                                               {"bytes=2400-9999", 206, bytes.substr(2400)},
                                               {"bytes=-100", 206, bytes.substr(2400)},
                                               {"bytes=-9999", 206, bytes},
                                               {"bytes=5-1", 200, bytes},
                                               {"bytes=0-1,5-6", 200, bytes},
                                               {"lines=1-2", 200, bytes}}) {
        Answer answer = client->send("GET", target, {}, {fmt::format("Range: {}", range.range)});
        EXPECT_EQ(answer.status, range.status) << range.range;
        EXPECT_EQ(answer.body, range.body) << range.range;
    }
    EXPECT_EQ(client->send("GET", target, {}, {"Range: bytes=2500-"}).status, 416);
    EXPECT_EQ(client->get(fmt::format("/api/file/{}", client->itemID("Jobs"))).status, 400);
}

TEST_F(BoxTree, TheDeskTakesTagsIngestsAndReports) {
    client->upload("Jobs/a.jpg", "a");
    client->upload("Jobs/b.jpg", "b");
    EXPECT_EQ(client->get("/api/tags").json(), json::value({{"tags", json::array()}}));
    json::object tagging{{"paths", {"Jobs/a.jpg", "Jobs/b.jpg", "Jobs/none"}}, {"tags", {"Site", "Final"}}};
    EXPECT_EQ(client->post("/api/files/tag", tagging).status, 400);
    tagging["create"] = true;
    EXPECT_EQ(client->post("/api/files/tag", tagging).json(), json::value({{"n", 2}}));
    EXPECT_EQ(client->get("/api/tags").json(),
              json::value(
                  {{"tags", json::array{json::object{{"name", "Final"}}, json::object{{"name", "Site"}}}}}));

    json::object card{
        {"drive", "CARD"}, {"destination", "Jobs"}, {"files", 1}, {"bytes", 10}, {"email_me", true}};
    Answer ingest = client->post("/api/ingest", card);
    EXPECT_EQ(ingest.status, 201);
    EXPECT_EQ(ingest.json().at("fits"), true);
    card["bytes"] = 2'000'000'000'000;
    EXPECT_EQ(client->post("/api/ingest", card).json().at("fits"), false);
    json::object report{{"skipped", json::array()}, {"left_out", {"x"}}, {"not_sent", json::array()}};
    EXPECT_EQ(client->post("/api/ingest/1/finish", report).status, 200);
    EXPECT_EQ(client->post("/api/ingest/9/finish", report).status, 404);
    EXPECT_EQ(client->control("GET", "/control/ingests").json().at("ingests").at(0).at("finished"), report);

    EXPECT_EQ(client->post("/api/diagnostics", {{"app_version", "1.0"}}).status, 201);
    EXPECT_EQ(client->control("GET", "/control/diagnostics").json().at("diagnostics").at(0).at("app_version"),
              "1.0");
}

}  // namespace vark::box
