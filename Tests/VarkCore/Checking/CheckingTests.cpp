#include "VarkCore/Checking/Checking.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/Fakes/SilentVark.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// A vark of folders and files by their paths, in pages of one item.
class CheckedShelf final : public test::SilentVark {
  public:
    std::map<std::string, VarkItem> items;
    std::deque<VarkAPIError> failures;
    bool sendsAhead = false;
    /// Called at each page.
    std::function<void()> asked = [] {};

    VarkItem& put(const std::string& path, std::optional<std::string> bytes) {
        const std::size_t end = path.rfind('/');
        if (end != std::string::npos && !items.contains(path.substr(0, end)))
            put(path.substr(0, end), std::nullopt);
        VarkItem& item = items[path];
        item.id = std::ssize(items);
        item.path = path;
        item.name = lastPathComponent(path);
        item.isDir = !bytes;
        item.size = bytes ? std::ssize(*bytes) : 0;
        if (bytes) item.sha256 = FileHasher::sha256(*bytes);
        return item;
    }
    Task<VarkItem> item(std::string path) override {
        co_await yieldNow();
        const auto found = items.find(path);
        if (found == items.end()) throw VarkAPIError::server(404);
        co_return found->second;
    }
    Task<VarkPage> children(std::int64_t of, std::string cursor, std::int64_t, bool ahead) override {
        co_await yieldNow();
        asked();
        if (!failures.empty()) {
            const VarkAPIError failure = failures.front();
            failures.pop_front();
            throw failure;
        }
        VarkPage page = pageOf(of, cursor);
        if (!ahead || !sendsAhead) co_return page;
        for (const VarkItem& item : page.items)
            if (item.isDir) page.ahead[item.id] = pageOf(item.id, "");
        co_return page;
    }

  private:
    VarkPage pageOf(std::int64_t folder, const std::string& cursor) const {
        VarkPage page;
        std::size_t place = 0;
        const std::size_t wanted = cursor.empty() ? 0 : std::stoul(cursor);
        for (const auto& [path, item] : items) {
            const std::size_t end = path.rfind('/');
            const std::string parent = end == std::string::npos ? "" : path.substr(0, end);
            if (parent.empty() || items.at(parent).id != folder) continue;
            if (place++ < wanted) continue;
            page.more = !page.items.empty();
            if (page.more) break;
            page.items.push_back(item);
            page.cursor = std::to_string(place);
        }
        return page;
    }
};

class CheckingTest : public testing::Test {
  protected:
    using Verdicts = std::vector<std::pair<std::string, std::string>>;

    CheckReport check(std::vector<std::string> names, Walker::Options options = {}) {
        std::vector<std::filesystem::path> paths;
        for (const std::string& name : names)
            paths.push_back(here / name);
        Checking checking({vark, loop.pool, volumes}, std::move(options));
        return loop.run(checking.run(paths, "Jobs"));
    }
    static Verdicts verdicts(const CheckReport& report) {
        Verdicts all;
        for (const CheckedFile& file : report.files)
            all.emplace_back(file.path, CheckedFile::verdictNames.at(static_cast<std::size_t>(file.verdict)));
        return all;
    }
    /// Here and in the vark.
    void both(const std::string& path, const std::string& bytes) {
        here.file(path, bytes);
        vark->put("Jobs/" + path, bytes);
    }

    test::TestLoop loop;
    TemporaryFolder here;
    FakeVolumes volumes;
    std::shared_ptr<CheckedShelf> vark = std::make_shared<CheckedShelf>();
};

