#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Hosts/CLI/Fetching.h"
#include "Tests/CLI/CLIWorld.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark::cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class Get : public ::testing::Test {
  public:
    static VarkItem fileItem(std::int64_t id, const std::string& name, const std::string& bytes) {
        VarkItem item;
        item.id = id;
        item.path = item.name = name;
        item.size = std::ssize(bytes);
        item.sha256 = FileHasher::sha256(bytes);
        return item;
    }
    static VarkItem folderItem(std::int64_t id, const std::string& name) {
        VarkItem item;
        item.id = id;
        item.path = item.name = name;
        item.isDir = true;
        return item;
    }
    /// A file of the vark, which sends these bytes for it.
    VarkItem serve(std::int64_t id, const std::string& name, const std::string& bytes) {
        world.platform.vark->contents[id] = bytes;
        return fileItem(id, name, bytes);
    }
    WantedFiles list(const VarkItem& top) {
        return world.surroundings.await(listWanted(world.platform.vark, top, here / top.name));
    }
    /// Fetches one item with all that is in it.
    void fetch(const VarkItem& top, Fetching::WhatStands whatStands = Fetching::WhatStands::stays) {
        ended.clear();
        const WantedFiles wanted = list(top);
        Fetching fetching(world.platform.vark, world.surroundings.pool(), whatStands,
                          [this](const FetchedFile& file) { ended.push_back(file); });
        world.surroundings.await(fetching.all(wanted));
    }
    std::vector<std::string> namesHere() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(here))
            names.push_back(entry.path().lexically_relative(here));
        std::ranges::sort(names);
        return names;
    }

    test::CLIWorld world;
    std::filesystem::path here = world.home / "here";
    std::vector<FetchedFile> ended;

    void SetUp() override { std::filesystem::create_directory(here); }
};

TEST_F(Get, BringsAFolderWithAllThatIsInIt) {
    world.platform.vark->folders_[1] = {serve(2, "a.mov", "aaa"), folderItem(3, "Empty"), folderItem(4, "B")};
    world.platform.vark->folders_[3] = {};
    world.platform.vark->folders_[4] = {serve(5, "ß ü.mov", "bb")};
    fetch(folderItem(1, "Shoot"));
    EXPECT_THAT(namesHere(),
                ElementsAre("Shoot", "Shoot/B", "Shoot/B/ß ü.mov", "Shoot/Empty", "Shoot/a.mov"));
    EXPECT_EQ(readWholeFile(here / "Shoot/a.mov"), "aaa");
    for (const FetchedFile& file : ended) {
        EXPECT_FALSE(file.failure) << *file.failure;
        EXPECT_TRUE(file.checked);
    }
}

TEST_F(Get, LeavesNothingOfAFileThatIsNotWhatTheVarkHas) {
    VarkItem damaged = serve(1, "a.mov", "whole");
    world.platform.vark->contents[1] = "holed";
    VarkItem cutOff = serve(2, "b.mov", "whole");
    cutOff.sha256.clear();
    world.platform.vark->contents[2] = "who";
    VarkItem gone = fileItem(3, "c.mov", "gone");
    const std::pair<VarkItem, std::string> cases[] = {
        {damaged, "What arrived is not what the vark has."},
        {cutOff, "It did not arrive whole."},
        {gone, "It is no longer in the vark."},
    };
    for (const auto& [item, words] : cases) {
        writeAtomically(here / item.name, "as it was", 0600);
        fetch(item, Fetching::WhatStands::isReplaced);
        ASSERT_EQ(ended.size(), 1U);
        EXPECT_THAT(ended[0].failure.value_or(""), HasSubstr(words));
        EXPECT_EQ(readWholeFile(here / item.name), "as it was");
    }
    EXPECT_THAT(namesHere(), ElementsAre("a.mov", "b.mov", "c.mov"));
}

TEST_F(Get, ReplacesWhatStandsThereOnlyWhenToldTo) {
    const VarkItem item = serve(1, "a.mov", "new");
    writeAtomically(here / "a.mov", "old", 0600);
    fetch(item);
    EXPECT_THAT(ended[0].failure.value_or(""), HasSubstr("--force"));
    EXPECT_EQ(readWholeFile(here / "a.mov"), "old");
    fetch(item, Fetching::WhatStands::isReplaced);
    EXPECT_FALSE(ended[0].failure);
    EXPECT_EQ(readWholeFile(here / "a.mov"), "new");
}

TEST_F(Get, LeavesOutWhatCannotStandUnderItsNameHere) {
    const std::vector<std::string> names = {
        "..", ".", "", "../../etc/passwd", "a/b", std::string("a\0b", 3), "line\nend", "\x1b[2J"};
    std::int64_t id = 1;
    for (const std::string& name : names)
        world.platform.vark->folders_[0].push_back(serve(++id, name, "x"));
    const WantedFiles wanted = list(folderItem(0, "Shoot"));
    EXPECT_THAT(wanted.files, IsEmpty());
    EXPECT_EQ(wanted.leftOut.size(), names.size());
}

TEST_F(Get, StopsAltogetherWhenTheVarkKnowsThisMachineNoLonger) {
    world.platform.vark->downloadRefusal = VarkAPIError::unauthorized(std::nullopt, "VARK-410");
    EXPECT_THROW(fetch(fileItem(1, "a.mov", "x")), VarkAPIError);
    EXPECT_THAT(ended, IsEmpty());
    EXPECT_THAT(namesHere(), IsEmpty());
}

}  // namespace
}  // namespace vark::cli
