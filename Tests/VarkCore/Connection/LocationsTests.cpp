#include "VarkCore/Connection/Locations.h"

#include <gtest/gtest.h>

#include "Tests/Support/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Transfer/ExtensionLog.h"
#include "VarkCore/Transfer/TransferLog.h"

namespace vark {
namespace {

class LocationsTest : public testing::Test {
  protected:
    Locations locations() const { return {bundle, folders}; }

    TemporaryFolder folder;
    FakeBundle bundle;
    FakeUserFolders folders{folder.path()};
};

TEST_F(LocationsTest, KeepTestBuildsApartFromTheShippingBuild) {
    EXPECT_EQ(locations().queue(), folder / "Support/Vark/queue.json");
    EXPECT_EQ(locations().runningLock(), folder / "Support/Vark/running.lock");
    EXPECT_EQ(TransferLog::defaultURL(locations()), folder / "State/Logs/Vark/transfer.log");
    bundle.id = "dev.vark.mac.beta";
    EXPECT_EQ(locations().queue(), folder / "Support/Vark (dev.vark.mac.beta)/queue.json");
    folders.knowsLibrary = false;
    bundle.id = std::nullopt;
    EXPECT_EQ(locations().queue(),
              folder / "Library/Application Support/Vark (dev.vark.mac.unbundled)/queue.json");
    EXPECT_EQ(locations().transferLog(), folder / "Library/Logs/Vark (dev.vark.mac.unbundled)/transfer.log");
}

TEST_F(LocationsTest, CarryOverTheFolderOfAnOlderVersionOnce) {
    folder.file("Support/Vark Transfer/queue.json", "old");
    folder.file("State/Logs/Vark Transfer/transfer.log", "diary");
    EXPECT_EQ(readWholeFile(locations().queue()), "old");
    EXPECT_EQ(readWholeFile(locations().transferLog()), "diary");

    folder.file("Support/Vark Transfer/queue.json", "older");
    EXPECT_EQ(readWholeFile(locations().queue()), "old");
    EXPECT_EQ(readWholeFile(folder / "Support/Vark Transfer/queue.json"), "older");
}

TEST_F(LocationsTest, ATestBuildLeavesTheOldFolderAlone) {
    bundle.id = std::nullopt;
    folder.file("Support/Vark Transfer/queue.json", "old");
    EXPECT_FALSE(exists(locations().queue()));
    EXPECT_TRUE(exists(folder / "Support/Vark Transfer/queue.json"));
}

TEST_F(LocationsTest, ExtensionsNoteInTheSharedFolder) {
    const WallClock clock = [] { return dateFromISO8601("2025-03-03T09:41:07Z").value(); };
    ExtensionLog(std::nullopt, clock, Calendar("UTC")).note("finder", "dropped");
    ExtensionLog log(folder.path(), clock, Calendar("UTC"));
    log.note("finder", "Hello");
    EXPECT_EQ(readWholeFile(folder / "Logs/extensions.log"), "3 Mar 2025, 09:41:07  [finder] Hello\n");
    EXPECT_EQ(ExtensionLog::url(std::nullopt), std::nullopt);
}

}  // namespace
}  // namespace vark
