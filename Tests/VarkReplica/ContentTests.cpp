#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/VarkReplica/FollowingWorld.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Upload/FileHasher.h"
#include "VarkReplica/ContentFetcher.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using namespace std::chrono_literals;

constexpr std::int64_t block = BlockMap::blockSize;
constexpr std::int64_t mebibyte = 1024 * 1024;

TEST(BlockMap, KnowsWhatIsWholeAndWhereTheRestBegins) {
    BlockMap map(4 * block + 10);
    EXPECT_EQ(map.firstMissing({0, 1}), 0);
    // Of bytes that come without a gap, the blocks that they touch in part are not here.
    map.add({1, 3 * block - 1});
    EXPECT_TRUE(map.has({block, 2 * block}));
    EXPECT_EQ(map.firstMissing({block, 2 * block + 1}), 2 * block);
    EXPECT_EQ(map.endOfMissing(0), block);
    EXPECT_EQ(map.endOfMissing(2 * block), map.size());
    // The last block is a short one, and nothing lies behind it.
    map.add({3 * block, map.size()});
    EXPECT_TRUE(map.has({3 * block, 100 * block}));
    EXPECT_TRUE(map.has({7 * block, 8 * block}));
    EXPECT_FALSE(map.isWhole());
    map.add({0, map.size()});
    EXPECT_TRUE(map.isWhole());
    EXPECT_TRUE(BlockMap(0).isWhole());
}

TEST(BlockMap, RunIsAsLongAsTheReaderWillSoonCome) {
    struct Case {
        const char* what;
        std::int64_t size;
        ByteRange here;
        std::int64_t missing;
        ByteRange run;
    };
    const Case cases[] = {
        {"a small file comes whole", smallFile, {block, 2 * block}, 0, {0, smallFile}},
        {"a look at the head", 100 * mebibyte, {}, 0, {0, block}},
        {"a jump", 100 * mebibyte, {0, 5 * block}, 40 * block, {40 * block, 41 * block}},
        {"reading on", 100 * mebibyte, {0, block}, block, {block, block + longestRun}},
        {"up to what is here", 100 * mebibyte, {3 * block, 4 * block}, 0, {0, block}},
        {"up to the end", 5 * mebibyte, {0, block}, block, {block, 5 * mebibyte}},
    };
    for (const Case& each : cases) {
        BlockMap map(each.size);
        map.add(each.here);
        EXPECT_EQ(runFor(map, each.missing), each.run) << each.what;
    }
}

/// At the top stand a small file, "small" (1), and a large one, "large" (2). An answer takes a second.
class ContentTest : public testing::Test, protected FollowingWorld {
  protected:
    ContentTest() {
        put(1, "small", std::string(3 * block, 's'));
        put(2, "large", std::string(6 * mebibyte, 'l'));
        vark.thinking = 1s;
        vark.taken();
    }
    void put(std::int64_t id, std::string name, std::string bytes) {
        VarkItem item = file(id, topID, std::move(name));
        item.size = std::ssize(bytes);
        item.sha256 = FileHasher::sha256(bytes);
        vark.bytes[id] = std::move(bytes);
        vark.set(item);
        learn(Items{item});
    }
    std::string bytesOf(const ContentFile& file, ByteRange range) {
        std::string bytes(static_cast<std::size_t>(range.end - range.begin), '\0');
        const ssize_t count = ::pread(file.descriptor(), bytes.data(), bytes.size(), range.begin);
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return bytes;
    }
    void restartFetcher() {
        fetcher.reset();
        fetcher = std::make_unique<ContentFetcher>(host());
    }
    ContentFetcher::Host host() {
        return {replica(), files(), vark, loop.pool, [](auto) {}, loop.executor, loop.clock};
    }

    std::unique_ptr<ContentFetcher> fetcher = std::make_unique<ContentFetcher>(host());
};

TEST_F(ContentTest, SmallFileIsFetchedOnceAndReadWhenItsChecksumIsRight) {
    const std::shared_ptr<ContentFile> content = fetcher->open(ino(1));
    const TaskHandle<void> impatient = loop.start(content->need({0, 1}));
    const TaskHandle<void> patient = loop.start(fetcher->open(ino(1))->need({0, 3 * block}));
    loop.advance(2s);
    EXPECT_FALSE(content->has({0, 1}));
    impatient.cancel();
    loop.settle();
    EXPECT_TRUE(impatient.done());
    EXPECT_FALSE(patient.done());
    loop.advance(10s);
    EXPECT_NO_THROW(patient.result());
    EXPECT_THAT(vark.taken(), ElementsAre("fetch 1 from 0"));
    EXPECT_EQ(row(1).held, Held::whole);

    // From then on it is here, whatever becomes of the program.
    restartFetcher();
    const std::shared_ptr<ContentFile> again = fetcher->open(ino(1));
    EXPECT_TRUE(again->has({0, 3 * block}));
    EXPECT_EQ(bytesOf(*again, {0, 3 * block}), vark.bytes[1]);
    // Until somebody takes it away.
    std::filesystem::remove(files().content(ino(1), row(1).content));
    restartFetcher();
    EXPECT_FALSE(fetcher->open(ino(1))->has({0, 1}));
    EXPECT_EQ(row(1).held, Held::nothing);
}

