#include "Tests/Support/Fakes/FakeVark.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Upload/MacWideGate.h"
#include "VarkCore/Upload/UploadGate.h"
#include "VarkProvider/ProviderError.h"
#include "VarkProvider/VarkWriter.h"

namespace vark {
namespace {

using namespace std::chrono_literals;

const std::string ours(250, 'a');
const std::string oursHash = FileHasher::sha256(ours);

/// A vark that also makes, moves and renames, and says what stands where.
class WrittenVark : public test::FakeVark {
  public:
    using FakeVark::begin;

    /// Which beginnings, counted from 1, meet something else.
    std::set<int> conflicts;
    /// What is said first of children; then what has been uploaded.
    std::deque<std::variant<ChildAnswer, VarkAPIError>> asked;
    /// Paths that nothing may be made at, or moved or renamed to.
    std::set<std::string> taken;
    /// Where the last thing was put.
    std::string put;

    Task<BeginResult> begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                            bool replace, std::optional<std::int64_t> ingest,
                            std::optional<std::string> source) override {
        BeginResult begun = co_await FakeVark::begin(path, size, sha256, mtime, replace, ingest, source);
        if (conflicts.contains(count("begin"))) begun = BeginResult::Conflict{};
        co_return begun;
    }
    Task<ChildAnswer> child(std::int64_t, std::string named) override {
        const std::string path = "x/" + named;
        if (asked.empty()) co_return ChildAnswer::child({.path = path, .size = 250, .sha256 = files[path]});
        const auto answer = asked.front();
        asked.pop_front();
        if (const auto* error = std::get_if<VarkAPIError>(&answer)) throw *error;
        co_return std::get<ChildAnswer>(answer);
    }
    Task<VarkItem> item(std::int64_t id) override { co_return VarkItem{.id = id, .path = put}; }
    Task<VarkItem> item(std::string path) override { co_return VarkItem{.path = path + "!"}; }
    Task<std::string> createFolder(std::string path) override { co_return place("folder " + path, path); }
    Task<std::string> rename(std::string path, std::string to) override {
        co_return place("rename " + path + " " + to, path.substr(0, path.rfind('/') + 1) + to);
    }
    Task<std::string> move(std::string path, std::string folder) override {
        co_return place("move " + path + " " + folder, folder + path.substr(path.rfind('/')));
    }

  private:
    std::string place(std::string call, std::string to) {
        calls.push_back(std::move(call));
        if (taken.contains(to)) throw VarkAPIError::nameTaken(to);
        return put = to;
    }
};

class Upload : public testing::Test {
  protected:
    TemporaryFolder folder;
    test::TestLoop loop;
    WrittenVark vark;
    UploadGate gate{VarkUploader::slots};
    MacWideGate macWide{VarkUploader::slots, std::nullopt};
    VarkUploader uploader{vark, loop.pool, gate, macWide};
    std::shared_ptr<Progress> progress;
    std::filesystem::path file = folder.file("ours", ours);

