#include "VarkCore/Transfer/QueueModel.h"

#include <gtest/gtest.h>

#include "Tests/Support/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark {
namespace {

TEST(TransferItem, CountsTheBytesThatTheVarkHas) {
    struct Case {
        ItemState state;
        std::optional<std::int64_t> chunkSize;
        std::vector<std::int64_t> doneChunks;
        std::int64_t bytes;
    };
    const Case cases[] = {
        {ItemState::queued, 10, {0, 2, 2, 9}, 15}, {ItemState::queued, 0, {0}, 0},
        {ItemState::queued, {}, {0}, 0},           {ItemState::verified, {}, {}, 25},
        {ItemState::skipped, 10, {0}, 25},         {ItemState::conflict, 10, {}, 0},
    };
    for (const Case& each : cases) {
        TransferItem item;
        item.size = 25;
        item.state = each.state;
        item.chunkSize = each.chunkSize;
        item.doneChunks = each.doneChunks;
        EXPECT_EQ(item.bytesDone(), each.bytes) << (&each - cases);
    }
}

TEST(IngestInfo, TellsPathsRelativeToTheCard) {
    IngestInfo ingest;
    for (const char* volumePath : {"/Volumes/CARD", "/Volumes/CARD/"}) {
        ingest.volumePath = volumePath;
        EXPECT_EQ(ingest.source("/Volumes/CARD/DCIM/a"), "DCIM/a");
        EXPECT_EQ(ingest.source("/Volumes/CARD2/a"), "/Volumes/CARD2/a");
    }
}

TEST(IngestInfo, KnowsItsOwnCardFromAnotherInTheSamePlace) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder / "ALPHA");
    IngestInfo ingest;
    ingest.volumePath = folder / "ALPHA";
    ingest.volumeUUID = "1234-ABCD";
    const Volume own{.name = "ALPHA", .path = folder / "ALPHA", .id = "1234-ABCD"};
    const Volume other{.name = "ALPHA", .path = folder / "ALPHA", .id = "5678-EF01"};
    const Volume nameless{.name = "ALPHA", .path = folder / "ALPHA"};
    const Volume elsewhere{.name = "ALPHA", .path = folder / "ALPHA1", .id = "1234-ABCD"};
    FakeVolumes volumes;
    EXPECT_FALSE(ingest.driveIsHere(volumes));
    for (const Volume& volume : {own, other, nameless, elsewhere}) {
        volumes.table = {volume};
        EXPECT_EQ(ingest.driveIsHere(volumes), volume == own) << volume.id.value_or("-");
    }
    volumes.table = {own};
    std::filesystem::remove(folder / "ALPHA");
    EXPECT_FALSE(ingest.driveIsHere(volumes));
}

TEST(Rare, CopiesDeeplyAndComparesByValue) {
    Rare<std::string> first = "text";
    const Rare<std::string> second = first;
    *first += "!";
    EXPECT_EQ(second, "text");
    EXPECT_NE(first, second);
    first = std::nullopt;
    EXPECT_EQ(first, Rare<std::string>());
    EXPECT_NE(first, second);
    first = second;
    EXPECT_EQ(first.value_or("none"), "text");
}

}  // namespace
}  // namespace vark