TEST_F(ContentTest, BytesThatAreNotTheVarksAreNeverCalledWhole) {
    const std::string right = vark.bytes[1];
    const std::string wrongs[] = {std::string(right.size(), 'w'), right + "longer", right.substr(1)};
    for (const std::string& wrong : wrongs) {
        vark.bytes[1] = wrong;
        const std::shared_ptr<ContentFile> content = fetcher->open(ino(1));
        EXPECT_THROW(run(content->need({0, 1})), ContentDamaged);
        EXPECT_THAT(vark.taken(), ElementsAre("fetch 1 from 0", "item 1", "fetch 1 from 0", "item 1"));
        EXPECT_FALSE(content->has({0, 1}));
        EXPECT_NE(row(1).held, Held::whole);
    }
    // Wrong once is asked for again.
    const TaskHandle<void> reader = loop.start(fetcher->open(ino(1))->need({0, 1}));
    loop.advance(3s);
    vark.bytes[1] = right;
    loop.advance(20s);
    EXPECT_NO_THROW(reader.result());
    EXPECT_EQ(row(1).held, Held::whole);
}

TEST_F(ContentTest, LookIntoALargeFileCostsItsBlockAndReadingOnARun) {
    const std::shared_ptr<ContentFile> content = fetcher->open(ino(2));
    run(content->need({10 * block + 5, 10 * block + 10}));
    loop.advance(20s);
    EXPECT_THAT(vark.taken(), ElementsAre("item 2", "fetch 2 from 2621440", "item 2"));
    EXPECT_EQ(bytesOf(*content, {10 * block, 11 * block}), std::string(block, 'l'));
    EXPECT_FALSE(content->has({11 * block, 11 * block + 1}));

    // The first of several blocks is read as soon as it has come.
    const TaskHandle<void> next = loop.start(content->need({11 * block, 12 * block}));
    loop.advance(1s);
    EXPECT_TRUE(next.done());
    EXPECT_FALSE(content->has({12 * block, 13 * block}));
    run(content->need({0, 6 * mebibyte}));
    loop.advance(20s);
    EXPECT_EQ(row(2).held, Held::whole);
    EXPECT_TRUE(std::filesystem::exists(files().content(ino(2), row(2).content)));
}

TEST_F(ContentTest, OpenFileIsNeverMixedOfTwoVersions) {
    const Ino old = ino(2);
    replica().opened(old);
    const std::shared_ptr<ContentFile> content = fetcher->open(old);
    run(content->need({0, block}));
    put(2, "large", std::string(6 * mebibyte, 'n'));
    EXPECT_EQ(bytesOf(*content, {0, 1}), "l");
    EXPECT_THROW(run(content->need({8 * block, 9 * block})), ContentReplaced);
    EXPECT_TRUE(content->has({0, block}));
    EXPECT_FALSE(content->has({8 * block, 9 * block}));

    const std::shared_ptr<ContentFile> fresh = fetcher->open(ino(2));
    run(fresh->need({0, block}));
    EXPECT_EQ(bytesOf(*fresh, {0, 1}), "n");
    // Who reads to the end hears of what changed while the bytes were on their way.
    vark.setInSecret("2=large:3");
    const TaskHandle<void> reader = loop.start(fresh->need({0, 6 * mebibyte}));
    loop.advance(30s);
    EXPECT_THROW(reader.result(), ContentReplaced);
    EXPECT_FALSE(fresh->has({0, block}));
}

TEST_F(ContentTest, FailureReachesWhoeverWaitsAndTheNextOneTriesAgain) {
    vark.failures["fetch"] = {VarkAPIError::transport("No network.")};
    const std::shared_ptr<ContentFile> content = fetcher->open(ino(1));
    EXPECT_THROW(run(content->need({0, 1})), VarkAPIError);
    EXPECT_NO_THROW(run(content->need({0, 1})));
}

TEST_F(ContentTest, NoNameFromTheVarkBecomesANameInOurFolders) {
    put(-7, "../../../tmp", "one");
    put(8, "replica.db", "two");
    put(9, "..", "three");
    for (const Listing::Entry& entry : replica().list(rootIno, 0, 100).entries) {
        if (entry.here.kind == Kind::file) run(fetcher->open(entry.ino)->need({0, 1}));
    }
    std::vector<std::string> names;
    for (const auto& each : std::filesystem::recursive_directory_iterator(files().folder())) {
        if (each.is_regular_file()) names.push_back(each.path().lexically_relative(files().folder()));
    }
    std::vector<std::string> expected = {"replica.db", "replica.db-shm", "replica.db-wal"};
    for (const std::int64_t id : {1, 8})
        expected.push_back(fmt::format("contents/{:02}/{}-0", ino(id), ino(id)));
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(expected));
}

}  // namespace
}  // namespace vark::test
