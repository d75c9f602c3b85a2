#include "VarkCore/Transfer/QueueModel.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"

namespace vark {
namespace {

TEST(ItemState, KnowsItsNameAndWhatItMeans) {
    struct Case {
        ItemState state;
        const char* name;
        bool finished, inFlight;
    };
    for (const Case& each :
         {Case{ItemState::queued, "queued", false, false}, Case{ItemState::hashing, "hashing", false, true},
          Case{ItemState::uploading, "uploading", false, true},
          Case{ItemState::checking, "checking", false, true},
          Case{ItemState::verified, "verified", true, false},
          Case{ItemState::conflict, "conflict", false, false},
          Case{ItemState::skipped, "skipped", true, false},
          Case{ItemState::failed, "failed", false, false}}) {
        EXPECT_EQ(text(each.state), each.name);
        EXPECT_EQ(itemState(each.name), each.state);
        EXPECT_EQ(isFinished(each.state), each.finished);
        EXPECT_EQ(isInFlight(each.state), each.inFlight);
        EXPECT_EQ(needsDecision(each.state), each.state == ItemState::conflict);
        TransferItem item;
        item.state = each.state;
        EXPECT_EQ(item.preparedForResume().state, each.inFlight ? ItemState::queued : each.state);
    }
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

TEST(TransferJob, GivesTheItemsOfAnEntryInQueueOrder) {
    const UUID first = UUID::random();
    const UUID second = UUID::random();
    TransferJob job;
    for (const UUID& entry : {first, second, first}) {
        job.items.push_back(
            {.id = UUID::random(), .entryID = entry, .localPath = "/a", .relativePath = "x/y"});
    }
    EXPECT_EQ(job.itemsIn(first), (std::vector<const TransferItem*>{&job.items[0], &job.items[2]}));
    EXPECT_TRUE(job.itemsIn(UUID::random()).empty());
    EXPECT_EQ(job.items[0].name(), "y");
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

TEST(IngestInfo, SeesWhetherTheDriveIsThere) {
    const TemporaryFolder folder;
    IngestInfo ingest;
    ingest.drive = "CARD";
    ingest.volumePath = folder.path();
    EXPECT_TRUE(ingest.driveIsHere());
    ingest.volumePath = folder / "gone";
    EXPECT_FALSE(ingest.driveIsHere());
    EXPECT_EQ(ingest.waitingLine(), "Plug CARD back in to carry on. Nothing is lost.");
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
