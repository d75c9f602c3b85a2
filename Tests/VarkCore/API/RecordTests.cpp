#include <gtest/gtest.h>

#include "VarkCore/API/BinnedItem.h"
#include "VarkCore/API/ChildAnswer.h"
#include "VarkCore/API/DeviceSignIn.h"
#include "VarkCore/API/DiagnosticsReport.h"
#include "VarkCore/API/Ingest.h"
#include "VarkCore/API/Items.h"
#include "VarkCore/API/Jobs.h"
#include "VarkCore/API/Shares.h"
#include "VarkCore/API/VarkFolder.h"
#include "VarkCore/API/WhoAmI.h"
#include "VarkCore/Errors/VarkAPIError.h"

namespace vark {
namespace {

template <class Record>
Record read(std::string_view json) {
    return Record::fromJSON(parseJSON(json));
}

template <class Record>
std::string written(const Record& record) {
    JSONWriter json;
    record.encode(json);
    return json.take();
}

TEST(VarkItem, NeedsNothingButItsID) {
    const auto item = read<VarkItem>(R"({"id":5})");
    EXPECT_EQ(item, VarkItem{.id = 5});
    for (const char* body :
         {R"({})", R"({"id":null})", R"({"id":"5"})", R"({"id":5.5})", R"({"id":9223372036854775808})",
          R"({"id":5,"size":"big"})", R"({"id":5,"is_dir":1})", "[]", "5"}) {
        EXPECT_THROW(read<VarkItem>(body), DecodingError) << body;
    }
}

TEST(VarkItem, TakesItsNameFromThePathWhenItHasNone) {
    const std::pair<std::string, std::string> cases[] = {
        {R"({"id":1,"path":"a/b.txt"})", "b.txt"},           {R"({"id":1,"path":"a/"})", ""},
        {R"({"id":1,"path":"b.txt","name":null})", "b.txt"}, {R"({"id":1,"path":"a/b.txt","name":""})", ""},
        {R"({"id":1,"path":"a/b.txt","name":"c"})", "c"},
    };
    for (const auto& [body, name] : cases)
        EXPECT_EQ(read<VarkItem>(body).name, name) << body;
}

TEST(VarkItem, IsWrittenInItsOrderAndReadsBackTheSame) {
    const VarkItem full{.id = 7,
                        .path = "Jobs/Zoë \"1\".mov",
                        .name = "Zoë \"1\".mov",
                        .parent = 3,
                        .size = 512,
                        .mtime = 1700000000.5,
                        .sha256 = "ab12",
                        .kind = "movie"};
    EXPECT_EQ(written(full),
              R"({"id":7,"path":"Jobs/Zoë \"1\".mov","name":"Zoë \"1\".mov","parent":3,"size":512,)"
              R"("mtime":1700000000.5,"sha256":"ab12","kind":"movie","is_dir":false})");
    EXPECT_EQ(read<VarkItem>(written(full)), full);
    EXPECT_EQ(written(VarkItem{.id = -1, .isDir = true}),
              R"({"id":-1,"path":"","name":"","size":0,"sha256":"","kind":"","is_dir":true})");
}

TEST(VarkItem, VersionsKeepTheFormInWhichTheyAreStored) {
    EXPECT_EQ((VarkItem{.size = 3}.contentVersion()), "3|0.0|");
    EXPECT_EQ((VarkItem{.size = 512, .mtime = 0, .sha256 = "ab12"}.contentVersion()), "512|0.0|ab12");
    EXPECT_EQ((VarkItem{.size = 512, .mtime = 1700000000.5, .sha256 = "ab12"}.contentVersion()),
              "512|1700000000.5|ab12");
    EXPECT_EQ((VarkItem{.mtime = 1700000000}.contentVersion()), "0|1700000000.0|");
    EXPECT_EQ((VarkItem{.name = "x"}.metadataVersion()), "-1|x");
    EXPECT_EQ((VarkItem{.name = "Jobs", .parent = 42}.metadataVersion()), "42|Jobs");
    EXPECT_EQ((VarkItem{}.child("Jobs")), "Jobs");
    EXPECT_EQ((VarkItem{.path = "Jobs"}.child("a b")), "Jobs/a b");
}

TEST(VarkPage, SkipsWhatIsNoFolderAndDefaultsTheRest) {
    const auto page = read<VarkPage>(R"({"items":[{"id":1}],"ahead":{
        "12":{"items":[{"id":2}],"cursor":"c","more":true,"ahead":{"1":{"items":[]}}},
        "+13":{"items":[]}, "-14":{"items":[]},
        "twelve":{"items":[]}, "":{"items":[]}, "+-1":{"items":[]}, "1 ":{"items":[]},
        "9223372036854775808":{"items":[]}}})");
    VarkPage expected{.items = {VarkItem{.id = 1}}};
    expected.ahead[12] = VarkPage{.items = {VarkItem{.id = 2}}, .cursor = "c", .more = true};
    expected.ahead[13] = VarkPage{};
    expected.ahead[-14] = VarkPage{};
    EXPECT_EQ(page, expected);
    EXPECT_EQ(read<VarkChanges>("{}"), VarkChanges{});
    EXPECT_EQ(read<VarkChanges>(R"({"changed":[{"id":1}],"gone":[2,3],"cursor":"9|1","more":true})"),
              (VarkChanges{{VarkItem{.id = 1}}, {2, 3}, "9|1", true}));
}

