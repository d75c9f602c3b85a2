#include "EngineFixture.h"
#include "QueueShadow.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class EngineObserver : public EngineTest {
  protected:
    std::vector<std::size_t> members(const IndexSet& set) const {
        std::vector<std::size_t> list;
        for (const std::size_t place : set)
            list.push_back(place);
        return list;
    }
};

TEST_F(EngineObserver, IsToldOfWhatChangesAndOfNothingElse) {
    QueueShadow shadow(*engine);
    engine->open();
    for (const char* name : {"a/1", "a/2", "a/3", "b/4", "b/5"})
        write(name, 2500);
    const UUID first = add({folder.path() / "files/a"}).entries.at(0);
    add({folder.path() / "files/b"});
    EXPECT_THAT(shadow.told(), ElementsAre("renewed", "appended 0+3", "appended 3+2"));
    engine->maxConcurrentFiles = 2;
    engine->start(false);
    loop.advance(150ms);
    // Two have a task, and their bytes are on the way.
    EXPECT_THAT(shadow.told(), UnorderedElementsAre("0", "1"));
    shadow.expectTheQueue();
    loop.advance(100ms);
    EXPECT_THAT(shadow.told(), UnorderedElementsAre("0", "1"));
    vark->lasting.emplace("begin", VarkAPIError::server(400));
    loop.advance(10s);
    EXPECT_THAT(members(engine->failedItems()), ElementsAre(2, 3, 4));
    shadow.expectTheQueue();
    shadow.told();
    engine->setTitle("of no item");
    EXPECT_THAT(shadow.told(), IsEmpty());
    engine->setHold("sleep", "Asleep");
    engine->retryFailed();
    EXPECT_THAT(shadow.told(), UnorderedElementsAre("2", "3", "4"));
    EXPECT_THAT(members(engine->failedItems()), IsEmpty());
    engine->remove(first);
    EXPECT_THAT(shadow.told(), ElementsAre("renewed"));
    shadow.expectTheQueue();
    engine->clearAll();
    EXPECT_THAT(shadow.told(), ElementsAre("renewed"));
    shadow.expectTheQueue();
}

TEST_F(EngineObserver, DecisionsAreMadeForTheConflictsOfTheirEntryAlone) {
    for (const char* name : {"a/1", "a/2", "b/3", "b/4"}) {
        write(name, 10);
        vark->files[name] = "another";
    }
    vark->files.erase("b/3");
    engine->start(false);
    const UUID first = add({folder.path() / "files/a"}).entries.at(0);
    add({folder.path() / "files/b"});
    loop.advance(5s);
    EXPECT_THAT(members(engine->conflicts()), ElementsAre(0, 1, 3));
    // A restart finds them again.
    engine->flush();
    makeEngine();
    engine->open();
    EXPECT_THAT(members(engine->conflicts()), ElementsAre(0, 1, 3));
    engine->resolveAllConflicts(first, false);
    EXPECT_THAT(states(), ElementsAre("skipped", "skipped", "verified", "conflict"));
    EXPECT_THAT(members(engine->conflicts()), ElementsAre(3));
}

}  // namespace
}  // namespace vark::test
