#include <gtest/gtest.h>

#include "VarkCore/Transfer/CardNaming.h"
#include "VarkCore/Transfer/PendingDrop.h"
#include "VarkCore/Transfer/VolumeRules.h"

namespace vark {
namespace {

TEST(VolumeRules, KnowACardByTheFoldersThatCamerasMake) {
    struct Case {
        std::vector<std::string> names;
        bool isCard;
    };
    const Case cases[] = {
        {{}, false},
        {{"dcim", "Pictures"}, true},
        {{"Bpav"}, true},
        {{"PRIVATE"}, false},
        {{"CLIP"}, false},
        {{"clip", "private"}, true},
        {{"PRIVATE", "AVCHD2"}, false},
        {{"DCIM2", "my dcim"}, false},
    };
    for (const Case& one : cases)
        EXPECT_EQ(VolumeRules::isCard(one.names), one.isCard) << testing::PrintToString(one.names);
}

TEST(VolumeRules, OfferAVolumeAsLoudlyAsItDeserves) {
    using Answer = VolumeRules::Answer;
    using Offer = VolumeRules::Offer;
    struct Case {
        VolumeRules::Seen seen;
        Offer offer;
    };
    const Case cases[] = {
        {{.isCard = true, .isEjectableOrRemovable = true, .isBootVolume = true}, Offer::silent},
        {{.isCard = true}, Offer::silent},
        {{.isCard = true, .remembered = Answer::never, .isEjectableOrRemovable = true}, Offer::silent},
        {{.isCard = true, .isEjectableOrRemovable = true}, Offer::sheet},
        {{.remembered = Answer::ask, .isEjectableOrRemovable = true}, Offer::notify},
    };
    for (const Case& one : cases)
        EXPECT_EQ(VolumeRules::offer(one.seen), one.offer) << (&one - cases);
}

TEST(CardNaming, MakesOneFolderOfTheDayAndWhateverIsWrittenOnTheCard) {
    const Calendar calendar("Australia/Melbourne");
    const Date evening = Date::fromSince1970(1'740'958'200);  // 10:30 on 3 March 2025 there, the 2nd in UTC.
    EXPECT_EQ(CardNaming::title(" Alpha\t", evening, calendar), "2025-03-03 Alpha");
    EXPECT_EQ(CardNaming::title("  ", evening, calendar), "2025-03-03");
    EXPECT_EQ(CardNaming::folder("2025-03-03 ../../Jobs"), "2025-03-03 ..-..-Jobs");
    EXPECT_EQ(CardNaming::folder("A/B\n\x1b]0;\x7f"), "A-B--]0;-");
}

TEST(PendingDrop, SaysWhatItIsAndWhereItCameFrom) {
    PendingDrop drop(UUID::random(), {"/home/ann/Shoot/"}, DropSource(DropSource::Volume{"Alpha", true}),
                     std::nullopt);
    EXPECT_EQ(drop.suggestedTitle, "Shoot");
    EXPECT_EQ(drop.source.describe(), "from the card \"Alpha\"");
    EXPECT_EQ(drop.summary(), "Counting");
    drop.fileCount = 1234;
    drop.totalBytes = 12'000'000'000;
    EXPECT_EQ(drop.summary(), "1,234 files · 12.0 GB");
}

}  // namespace
}  // namespace vark
