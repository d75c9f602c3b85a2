#include "VarkCore/Fetching/Fetching.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "Tests/Support/Fakes/SilentVark.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

/// A vark that has folders and the bytes of files, on the test's thread.
class Shelf final : public test::SilentVark {
  public:
    std::map<std::int64_t, std::vector<VarkItem>> folders;
    std::map<std::int64_t, std::string> contents;
    /// From where each file was asked for.
    std::vector<std::int64_t> asked;
    bool sendsParts = true;
    /// What a request for a part is answered with, if not with the part.
    std::optional<VarkAPIError> refusalOfParts;
    /// So many bytes come, and then the connection drops.
    std::optional<std::size_t> dropsAfter;

    /// One item a page.
    Task<VarkPage> children(std::int64_t of, std::string cursor, std::int64_t, bool) override {
        co_await yieldNow();
        const std::vector<VarkItem>& all = folders.at(of);
        const std::size_t place = cursor.empty() ? 0 : std::stoul(cursor);
        VarkPage page{.cursor = std::to_string(place + 1), .more = place + 1 < all.size()};
        if (place < all.size()) page.items.push_back(all[place]);
        co_return page;
    }
    Task<void> fetch(std::int64_t id, ContentSink& sink) override {
        co_await yieldNow();
        asked.push_back(sink.next());
        if (sink.next() > 0 && refusalOfParts) throw VarkAPIError(*refusalOfParts);
        if (!contents.contains(id)) throw VarkAPIError::server(404);
        const std::int64_t from = sendsParts ? sink.next() : 0;
        sink.take(from, contents[id].substr(static_cast<std::size_t>(from), dropsAfter.value_or(1000)));
        if (dropsAfter) throw VarkAPIError::transport("The connection dropped.");
    }
};

class FetchingTest : public testing::Test {
  public:
    static VarkItem fileItem(std::int64_t id, const std::string& name, const std::string& bytes) {
        return {.id = id, .name = name, .size = std::ssize(bytes), .sha256 = FileHasher::sha256(bytes)};
    }
    static VarkItem folderItem(std::int64_t id, const std::string& name) {
        return {.id = id, .name = name, .isDir = true};
    }
    /// A file of the vark, which sends these bytes for it.
    VarkItem serve(std::int64_t id, const std::string& name, const std::string& bytes) {
        vark->contents[id] = bytes;
        return fileItem(id, name, bytes);
    }
    Task<void> fetching(VarkItem top, WhatStands whatStands) {
        ended.clear();
        vark->asked.clear();
        std::string name = top.name;
        WantedFiles wanted = co_await listWanted(vark, std::move(top), std::move(name));
        leftOut = wanted.leftOut;
        Fetching run({vark, loop.pool, systemDate}, whatStands,
                     [this](const FetchedFile& file) { ended.push_back(file); });
        co_await run.all(std::move(wanted), here);
        movedBytes = run.movedBytes();
    }
    void fetch(const VarkItem& top, WhatStands whatStands = WhatStands::stays) {
        loop.run(fetching(top, whatStands));
    }
    std::string failure() const { return ended.size() == 1 ? ended[0].failure.value_or("") : "not one end"; }
    static std::vector<std::string> namesIn(const std::filesystem::path& folder) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
            names.push_back(entry.path().lexically_relative(folder));
        std::ranges::sort(names);
        return names;
    }
    /// What an earlier run has left of it.
    std::filesystem::path part(const VarkItem& item, std::string_view bytes) const {
        return home.file(partOf(item).native(), bytes);
    }
    std::filesystem::path partOf(const VarkItem& item) const {
        return here / PartFile::nameFor(item.name, item.sha256);
    }

    TemporaryFolder home;
    const std::filesystem::path here = home / "here";
    std::shared_ptr<Shelf> vark = std::make_shared<Shelf>();
    std::int64_t movedBytes = 0;
    std::vector<FetchedFile> ended;
    std::vector<WantedFiles::LeftOut> leftOut;
    test::TestLoop loop;

    void SetUp() override { std::filesystem::create_directory(here); }
    void TearDown() override { loop.scope.endAll(); }
};