    /// The path of the item that a task gives, or the number and sentence of its failure.
    template <class T>
    std::string endOf(Task<T> task) {
        try {
            if constexpr (!std::is_void_v<T>)
                return loop.run(std::move(task)).path;
            else
                return loop.run(std::move(task)), "done";
        } catch (...) {
            const ProviderError error = providerError(std::current_exception());
            return fmt::format("{} {}", error.code, error.description.value_or("-"));
        }
    }
    std::string sent(bool replace = false) {
        progress = std::make_shared<Progress>(0);
        return endOf(uploader.send(file, "a", replace, progress));
    }
    /// The calls so far, which begin anew.
    std::string called() { return fmt::format("{}", fmt::join(std::exchange(vark.calls, {}), ", ")); }
    /// That knows an upload of our file, of which it has the second and third chunk.
    void freshVark() {
        vark = WrittenVark();
        vark.uploads = {{"u0", {"a", 250, oursHash, {1, 2}, false}}};
    }
};

TEST_F(Upload, EndsAsTheVarkSays) {
    const VarkAPIError lost = VarkAPIError::uploadGone(), broken = VarkAPIError::server(500, "broken");
    const VarkAPIError elsewhere = VarkAPIError::wrongChunkRoute("x");
    const std::string all = "begin a, chunk u0/0, finish u0, status u0",
                      other = " Something else is already at a.";
    // Conflicts, failures, whether to replace; the end, the calls, and what has gone.
    // clang-format off
    const std::tuple<std::set<int>, decltype(vark.failures), bool, std::string, std::string, int> cases[] = {
        {{}, {}, false, "done", all, 250}, {{1}, {}, false, "-2005" + other, "begin a", 0},
        {{1}, {}, true, "done", "begin a, " + all, 250}, {{1, 2}, {}, true, "-1004" + other, "begin a, begin a", 0},
        {{}, {{"chunk", {broken, broken}}}, false, "done", "begin a, chunk u0/0, chunk u0/0, chunk u0/0, finish u0, status u0", 250},
        {{}, {{"chunk", {broken, broken, broken}}}, false, "-1004 broken", "begin a, chunk u0/0, chunk u0/0, chunk u0/0", 150},
        {{}, {{"chunk", {elsewhere}}}, false, "done", "begin a, chunk u0/0, " + all, 250},
        {{2}, {{"chunk", {elsewhere}}}, false, "-1004" + other, "begin a, chunk u0/0, begin a", 150},
        {{}, {{"chunk", {elsewhere}}, {"finish", {lost}}, {"status", {lost}}}, false, fmt::format("-1004 {}", lost.what()),
         "begin a, chunk u0/0, begin a, chunk u0/0, finish u0, begin a, finish u0, status u0", 250},
    };
    // clang-format on
    for (const auto& [conflicts, failures, replace, ends, calls, completed] : cases) {
        freshVark();
        vark.conflicts = conflicts;
        vark.failures = failures;
        EXPECT_EQ(sent(replace), ends);
        EXPECT_EQ(called(), calls);
        EXPECT_EQ(progress->completedUnitCount(), completed) << ends << calls;
    }
    vark.chunkSize = 0;
    EXPECT_TRUE(sent().starts_with("0 ")) << "chunks of no bytes";
    vark.files["a"] = oursHash;
    EXPECT_EQ(sent(), "done");
    EXPECT_EQ(called(), "begin a, begin a") << "the vark had it";
}

TEST_F(Upload, IsOverOnlyWhenTheVarkHasCheckedTheFile) {
    const UploadStatus odd{"odd", {}, {}, {}}, failed{"failed", {}, {}, {}}, bad{"failed", {}, {}, "bad"};
    // The limit, the first pause, how often it says that it is checking, and what in the end; the end, after
    // how long.
    // clang-format off
    const std::tuple<double, double, int, std::optional<UploadStatus>, std::string, double> cases[] = {
        {1200, 0.5, 8, {}, "done", 0.5 + 0.75 + 1.125 + 1.6875 + 2.53125 + 3.796875 + 5 + 5}, {1200, 7, 2, {}, "done", 14},
        {0, 0.5, 0, {}, "-1004 The vark is still checking a. ", 0}, {3, 0.5, 0, odd, "-1004 The vark is still checking a. ", 0.5 + 0.75 + 1.125 + 1.6875},
        {9, 0.5, 1, failed, "-1004 The file did not land in the vark.", 0.5}, {9, 1, 0, bad, "-1004 bad", 0},
    };
    // clang-format on
    for (const auto& [timeout, pollInterval, checking, verdict, ends, takes] : cases) {
        freshVark();
        vark.chunkTime = 0s;
        vark.checkingPolls = checking;
        vark.verdict = verdict;
        uploader.landingTimeout = timeout;
        uploader.pollInterval = pollInterval;
        const Instant begun = loop.clock.now();
        EXPECT_TRUE(sent().starts_with(ends)) << ends;
        EXPECT_NEAR(inSeconds(loop.clock.now() - begun), takes, 1e-6);
    }
}

TEST_F(Upload, BeginsWithTheFileAndEndsWithItsTask) {
    file = folder / "missing";
    EXPECT_TRUE(sent().starts_with(std::to_string(ENOENT)) && vark.calls.empty());
    file = folder.file("empty");
    EXPECT_EQ(sent(), "done");
    EXPECT_EQ(called(), "begin a, finish u1, status u1");
    const TaskHandle<void> sending = loop.start(uploader.send(folder / "ours", "a", true, nullptr));
    loop.advance(150ms);
    sending.cancel();
    loop.settle();
    EXPECT_THROW(sending.result(), CancellationError);
    EXPECT_EQ(called(), "begin a, chunk u2/0, chunk u2/1");
}

TEST_F(Upload, AChunkThatWaitsForItsNextTryKeepsNoSlot) {
    UploadGate one(1);
    uploader.gate = &one;
    vark.chunkSize = 250;
    vark.failures["chunk"] = {VarkAPIError::server(503)};
    loop.start(uploader.send(file, "a", false, nullptr));
    loop.settle();
    EXPECT_EQ(endOf(uploader.send(file, "b", false, nullptr)), "done");
    loop.advance(2s);
    EXPECT_TRUE(
        called().starts_with("begin a, chunk u1/0, begin b, chunk u2/0, finish u2, status u2, chunk u1/0"));
}

TEST_F(Upload, TakesTheNextFreeNameUnlessItsOwnBytesAreThere) {
    const VarkAPIError denied = VarkAPIError::server(403, "denied"), away = VarkAPIError::transport("away");
    const auto said = [](VarkItem item) { return ChildAnswer::child(std::move(item)); };
    const ChildAnswer own = said({.path = "own", .size = 250, .sha256 = oursHash}),
                      none = ChildAnswer::none();
    const ChildAnswer dir = said({.isDir = true, .size = 250, .sha256 = oursHash}),
                      bare = said({.size = 250});
    // How many names stand in the vark with other bytes, and what it says when asked; the end, after how many
    // beginnings.
    // clang-format off
    const std::tuple<int, decltype(vark.asked), std::string, int> cases[] = {
        {0, {}, "x/a.txt", 1}, {0, {ChildAnswer::noRoute()}, "x/a.txt!", 1}, {2, {}, "x/a (3).txt", 3},
        {5, {}, "-2005 Something else is already at x/a (5).txt.", 5}, {1, {own}, "own", 1}, {1, {away, away, own}, "own", 1},
        {1, {bare}, "x/a (2).txt", 2}, {1, {dir}, "x/a (2).txt", 2},
        {1, {none}, "x/a (2).txt", 2}, {1, {denied}, "-1000 denied", 1}, {0, {none}, "-1005 a.txt is not in the vark.", 1},
    };
    // clang-format on
    for (const auto& [names, asked, ends, begins] : cases) {
        vark = WrittenVark();
        for (int number = 1; number <= names; ++number)
            vark.files[number == 1 ? "x/a.txt" : fmt::format("x/a ({}).txt", number)] = "ff";
        vark.asked = asked;
        EXPECT_EQ(endOf(VarkWriter(uploader).upload(file, "a.txt", {.path = "x"}, false, nullptr)), ends);
        EXPECT_EQ(vark.count("begin"), begins) << ends;
    }
    EXPECT_EQ(endOf(VarkWriter(uploader).replaceContents({.path = "x/b"}, file, nullptr)), "");
    EXPECT_EQ(vark.files["x/b"], oursHash);
    vark.failures["begin"] = {VarkAPIError::nameTaken("held")};
    EXPECT_EQ(endOf(VarkWriter(uploader).upload(file, "a.txt", {}, true, nullptr)), "-2005 held")
        << "to be replaced";
}

TEST_F(Upload, MovesAndRenamesAroundNamesThatAreTaken) {
    const VarkItem item{.id = 5, .path = "x/a.txt", .name = "a.txt", .parent = 1};
    using Into = std::optional<VarkItem>;
    const Into none, same = VarkItem{.id = 1, .path = "x"}, other = VarkItem{.id = 2, .path = "y"};
    const std::set<std::string> all = {"x/b", "x/b (2)", "x/b (3)", "x/b (4)", "x/b (5)"};
    using Name = std::optional<std::string>;
    // clang-format off
    const std::tuple<Into, Name, std::set<std::string>, std::string, std::string> cases[] = {
        {none, {}, {}, "x/a.txt", ""}, {same, "a.txt", {}, "x/a.txt", ""}, {other, {}, {}, "y/a.txt", "move x/a.txt y"},
        {other, "b", {}, "y/b", "move x/a.txt y, rename y/a.txt b"},
        {none, "b", {"x/b"}, "x/b (2)", "rename x/a.txt b, rename x/a.txt b (2)"},
        {other, "a.txt", {"y/a.txt"}, "y/a (2).txt", "move x/a.txt y, rename x/a.txt a (2).txt, move x/a (2).txt y"},
        {other, {}, {"y/a.txt", "x/a (2).txt"}, "-2005 x/a (2).txt", "move x/a.txt y, rename x/a.txt a (2).txt"},
        {none, "b", all, "-2005 x/b (5)", "rename x/a.txt b, rename x/a.txt b (2), rename x/a.txt b (3), rename x/a.txt b (4), rename x/a.txt b (5)"},
    };
    // clang-format on
    for (const auto& [into, named, taken, ends, calls] : cases) {
        vark.put = item.path;
        vark.taken = taken;
        EXPECT_EQ(endOf(VarkWriter(uploader).relocate(item, into, named)), ends);
        EXPECT_EQ(called(), calls);
    }
    EXPECT_EQ(endOf(VarkWriter(uploader).makeFolder("b", *same)), "-2005 x/b") << "the caller's to deal with";
}

}  // namespace
}  // namespace vark
