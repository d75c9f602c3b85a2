#include "VarkProvider/AnchorMemory.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

TEST(AnchorMemory, RemembersOneVersion) {
    const TemporaryFolder folder;
    const SharedStore::Folder shared = folder / "shared";
    const std::filesystem::path file = folder / "shared/anchor.json";
    EXPECT_FALSE(AnchorMemory::hasVouched("v1", shared));
    EXPECT_TRUE(AnchorMemory::vouch("v2", shared, Date{}));
    EXPECT_TRUE(AnchorMemory::vouch("v1", shared, Date{762'000'000.5}));
    EXPECT_EQ(readWholeFile(file), R"({"version":"v1","at":762000000.5})");
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_TRUE(AnchorMemory::hasVouched("v1", shared));
    EXPECT_FALSE(AnchorMemory::hasVouched("v2", shared));
    folder.file("shared/anchor.json", R"({"version":"v1"})");
    EXPECT_FALSE(AnchorMemory::hasVouched("v1", shared)) << "damaged";
    AnchorMemory::forget(shared);
    EXPECT_FALSE(exists(file));
}

TEST(AnchorMemory, NothingIsVouchedForWithoutAVersionOrAFolder) {
    const TemporaryFolder folder;
    const SharedStore::Folder none;
    const SharedStore::Folder blocked = folder.file("file") / "below";
    EXPECT_FALSE(AnchorMemory::vouch("", folder.path(), Date{}));
    EXPECT_FALSE(AnchorMemory::vouch("v1", none, Date{}));
    EXPECT_FALSE(AnchorMemory::vouch("v1", blocked, Date{}));
    EXPECT_FALSE(exists(folder / "anchor.json"));
    EXPECT_TRUE(AnchorMemory::hasVouched("", folder.path()));
    EXPECT_TRUE(AnchorMemory::hasVouched("v1", none));
    EXPECT_FALSE(AnchorMemory::hasVouched("v1", blocked));
    AnchorMemory::forget(none);
}

}  // namespace
}  // namespace vark