TEST_F(CheckingTest, OnlyTheSameBytesAtTheSamePlaceAreVouchedFor) {
    both("Shoot/a", "same");
    both("Shoot/In/.hidden", "same too");
    both("one", "alone");
    here.file("Shoot/missing", "x");
    here.file("Shoot/longer", "xyz");
    vark->put("Jobs/Shoot/longer", "xy");
    here.file("Shoot/other", "xy");
    vark->put("Jobs/Shoot/other", "yx");
    both("Shoot/unchecked", "x");
    vark->items["Jobs/Shoot/unchecked"].sha256 = "";
    here.file("Shoot/folder", "x");
    vark->put("Jobs/Shoot/folder/x", "x");
    here.file("Shoot/Gone/deep/x", "x");
    here.file("Shoot/File/x", "x");
    vark->put("Jobs/Shoot/File", "x");
    here.file("Shoot/.DS_Store", "x");
    std::filesystem::create_symlink("a", here / "Shoot/link");
    std::filesystem::create_directory(here / "Shoot/Empty");
    vark->put("Jobs/Shoot/only there", "x");

    const CheckReport report = check({"Shoot", "one", "nowhere"});
    EXPECT_THAT(verdicts(report),
                testing::UnorderedElementsAre(
                    Pair("Shoot/a", "same"), Pair("Shoot/In/.hidden", "same"), Pair("one", "same"),
                    Pair("Shoot/missing", "missing"), Pair("Shoot/longer", "differs"),
                    Pair("Shoot/other", "differs"), Pair("Shoot/unchecked", "unproved"),
                    Pair("Shoot/folder", "differs"), Pair("Shoot/Gone/deep/x", "missing"),
                    Pair("Shoot/File/x", "missing"), Pair("Shoot/.DS_Store", "unproved"),
                    Pair("Shoot/link", "unproved"), Pair("nowhere", "unreadable")));
    EXPECT_FALSE(report.isProved());
    EXPECT_EQ(report.emptyFolders, 1);
    EXPECT_THAT(report.missingRoots, IsEmpty());

    for (bool ahead : {false, true}) {
        vark->sendsAhead = ahead;
        EXPECT_TRUE(check({"Shoot/In", "one"}).missingRoots == std::vector<std::string>{"In"});
        const CheckReport good = check({"Shoot", "one"}, {.filter = {.include = {"a", "/In/", "one"}}});
        EXPECT_TRUE(good.isProved());
        EXPECT_EQ(good.same, 3);
        EXPECT_EQ(good.sameBytes, 4 + 8 + 5);
    }
    EXPECT_FALSE(check({"Shoot"}, {.filter = {.exclude = {"*"}}}).isProved()) << "nothing was looked at";
}

TEST_F(CheckingTest, WhatChangesWhileItIsLookedAtIsNotVouchedFor) {
    for (const char* name : {"grows", "same", "goes", "turns"})
        both(std::string("Shoot/") + name, "bytes");
    std::filesystem::last_write_time(here / "Shoot/turns", std::filesystem::file_time_type());
    bool isDone = false;
    // When the walk is over, and nothing has been judged.
    vark->asked = [&] {
        if (std::exchange(isDone, true)) return;
        std::ofstream(here / "Shoot/grows", std::ios::app) << "more";
        std::ofstream(here / "Shoot/came") << "x";
        std::ofstream(here / "Shoot/turns") << "setyb";
        std::filesystem::remove(here / "Shoot/goes");
    };
    const CheckReport report = check({"Shoot"});
    EXPECT_FALSE(report.isProved());
    for (const auto& [path, verdict] : verdicts(report)) {
        if (path == "Shoot/same") {
            EXPECT_EQ(verdict, "same");
        } else {
            EXPECT_NE(verdict, "same") << path;
        }
    }
    EXPECT_EQ(report.files.size(), 5U);
}

TEST_F(CheckingTest, AVarkThatCannotBeAskedVouchesForNothing) {
    both("Shoot/a", "same");
    vark->failures = {VarkAPIError::server(503), VarkAPIError::transport("The connection dropped.")};
    EXPECT_TRUE(check({"Shoot"}).isProved()) << "asked again a little later";
    vark->failures.assign(20, VarkAPIError::server(503));
    EXPECT_THROW(check({"Shoot"}), VarkAPIError);
    vark->failures.assign(1, VarkAPIError::unauthorized());
    EXPECT_THROW(check({"Shoot"}), VarkAPIError);
}

}  // namespace
}  // namespace vark