TEST_F(FetchingTest, NothingIsWrittenOutsideWhateverTheVarkAnswersAndWhereverLinksLead) {
    home.file("outside/a.mov", "precious");
    std::filesystem::create_directories(here / "Shoot");
    std::filesystem::create_directory_symlink(home / "outside", here / "Shoot/out");
    std::filesystem::create_symlink(home / "outside/a.mov", here / "Shoot/a.mov");
    std::filesystem::create_symlink(home / "outside/new.mov", here / "Shoot/dangling.mov");

    vark->folders[1] = {serve(2, "a.mov", "evil"),     serve(3, "dangling.mov", "evil"),
                        folderItem(4, "out"),          folderItem(1, "again"),
                        serve(20, "good.mov", "good"), serve(21, "good.mov", "twin")};
    vark->folders[4] = {serve(5, "a.mov", "evil")};
    std::int64_t id = 100;
    for (const char* name : {"..", ".", "", "../planted", "a/..", "/", "\x1b[2J"}) {
        vark->folders[1].push_back(serve(++id, name, "evil"));
        vark->folders[1].push_back(folderItem(++id, name));
        vark->folders[id] = {serve(++id, "planted", "evil")};
    }
    fetch(folderItem(1, "Shoot"), WhatStands::isReplaced);

    EXPECT_THAT(namesIn(home / "outside"), ElementsAre("a.mov"));
    EXPECT_EQ(readWholeFile(home / "outside/a.mov"), "precious");
    EXPECT_THAT(namesIn(here),
                ElementsAre("Shoot", "Shoot/a.mov", "Shoot/dangling.mov", "Shoot/good.mov", "Shoot/out"));
    EXPECT_EQ(readWholeFile(here / "Shoot/good.mov"), "good");
    EXPECT_EQ(leftOut.size(), 16U);
    EXPECT_EQ(std::ranges::count_if(ended, [](const auto& file) { return file.failure && file.files == 1; }),
              3);
}

TEST_F(FetchingTest, WhatHasAnotherThingInItsPlaceCostsNothingElse) {
    home.file("here/Shoot/B", "a file");
    std::filesystem::create_directories(here / "Shoot/d.mov");
    vark->folders[1] = {folderItem(2, "B"), serve(3, "d.mov", "x"), serve(4, "e.mov", "eee")};
    vark->folders[2] = {serve(5, "f.mov", "f"), folderItem(6, "C"), serve(8, "g.mov", "g")};
    vark->folders[6] = {serve(7, "h.mov", "h")};
    fetch(folderItem(1, "Shoot"), WhatStands::isReplaced);
    ASSERT_EQ(ended.size(), 3U);
    EXPECT_THAT(ended[0].failure.value_or(""), HasSubstr("something that is no folder is in its way"));
    EXPECT_EQ(ended[0].files, 3);
    EXPECT_THAT(ended[1].failure.value_or(""), HasSubstr("A folder of that name is there"));
    EXPECT_FALSE(ended[2].failure);
    EXPECT_EQ(readWholeFile(here / "Shoot/B"), "a file");
}

TEST_F(FetchingTest, ASecondRunBringsOnlyWhatIsMissingAndReplacesOnlyWhenToldTo) {
    vark->folders[1] = {serve(2, "same", "same"), serve(3, "other", "new"), serve(4, "missing", "m"),
                        serve(5, "of the same size", "1")};
    home.file("here/Shoot/same", "same");
    home.file("here/Shoot/other", "old!");
    home.file("here/Shoot/of the same size", "2");
    std::filesystem::permissions(here / "Shoot/other", std::filesystem::perms(0750));
    fetch(folderItem(1, "Shoot"));
    EXPECT_THAT(ended,
                UnorderedElementsAre(Field(&FetchedFile::wasThere, true), Field(&FetchedFile::isKept, true),
                                     Field(&FetchedFile::isKept, true), Field(&FetchedFile::checked, true)));
    EXPECT_EQ(readWholeFile(here / "Shoot/other"), "old!");
    EXPECT_EQ(vark->asked.size(), 1U);

    fetch(folderItem(1, "Shoot"), WhatStands::isReplaced);
    EXPECT_EQ(vark->asked.size(), 2U);
    EXPECT_EQ(readWholeFile(here / "Shoot/other"), "new");
    EXPECT_EQ(std::filesystem::status(here / "Shoot/other").permissions(), std::filesystem::perms(0750))
        << "a file hands on its permissions";
}

