#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "VarkCore/API/Messages/ChildAnswer.h"
#include "VarkCore/API/Messages/DeviceSignIn.h"
#include "VarkCore/API/Messages/Items.h"
#include "VarkCore/API/Messages/Shares.h"
#include "VarkCore/API/Messages/VarkFolder.h"
#include "VarkCore/API/Messages/WhoAmI.h"
#include "VarkCore/Errors/VarkAPIError.h"

namespace vark {
namespace {

template <class Record>
Record read(std::string_view json) {
    return Record::fromJSON(parseJSON(json));
}
template <class Record>
std::string rewritten(std::string_view json) {
    JSONWriter writer;
    read<Record>(json).encode(writer);
    return writer.take();
}

TEST(Records, AreReadInEveryFormAndWrittenInOne) {
    struct Case {
        std::string (*rewritten)(std::string_view);
        std::string read;
        /// The same when empty.
        std::string written = "";
    };
    // clang-format off
    const Case cases[] = {
        {rewritten<VarkItem>, R"({"id":7,"path":"Jobs/Zoë \"1\".mov","name":"Zoë \"1\".mov","parent":3,"size":512,)"
                              R"("mtime":1700000000.5,"sha256":"ab12","kind":"movie","is_dir":false})"},
        {rewritten<VarkItem>, R"({"id":1,"path":"a/b.txt","name":null,"is_dir":true})",
                              R"({"id":1,"path":"a/b.txt","name":"b.txt","size":0,"sha256":"","kind":"","is_dir":true})"},
        {rewritten<VarkFolder>, R"("Jobs")", R"({"name":"Jobs"})"},
        {rewritten<VarkFolder>, R"({"name":"Old","area":"archive"})"},
        {rewritten<VarkShare>, R"({"url":"u"})"},
        {rewritten<VarkShare>, R"({"url":"u","expires":"e","title":"t","audience":"a","expires_at":"2025-01-01","share_id":3})"},
        {rewritten<DeviceClaim>, R"({"token":"t","client_name":"A","client":"B","email":"e"})",
                                 R"({"token":"t","client_name":"A","email":"e"})"},
        {rewritten<DeviceClaim>, R"({"token":"t","client":"Acme"})", R"({"token":"t","client_name":"Acme","email":""})"},
    };
    // clang-format on
    for (const Case& c : cases)
        EXPECT_EQ(c.rewritten(c.read), c.written.empty() ? c.read : c.written);
}

TEST(VarkItem, VersionsKeepTheFormInWhichTheyAreStored) {
    const VarkItem item{.name = "Jobs", .parent = 42, .size = 512, .mtime = 1700000000, .sha256 = "ab12"};
    EXPECT_EQ(item.contentVersion(), "512|1700000000.0|ab12");
    EXPECT_EQ(item.metadataVersion(), "42|Jobs");
}

TEST(VarkPage, BringsTheFirstPagesOfItsFolders) {
    const auto page = read<VarkPage>(R"({"items":[{"id":1}],"ahead":{
        "12":{"items":[{"id":2}],"cursor":"c","more":true,"ahead":{"1":{"items":[]}}},
        "+13":{"items":[]}, "twelve":{"items":[]}, "+-1":{"items":[]}, "9223372036854775808":{"items":[]}}})");
    VarkPage expected{.items = {VarkItem{.id = 1}}};
    expected.ahead[12] = VarkPage{.items = {VarkItem{.id = 2}}, .cursor = "c", .more = true};
    expected.ahead[13] = VarkPage{};
    EXPECT_EQ(page, expected);
    EXPECT_EQ(read<VarkChanges>(R"({"changed":[{"id":1}],"gone":[2,3],"cursor":"9|1","more":true})"),
              (VarkChanges{{VarkItem{.id = 1}}, {2, 3}, "9|1", true}));
}

std::string listOf(std::size_t count, const std::string& element) {
    return fmt::format("[{}]", fmt::join(std::vector(count, element), ","));
}

TEST(VarkPage, RefusesWhatNoHonestVarkSends) {
    const std::string item = R"({"id":1})";
    const std::string longest = R"({"items":)" + listOf(250'000, item);
    EXPECT_EQ(read<VarkPage>(longest + "}").items.size(), 250'000U);
    const std::string refused[] = {
        "{}",  // An empty folder must not be made of what is no answer.
        R"({"items":null})",
        R"({"items":[5]})",
        R"({"items":[],"ahead":{"12":{}}})",
        R"({"items":)" + listOf(250'001, item) + "}",
        R"({"items":[{"id":1}],"ahead":{"12":)" + longest + "}}}",
    };
    for (const std::string& body : refused)
        EXPECT_THROW(read<VarkPage>(body), DecodingError) << body.substr(0, 80);
    EXPECT_THROW(read<VarkChanges>(R"({"gone":)" + listOf(250'001, "1") + "}"), DecodingError);
    EXPECT_THROW(read<VarkItem>(R"({"id":5.5})"), DecodingError);
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
        {404, R"({"error":"No such child"})", ChildAnswer::none()},
        {405, R"({"error":""})", ChildAnswer::none()},
        {404, "", ChildAnswer::noRoute()},
        {404, R"({"error":404})", ChildAnswer::noRoute()},
        {405, "<html>", ChildAnswer::noRoute()},
        {500, R"({"error":"x"})", ChildAnswer::noRoute()},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ChildAnswer::from(c.status, c.body), c.expected) << c.status << " " << c.body;
}

TEST(WhoAmI, MalformedSpaceNeverFailsIt) {
    EXPECT_EQ(read<WhoAmI>(R"({"level":4,"space":{"used":1,"plan":2}})").level, 4);
    for (const std::string space : {R"("lots")", R"({"used":1,"plan":"all"})", "null"})
        EXPECT_EQ(read<WhoAmI>(R"({"level":4,"space":)" + space + "}"), (WhoAmI{.level = 4}));
}

}  // namespace
}  // namespace vark
