#include <gtest/gtest.h>

#include <thread>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkProvider/AnchorMemory.h"
#include "VarkProvider/LastAnchor.h"

namespace vark {
namespace {

const Date afterNoon = Date::fromSince1970(1'740'000'000.75);
using Anchor = std::optional<std::string>;

class LastAnchorTest : public testing::Test {
  protected:
    TemporaryFolder folder;
    SharedStore::Folder shared = folder / "shared";
};

TEST_F(LastAnchorTest, AnswersWithAPlaceWheneverThereIsOne) {
    // What the vark said and what was stored; the answer, and what is stored then.
    // clang-format off
    const std::tuple<Anchor, const char*, std::string, Anchor> cases[] = {
        {"2|2", "1|1", "2|2", "2|2"}, {"2|2", "", "2|2", "2|2"}, {{}, "1|1", "1|1", "1|1"}, {"", "1|1", "1|1", "1|1"},
        {"pending", "1|1", "1|1", "1|1"}, {"pending:5", "", "pending:1740000000", {}}, {{}, "pending:7", "pending:1740000000", {}},
    };
    // clang-format on
    for (const auto& [varkSaid, stored, answer, storedThen] : cases) {
        LastAnchor::forgetAll(shared);
        LastAnchor::keep(stored, "k", shared);
        EXPECT_EQ(LastAnchor::answer(varkSaid, "k", shared, afterNoon), answer);
        EXPECT_EQ(LastAnchor::last("k", shared), storedThen) << answer;
    }
    EXPECT_FALSE(LastAnchor::isPending("pending-ish"));
}

TEST_F(LastAnchorTest, StartsAWhileBeforeAPendingAnchorWasGiven) {
    for (const char* nonsense : {"pending", "pending:12x", "pending:nan", "1|1"})
        EXPECT_EQ(LastAnchor::startFor(nonsense, 600, afterNoon), "1739999400.750000|0") << nonsense;
    EXPECT_EQ(LastAnchor::startFor("pending:1700000000", 600, afterNoon), "1699999400.000000|0");
    EXPECT_EQ(LastAnchor::startFor("pending:-7", 0, afterNoon), "0.000000|0");
}

TEST_F(LastAnchorTest, WritersAtOnceLoseNoKeyAndADamagedFileCountsAsEmpty) {
    folder.file("shared/anchors.json", R"({"k":"1|1")");
    EXPECT_FALSE(LastAnchor::last("k", shared));
    const auto keepMany = [this](int writer) {
        for (int number = 0; number < 25; ++number)
            LastAnchor::keep("1|1", LastAnchor::key("s", writer, number), shared);
    };
    std::vector<std::jthread> writers;
    for (int writer = 0; writer < 4; ++writer)
        writers.emplace_back(keepMany, writer);
    writers.clear();
    for (int each = 0; each < 100; ++each)
        EXPECT_EQ(LastAnchor::last(LastAnchor::key("s", each / 25, each % 25), shared), "1|1");
    EXPECT_EQ(LastAnchor::answer("1|1", "k", std::nullopt, afterNoon), "1|1") << "without a folder";
}

TEST(AnchorMemory, RemembersOneVersionAndVouchesForNothingWithoutAPlaceForIt) {
    const TemporaryFolder folder;
    const SharedStore::Folder shared = folder / "shared";
    EXPECT_FALSE(AnchorMemory::hasVouched("v1", shared));
    EXPECT_TRUE(AnchorMemory::vouch("v2", shared, Date{}));
    EXPECT_TRUE(AnchorMemory::vouch("v1", shared, Date{762'000'000.5}));
    EXPECT_EQ(readWholeFile(folder / "shared/anchor.json"), R"({"version":"v1","at":762000000.5})");
    EXPECT_TRUE(AnchorMemory::hasVouched("v1", shared));
    EXPECT_FALSE(AnchorMemory::hasVouched("v2", shared));
    AnchorMemory::forget(shared);
    EXPECT_FALSE(AnchorMemory::hasVouched("v1", shared));
    EXPECT_FALSE(AnchorMemory::vouch("", shared, Date{}));
    EXPECT_TRUE(AnchorMemory::hasVouched("v1", std::nullopt));
}

}  // namespace
}  // namespace vark
