#include "VarkCore/Transfer/QueueModel.h"

#include <gtest/gtest.h>

namespace vark {
namespace {

TEST(ItemState, OnlyWhatIsInFlightIsQueuedAgain) {
    for (const char* name :
         {"queued", "hashing", "uploading", "checking", "verified", "conflict", "skipped", "failed"}) {
        TransferItem item;
        item.state = itemState(name).value();
        EXPECT_EQ(text(item.state), name);
        EXPECT_EQ(text(item.preparedForResume().state), isInFlight(item.state) ? "queued" : name);
        EXPECT_FALSE(isInFlight(item.state) && isFinished(item.state));
    }
    EXPECT_FALSE(isFinished(ItemState::failed) || isFinished(ItemState::conflict));
    EXPECT_TRUE(isInFlight(ItemState::hashing) && isInFlight(ItemState::checking));
    EXPECT_EQ(itemState("Queued"), std::nullopt);
}

TEST(TransferItem, CountsTheBytesThatTheVarkHas) {
    struct Case {
        ItemState state;
        std::int64_t size;
        std::optional<std::int64_t> chunkSize;
        std::vector<std::int64_t> doneChunks;
        std::int64_t bytes;
    };
    for (const Case& each :
         {Case{ItemState::queued, 25, 10, {0, 2, 2, 9}, 15}, Case{ItemState::queued, 25, 0, {0}, 0},
          Case{ItemState::queued, 25, {}, {0}, 0}, Case{ItemState::failed, -1, 10, {0}, 0},
          Case{ItemState::verified, 25, {}, {}, 25}, Case{ItemState::skipped, 25, 10, {0}, 25},
          Case{ItemState::conflict, 25, 10, {}, 0}}) {
        TransferItem item;
        item.state = each.state;
        item.size = each.size;
        item.chunkSize = each.chunkSize;
        item.doneChunks = each.doneChunks;
        EXPECT_EQ(item.bytesDone(), each.bytes);
    }
}

TEST(TransferJob, JoinsDestinationAndPathLeavingOutWhatIsEmpty) {
    struct Case {
        const char *destination, *relativePath, *path;
    };
    for (const Case& each :
         {Case{"", "Shoot/a", "Shoot/a"}, Case{"Jobs/2024", "Shoot/a", "Jobs/2024/Shoot/a"},
          Case{"Jobs", "", "Jobs"}, Case{"", "", ""}}) {
        TransferJob job;
        job.destination = each.destination;
        TransferItem item;
        item.relativePath = each.relativePath;
        EXPECT_EQ(job.serverPath(item), each.path);
    }
}

TEST(IngestInfo, TellsPathsRelativeToTheCard) {
    struct Case {
        const char *volumePath, *localPath, *source;
    };
    for (const Case& each : {Case{"/Volumes/CARD", "/Volumes/CARD/DCIM/a", "DCIM/a"},
                             Case{"/Volumes/CARD/", "/Volumes/CARD/DCIM/a", "DCIM/a"},
                             Case{"/Volumes/CARD", "/Volumes/CARD2/a", "/Volumes/CARD2/a"},
                             Case{"/Volumes/CARD", "/Volumes/CARD", "/Volumes/CARD"}}) {
        IngestInfo ingest;
        ingest.volumePath = each.volumePath;
        EXPECT_EQ(ingest.source(each.localPath), each.source);
    }
}

TEST(Rare, CopiesDeeplyAndComparesByValue) {
    Rare<std::string> first = "text";
    const Rare<std::string> second = first;
    *first += "!";
    EXPECT_EQ(second, "text");
    EXPECT_NE(first, second);
    first = std::nullopt;
    EXPECT_EQ(first, std::nullopt);
    EXPECT_NE(first, second);
    first = second;
    EXPECT_EQ(first.value_or("none"), "text");
    first = std::optional<std::string>();
    EXPECT_FALSE(first);
    EXPECT_EQ(first, Rare<std::string>());
}

}  // namespace
}  // namespace vark
