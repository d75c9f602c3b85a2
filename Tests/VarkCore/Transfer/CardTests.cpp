#include <gtest/gtest.h>

#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Transfer/Cards/CardNaming.h"
#include "VarkCore/Transfer/Cards/VolumeRules.h"
#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark {
namespace {

TEST(VolumeRules, KnowACardByTheFoldersThatCamerasMake) {
    struct Case {
        std::vector<std::string> names;
        bool isCard;
    };
    const Case cases[] = {
        {{}, false},       {{"dcim", "Pictures"}, true}, {{"Bpav"}, true},
        {{"CLIP"}, false}, {{"clip", "private"}, true},  {{"DCIM2", "my dcim"}, false},
    };
    for (const Case& one : cases)
        EXPECT_EQ(VolumeRules::isCard(one.names), one.isCard) << testing::PrintToString(one.names);
}

TEST(CardNaming, MakesOneFolderOfTheDayAndWhateverIsWrittenOnTheCard) {
    const Calendar calendar("Australia/Melbourne");
    const Date evening = Date::fromSince1970(1'740'958'200);  // 10:30 on 3 March 2025 there, the 2nd in UTC.
    EXPECT_EQ(CardNaming::title(" Alpha\t", evening, calendar), "2025-03-03 Alpha");
    EXPECT_EQ(CardNaming::title("  ", evening, calendar), "2025-03-03");
    EXPECT_EQ(CardNaming::folder("2025-03-03 ../../Jobs"), "2025-03-03 ..-..-Jobs");
    EXPECT_EQ(CardNaming::folder("A/B\n\x1b]0;\x7f"), "A-B--]0;-");
}

TEST(IngestInfo, KnowsItsOwnCardFromAnotherInTheSamePlace) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder / "ALPHA");
    const IngestInfo ingest{.volumePath = folder / "ALPHA", .volumeUUID = "1234-ABCD"};
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

}  // namespace
}  // namespace vark
