#include "VarkCore/Upload/ChunkPlan.h"

#include <gtest/gtest.h>

#include <limits>
#include <numeric>

namespace vark {
namespace {

using Indexes = std::vector<std::int64_t>;
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

TEST(ChunkPlan, CutsAFileIntoWholeChunksAndARest) {
    struct Case {
        std::int64_t fileSize, chunkSize, count, last;
    };
    for (const Case& each :
         {Case{1, 10, 1, 1}, Case{10, 10, 1, 10}, Case{30, 10, 3, 10}, Case{31, 10, 4, 1},
          Case{5, largest, 1, 5}, Case{largest, largest, 1, largest}, Case{largest, largest - 1, 2, 1}}) {
        const ChunkPlan plan(each.fileSize, each.chunkSize);
        EXPECT_EQ(plan.count(), each.count);
        EXPECT_EQ(plan.length(each.count - 1), each.last);
        EXPECT_EQ(plan.range(each.count - 1).end, each.fileSize);
    }
    EXPECT_EQ(ChunkPlan(31, 10).range(1), (ChunkPlan::Range{10, 20}));
    EXPECT_THROW(ChunkPlan(5, 0), ChunkPlan::BadPlan);
    EXPECT_THROW(ChunkPlan(-1, 1), ChunkPlan::BadPlan);
    EXPECT_DEATH(ChunkPlan(25, 10).length(3), "does not have");
}

TEST(ChunkPlan, KnowsWhatIsMissingWhateverTheVarkSaysItHas) {
    struct Case {
        std::int64_t fileSize;
        Indexes have, missing;
        std::int64_t done;
    };
    for (const Case& each :
         {Case{25, {}, {0, 1, 2}, 0}, Case{25, {0, 0, 7, -1}, {1, 2}, 10}, Case{25, {2, 1, 2}, {0}, 15},
          Case{25, {2, 0, 1}, {}, 25}, Case{0, {0, 1}, {}, 0}, Case{25, {largest, -largest}, {0, 1, 2}, 0}}) {
        const ChunkPlan plan(each.fileSize, 10);
        EXPECT_EQ(plan.missing(each.have), each.missing);
        EXPECT_EQ(plan.bytesDone(each.have), each.done);
    }
    // Neither costs by the number of chunks, or their square.
    EXPECT_EQ(ChunkPlan(largest, 1).bytesDone(Indexes{5, 3, largest - 1}), 3);
    Indexes have(200'000);
    std::iota(have.rbegin(), have.rend(), 0);
    EXPECT_EQ(ChunkPlan(200'001, 1).missing(have), Indexes{200'000});
}

}  // namespace
}  // namespace vark
