#include "VarkCore/Transfer/Queue/QueueStore.h"

#include <gtest/gtest.h>

#include "Tests/Support/SampleQueue.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Transfer/Queue/QueueCoding.h"

namespace vark {
namespace {

const Date then = Date::fromSince1970(1'740'994'867);

/// Every field has a value, and the texts are of the awkward kind.
TransferJob fullJob() {
    TransferJob job = sampleQueue(2);
    job.pausedByVark = false;
    job.isPaused = true;
    job.ingest = IngestInfo{.id = 5,
                            .drive = "CARD \"A\"",
                            .volumePath = "/Volumes/CARD",
                            .volumeUUID = "1234-ABCD",
                            .emailMe = true,
                            .leftOut = {"a\nb", "M\xC3\xBCll"},
                            .startedAt = then,
                            .unlisted = {{IngestInfo::Unlisted::Kind::hidden, "D/.\xC3\xBC"},
                                         {IngestInfo::Unlisted::Kind::removed, "D/1", 7, 1.5}}};
    TransferItem& item = job.items[0];
    item.state = ItemState::conflict;
    item.localPath = "/tmp/line\nend \\ \"\x01\" \xF0\x9F\x8E\xAC";
    item.error = "Something else is there.";
    item.attempts = 3;
    item.finishedAt = then;
    item.replace = item.alreadyThere = item.changedWhileSent = true;
    return job;
}

class QueueStoreTest : public testing::Test {
  protected:
    TemporaryFolder folder;
    std::filesystem::path path = folder / "Support/Vark/queue.json";
    QueueStore store{path, [] { return then; }, Durability::cached};
};

TEST_F(QueueStoreTest, KeepsEveryFieldOfAJobAndQueuesAgainWhatWasInFlight) {
    TransferJob job = fullJob();
    job.items[1].state = ItemState::checking;
    job.items[1].uploadID = "u";
    job.items[1].chunkSize = 10;
    job.items[1].doneChunks = {3, 1};
    store.save(&job);
    job.items[1].state = ItemState::queued;
    EXPECT_EQ(store.load(), job);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
}

TEST_F(QueueStoreTest, WritesSortedKeysAndLeavesOutWhatIsAbsent) {
    TransferJob job{.id = sampleUUID(1), .destination = "Jobs/2025", .createdAt = then};
    job.items.push_back(
        {.id = sampleUUID(3), .localPath = "/a", .relativePath = "a", .mtime = 1'700'000'000.25});
    EXPECT_EQ(
        encodeQueue(job, then),
        R"({"job":{"clientName":"","createdAt":"2025-03-03T09:41:07Z","destination":"Jobs/2025","entries":[],)"
        R"("id":"00000000-0000-0000-0000-000000000001","isPaused":false,"items":[{"alreadyThere":false,)"
        R"("attempts":0,"doneChunks":[],"entryID":"00000000-0000-0000-0000-000000000000",)"
        R"("id":"00000000-0000-0000-0000-000000000003","localPath":"/a","mtime":1700000000.25,)"
        R"("relativePath":"a","replace":false,"size":0,"state":"queued"}],"title":""},)"
        R"("savedAt":"2025-03-03T09:41:07Z","version":1})");
}

TEST_F(QueueStoreTest, AnOlderSnapshotNeverLandsOverANewerOne) {
    TransferJob job = sampleQueue(1);
    const QueueStore::Snapshot older = store.encode(&job);
    job.title = "newer";
    const QueueStore::Snapshot newer = store.encode(&job);
    store.write(newer);
    store.write(older);
    EXPECT_EQ(store.load()->title, "newer");
    store.save(nullptr);
    store.write(newer);
    EXPECT_FALSE(exists(path));
}

TEST_F(QueueStoreTest, AFailedWriteLeavesTheOldQueueAndTheNextOneTriesAgain) {
    const TransferJob job = sampleQueue(1);
    folder.file("Support", "a file where the folder should be");
    const QueueStore::Snapshot snapshot = store.encode(&job);
    EXPECT_THROW(store.write(snapshot), FileError);
    std::filesystem::remove(folder / "Support");
    store.write(snapshot);
    EXPECT_TRUE(store.load());
}

/// The document with one piece of its text replaced.
std::string changed(std::string_view from, std::string_view to) {
    std::string bytes = encodeQueue(fullJob(), then);
    const std::size_t place = bytes.find(from);
    EXPECT_NE(place, std::string::npos) << from;
    return bytes.replace(place, from.size(), to);
}

TEST_F(QueueStoreTest, DamagedDocumentsDoNotLoad) {
    const std::string whole = encodeQueue(fullJob(), then);
    for (const std::string& bytes :
         {std::string("{}"), whole + "x", whole.substr(0, whole.size() / 2), changed(R"("attempts":3,)", ""),
          changed("conflict", "Conflict"), changed(R"("items":[)", R"("items":[7,)")})
        EXPECT_THROW(QueueStore::decode(bytes), DecodingError) << bytes;
    folder.file("Support/Vark/queue.json", "damaged");
    EXPECT_THROW(store.load(), DecodingError);
    EXPECT_TRUE(exists(path));
}

TEST_F(QueueStoreTest, ReadsWhatOtherVersionsMayWrite) {
    TransferJob job = fullJob();
    EXPECT_EQ(QueueStore::decode(changed(R"("version":1)", R"("version":7,"items":[[1],{"items":[2]}])")),
              job);
    // A hash that is none is made again.
    EXPECT_FALSE(QueueStore::decode(changed(R"("sha256":"0000)", R"("sha256":"zzzz)"))->items[0].sha256);
    // Earlier versions kept no account of what was passed over.
    job.ingest->unlisted.clear();
    std::string bytes = encodeQueue(job, then);
    const std::string_view added = R"("unlisted":[],)";
    ASSERT_TRUE(bytes.contains(added));
    EXPECT_EQ(QueueStore::decode(bytes.erase(bytes.find(added), added.size())), job);
}

}  // namespace
}  // namespace vark