TEST_F(FetchingTest, LeavesNothingOfAFileThatIsNotWhatTheVarkHas) {
    const VarkItem damaged = serve(1, "a.mov", "whole");
    VarkItem cutOff = serve(2, "b.mov", "whole");
    cutOff.sha256.clear();
    vark->contents = {{1, "holed"}, {2, "who"}};
    const std::pair<VarkItem, std::string> cases[] = {
        {damaged, "What arrived is not what the vark has."},
        {cutOff, "It did not arrive whole."},
        {fileItem(3, "c.mov", "gone"), "It is no longer in the vark."},
    };
    for (const auto& [item, words] : cases) {
        home.file("here/" + item.name, "as it was");
        fetch(item, WhatStands::isReplaced);
        EXPECT_THAT(failure(), HasSubstr(words));
        EXPECT_EQ(readWholeFile(here / item.name), "as it was");
    }
    EXPECT_THAT(namesIn(here), ElementsAre("a.mov", "b.mov", "c.mov"));
}

TEST_F(FetchingTest, APartIsGoneOnWithWhereverItEnded) {
    const VarkItem item = serve(1, "a.mov", "abcdef");
    struct Case {
        const char* name;
        std::string part;
        std::vector<std::int64_t> asked;
        std::int64_t moved = 6;
        bool sendsParts = true;
        std::optional<VarkAPIError> refusal = std::nullopt;
    };
    const Case cases[] = {
        {"a beginning", "abc", {3}, 3},
        {"the whole", "abcdef", {}, 0},
        {"of a vark that sends no parts", "abc", {3}, 6, false},
        {"not of this file", "xyz", {3, 0}, 9},
        {"whole and damaged", "abcdeX", {0}},
        {"longer than the whole", "abcdefg", {0}},
        {"a part that the vark has not", "abc", {3, 0}, 6, true, VarkAPIError::server(416)},
        {"a part that makes no sense", "abc", {3, 0}, 6, true, VarkAPIError::badResponse("another part")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(here / "a.mov");
        part(item, c.part);
        vark->sendsParts = c.sendsParts;
        vark->refusalOfParts = c.refusal;
        fetch(item);
        EXPECT_EQ(failure(), "");
        EXPECT_EQ(readWholeFile(here / "a.mov"), "abcdef");
        EXPECT_EQ(vark->asked, c.asked);
        EXPECT_EQ(movedBytes, c.moved);
        EXPECT_THAT(namesIn(here), ElementsAre("a.mov"));
    }
}

TEST_F(FetchingTest, WhatEndsEarlyKeepsItsPartForTheNextRun) {
    const VarkItem item = serve(1, "a.mov", "abcdef");
    for (const std::size_t bytes : {4U, 0U}) {
        vark->dropsAfter = bytes;
        fetch(item);
        EXPECT_EQ(failure(), "The connection dropped.");
        EXPECT_EQ(readWholeFile(partOf(item)), "abcd");
    }
    // A machine that the vark knows no longer has nothing more to ask.
    vark->refusalOfParts = VarkAPIError::unauthorized();
    EXPECT_THROW(fetch(item), VarkAPIError);
    EXPECT_EQ(readWholeFile(partOf(item)), "abcd");

    VarkItem unknown = item;
    unknown.sha256.clear();
    vark->dropsAfter = 4;
    fetch(unknown);
    EXPECT_FALSE(std::filesystem::exists(partOf(unknown))) << "nothing would tell what it belongs to";
}

TEST_F(FetchingTest, APartWaitsForNobodyForEver) {
    const VarkItem item = serve(1, "a.mov", "abcdef");
    const VarkItem underWay = fileItem(4, "under way.mov", "under way");
    const std::filesystem::path recent = part(fileItem(3, "recent.mov", "recent"), "part");
    part(fileItem(1, "a.mov", "another version"), "part");
    for (const auto& old : {part(fileItem(2, "old.mov", "old"), "part"), part(underWay, "part")})
        std::filesystem::last_write_time(
            old, std::filesystem::file_time_type::clock::now() - std::chrono::days(8));
    const FileLock lock = FileLock::exclusive(partOf(underWay));
    const std::string link = PartFile::nameFor("link", "x");
    std::filesystem::create_symlink(home / "elsewhere", here / link);
    fetch(item);
    EXPECT_THAT(namesIn(here),
                UnorderedElementsAre("a.mov", recent.filename(), partOf(underWay).filename(), link));
    fetch(underWay);
    EXPECT_THAT(failure(), HasSubstr("Another vark is fetching it"));
}

}  // namespace
}  // namespace vark
