#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Policies/Diagnostics.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(Diagnostics, CarriesOnlyWhatIsNewInEachLogAndInWholeLinesWhereItCuts) {
    TemporaryFolder folder;
    const std::map<std::string, std::filesystem::path> logs{{"extensions", folder / "none.log"},
                                                            {"transfer", folder.file("log", "one\ntwo\n")}};
    const Diagnostics::NewInLogs news = Diagnostics::newIn(logs, {}, 100);
    EXPECT_THAT(news.logs, ElementsAre(Pair("transfer", "one\ntwo\n")));
    EXPECT_THAT(Diagnostics::newIn(logs, {}, 6).logs, ElementsAre(Pair("transfer", "two\n")));
    folder.file("cursors.json", Diagnostics::encodeCursors(news.next));
    const LogCursors read = Diagnostics::readCursors(folder / "cursors.json");
    EXPECT_EQ(read, news.next);
    folder.file("log", "one\ntwo\nthree\n");
    EXPECT_THAT(Diagnostics::newIn(logs, read, 100).logs, ElementsAre(Pair("transfer", "three\n")));
    folder.file("log", "rolled\n");
    EXPECT_THAT(Diagnostics::newIn(logs, read, 100).logs, ElementsAre(Pair("transfer", "rolled\n")));
    folder.file("cursors.json", "{\"transfer\":7}");
    EXPECT_EQ(Diagnostics::readCursors(folder / "cursors.json"), LogCursors{});
}

TEST(Diagnostics, HoldsNoToken) {
    DiagnosticsReport report;
    report.logs["transfer"] = "Refused: abcabc is unknown (abc)";
    report.snapshot.problemReasons = {"abc"};
    const DiagnosticsReport clean = Diagnostics::without("abc", report);
    EXPECT_EQ(clean.logs.at("transfer"), "Refused: [token][token] is unknown ([token])");
    EXPECT_THAT(clean.snapshot.problemReasons, ElementsAre("[token]"));
    EXPECT_EQ(Diagnostics::without("", report), report);
}

}  // namespace
}  // namespace vark::test