std::string listOf(std::size_t count, std::string_view element) {
    std::string list = "[";
    for (std::size_t i = 0; i < count; ++i)
        list.append(i == 0 ? "" : ",").append(element);
    return list + "]";
}

TEST(VarkPage, RefusesWhatNoHonestVarkSends) {
    const std::string item = R"({"id":1})";
    EXPECT_EQ(read<VarkPage>(R"({"items":)" + listOf(250'000, item) + "}").items.size(), 250'000U);
    const std::string refused[] = {
        "{}",
        R"({"items":null})",
        R"({"items":{}})",
        R"({"items":[5]})",
        R"({"items":[],"more":"yes"})",
        R"({"items":[],"ahead":[]})",
        R"({"items":[],"ahead":{"12":{}}})",
        R"({"items":[],"ahead":{"12":null}})",
        R"({"items":)" + listOf(250'001, item) + "}",
        R"({"items":[{"id":1}],"ahead":{"12":{"items":)" + listOf(250'000, item) + "}}}",
        R"({"items":)" + std::string(100'000, '[') + "}",
    };
    for (const std::string& body : refused)
        EXPECT_THROW(read<VarkPage>(body), DecodingError) << body.substr(0, 80);
    EXPECT_THROW(read<VarkChanges>(R"({"gone":)" + listOf(250'001, "1") + "}"), DecodingError);
    EXPECT_THROW(read<VarkChanges>(R"({"gone":[1.5]})"), DecodingError);
}

TEST(ChildAnswer, OnlyWordsProveAbsence) {
    struct Case {
        int status;
        std::string body;
        ChildAnswer expected;
    };
    const Case cases[] = {
        {200, R"({"id":5})", ChildAnswer::child(VarkItem{.id = 5})},
        {200, "{}", ChildAnswer::noRoute()},
        {200, "", ChildAnswer::noRoute()},
        {404, R"({"error":"No such child"})", ChildAnswer::none()},
        {405, R"({"error":""})", ChildAnswer::none()},
        {404, "", ChildAnswer::noRoute()},
        {404, "{}", ChildAnswer::noRoute()},
        {404, R"({"error":404})", ChildAnswer::noRoute()},
        {405, "<html>", ChildAnswer::noRoute()},
        {500, R"({"error":"x"})", ChildAnswer::noRoute()},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ChildAnswer::from(c.status, c.body), c.expected) << c.status << " " << c.body;
    EXPECT_EQ(ChildAnswer::child(VarkItem{.id = 5}).item()->id, 5);
    EXPECT_EQ(ChildAnswer::none().item(), nullptr);
}

TEST(BinnedItem, IsNothingWhenTheAnswerCannotBeRead) {
    const BinnedItem bare{.originalPath = "Jobs/a"};
    EXPECT_EQ(BinnedItem::from(R"({"binned":true})", "Jobs/a"), bare);
    const auto full = BinnedItem::from(R"({"binned":true,"id":4,"is_dir":true,"size":9,"sha256":"ab",
        "original_path":"Old/a","deleted_by":"Kim"})",
                                       "Jobs/a");
    EXPECT_EQ(full, (BinnedItem{4, true, 9, "ab", "Old/a", "Kim"}));
    for (const char* body :
         {"", "{}", R"({"binned":false,"id":4})", R"({"binned":1})", R"({"binned":true,"id":"x"})"}) {
        EXPECT_EQ(BinnedItem::from(body, "a"), std::nullopt) << body;
    }
}

TEST(VarkFolder, ReadsBothFormsAndWritesOne) {
    EXPECT_EQ(read<VarkFolder>(R"("Jobs")"), (VarkFolder{"Jobs", std::nullopt}));
    EXPECT_EQ(read<VarkFolder>(R"({"name":"Old","area":"archive"})"), (VarkFolder{"Old", "archive"}));
    EXPECT_THROW(read<VarkFolder>(R"({"area":"archive"})"), DecodingError);
    EXPECT_EQ(written(VarkFolder{"Jobs", std::nullopt}), R"({"name":"Jobs"})");
    EXPECT_EQ(written(VarkFolder{"Old", "archive"}), R"({"name":"Old","area":"archive"})");

    EXPECT_EQ((VarkFolder{"a", std::nullopt}.areaLabel()), std::nullopt);
    EXPECT_EQ((VarkFolder{"a", "archive"}.areaLabel()), "Archive");
    EXPECT_EQ((VarkFolder{"a", "attic"}.areaLabel()), "Fridge");
    EXPECT_FALSE((VarkFolder{"a", "attic"}.isFridge()));
}

TEST(WhoAmI, MalformedSpaceNeverFailsIt) {
    const auto full = read<WhoAmI>(R"({"email":"a@b","client":"Acme","level":4,"level_label":"Edit",
        "device_name":"Studio","job_numbers":true,"space":{"used":1,"plan":2}})");
    EXPECT_EQ(full, (WhoAmI{"a@b", "Acme", 4, "Edit", "Studio", true, 1, 2}));
    for (const char* space : {R"("lots")", R"([])", R"({"used":1,"plan":"all"})", R"(null)", R"({})"}) {
        EXPECT_EQ(read<WhoAmI>(std::string(R"({"level":4,"space":)") + space + "}"), (WhoAmI{.level = 4}));
    }
    EXPECT_THROW(read<WhoAmI>(R"({"level":"four"})"), DecodingError);
    EXPECT_THROW(read<WhoAmI>(R"({"job_numbers":1})"), DecodingError);
}

TEST(VarkShare, IsWordedByWhenItRunsOut) {
    EXPECT_EQ((VarkShare{.url = "u", .expires = "tomorrow"}.describe()),
              "Link copied. It runs out tomorrow.");
    EXPECT_EQ((VarkShare{.url = "u", .expires = "tomorrow"}.shortDescribe()),
              "Link copied, runs out tomorrow");
    EXPECT_EQ((VarkShare{.url = "u", .expires = ""}.describe()), "Link copied.");
    EXPECT_EQ((VarkShare{.url = "u"}.shortDescribe()), "Link copied");
    const VarkShare full{"u", "tomorrow", "t", "link", "2025-01-01", 3};
    EXPECT_EQ(read<VarkShare>(written(full)), full);
    EXPECT_EQ(label(ShareAudience::domain, "Acme"), "Everyone at Acme");
    EXPECT_EQ(label(ShareAudience::domain, ""), "Everyone at your company");
    std::string expiries;
    for (const ShareExpiry expiry : allShareExpiries)
        expiries.append(wireName(expiry)).append("=").append(label(expiry)).append(";");
    EXPECT_EQ(expiries, "24h=24 hours;7d=7 days;30d=30 days;90d=90 days;");
}

TEST(VarkJob, PutsWhatItKnowsIntoOneLine) {
    EXPECT_EQ((VarkJob{.ref = "J-1042", .title = "Summer", .client = "Acme"}.line()),
              "J-1042 · Summer, Acme");
    EXPECT_EQ((VarkJob{.ref = "J-1042", .client = "Acme", .artist = "Kim"}.line()), "J-1042 · Acme");
    EXPECT_EQ((VarkJob{.ref = "J-1042", .date = "May"}.line()), "J-1042");
    EXPECT_EQ(read<VarkJob>(R"({"id":7})").line(), "");
}

TEST(DeviceClaim, TakesTheOlderNameOfTheClient) {
    EXPECT_EQ(read<DeviceClaim>(R"({"token":"t","client":"Acme"})"), (DeviceClaim{"t", "Acme", ""}));
    EXPECT_EQ(read<DeviceClaim>(R"({"token":"t","client":"Acme","client_name":"A","email":"e"})"),
              (DeviceClaim{"t", "A", "e"}));
    EXPECT_EQ(written(DeviceClaim{"t", "A", "e"}), R"({"token":"t","client_name":"A","email":"e"})");
    EXPECT_THROW(read<DeviceClaim>(R"({"client":"Acme"})"), DecodingError);
}

TEST(DevicePoll, PollsOnAtAWordItDoesNotKnow) {
    const std::pair<std::string, DevicePoll> cases[] = {
        {R"({"state":"connected","token":"t","client":"A","device_name":"Studio"})",
         DevicePoll::Connected{{"t", "A", ""}, "Studio"}},
        {R"({"state":"refused"})", DevicePoll::Refused{}},
        {R"({"state":"expired"})", DevicePoll::Expired{}},
        {R"({"state":"waiting"})", DevicePoll::Pending{}},
    };
    for (const auto& [body, expected] : cases)
        EXPECT_EQ(DevicePoll::from(body), expected) << body;
}

TEST(DiagnosticsReport, LeavesOutTheFreeSpaceThatIsNotKnown) {
    DiagnosticsReport report{"1.2", "14.1", {{"transfer", "a\nb"}}, {}};
    report.snapshot = {{{"disk", "yes"}}, 1, 2, {"Full."}, 3, "mounted", std::nullopt, 4, "idle"};
    EXPECT_EQ(
        written(report),
        R"({"app_version":"1.2","os_version":"14.1","logs":{"transfer":"a\nb"},)"
        R"("snapshot":{"permissions":{"disk":"yes"},"queued":1,"problems":2,)"
        R"("problem_reasons":["Full."],"waiting":3,"finder":"mounted","lan_nodes":4,"updater":"idle"}})");
    report.snapshot.freeBytes = 5;
    EXPECT_NE(written(report).find(R"("free_bytes":5,)"), std::string::npos);
}

}  // namespace
}  // namespace vark
