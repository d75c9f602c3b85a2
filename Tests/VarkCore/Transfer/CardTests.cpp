#include <gtest/gtest.h>

#include "Tests/Support/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Transfer/CardNaming.h"
#include "VarkCore/Transfer/PendingDrop.h"
#include "VarkCore/Transfer/QueueModel.h"
#include "VarkCore/Transfer/VolumeRules.h"

namespace vark::test {
namespace {

using Answer = VolumeRules::Answer;
using Offer = VolumeRules::Offer;

TEST(VolumeRules, KnowACardByTheFoldersThatCamerasMake) {
    struct Case {
        std::vector<std::string> names;
        bool isCard;
    };
    const Case cases[] = {
        {{}, false},
        {{"DCIM"}, true},
        {{"dcim", "Pictures"}, true},
        {{"XDROOT"}, true},
        {{"Bpav"}, true},
        {{"CLIPROOT"}, true},
        {{"PRIVATE"}, false},
        {{"AVCHD"}, false},
        {{"CLIP"}, false},
        {{"MP_ROOT"}, false},
        {{"PRIVATE", "AVCHD"}, true},
        {{"Private", "mp_root"}, true},
        {{"clip", "private"}, true},
        {{"PRIVATE", "AVCHD2"}, false},
        {{"DCIM2", "my dcim"}, false},
    };
    for (const Case& one : cases)
        EXPECT_EQ(VolumeRules::isCard(one.names), one.isCard) << testing::PrintToString(one.names);
}

TEST(VolumeRules, OfferAVolumeAsLoudlyAsItDeserves) {
    struct Case {
        VolumeRules::Seen seen;
        Offer offer;
    };
    const Case cases[] = {
        {{.isCard = true, .isEjectableOrRemovable = true, .isBootVolume = true}, Offer::silent},
        {{.isCard = true}, Offer::silent},
        {{.isCard = true, .remembered = Answer::never, .isEjectableOrRemovable = true}, Offer::silent},
        {{.isCard = true, .remembered = Answer::ask, .isEjectableOrRemovable = true}, Offer::sheet},
        {{.isCard = true, .isEjectableOrRemovable = true}, Offer::sheet},
        {{.remembered = Answer::ask, .isEjectableOrRemovable = true}, Offer::notify},
        {{.isEjectableOrRemovable = true}, Offer::notify},
        {{.remembered = Answer::never, .isEjectableOrRemovable = true}, Offer::silent},
        {{}, Offer::silent},
    };
    for (const Case& one : cases)
        EXPECT_EQ(VolumeRules::offer(one.seen), one.offer) << (&one - cases);
}

TEST(CardNaming, PutsTheDayBeforeTheName) {
    const Calendar calendar("Australia/Melbourne");
    const Date evening = Date::fromSince1970(1'740'958'200);  // 10:30 on 3 March 2025 there, the 2nd in UTC.
    EXPECT_EQ(CardNaming::title(" Alpha\t", evening, calendar), "2025-03-03 Alpha");
    EXPECT_EQ(CardNaming::title("EOS DIGITAL", evening, calendar), "2025-03-03 EOS DIGITAL");
    for (const char* blank : {"", "  ", "\t"})
        EXPECT_EQ(CardNaming::title(blank, evening, calendar), "2025-03-03");
}

TEST(CardNaming, MakesOneFolderOfWhateverIsWrittenOnTheCard) {
    EXPECT_EQ(CardNaming::folder("2025-03-03 EOS DIGITAL"), "2025-03-03 EOS DIGITAL");
    EXPECT_EQ(CardNaming::folder("2025-03-03 ../../Jobs"), "2025-03-03 ..-..-Jobs");
    EXPECT_EQ(CardNaming::folder("A/B\n\x1b]0;\x7f"), "A-B--]0;-");
}

TEST(PendingDrop, SaysWhereItCameFrom) {
    struct Case {
        DropSource::Case source;
        const char* words;
    };
    const Case cases[] = {
        {DropSource::Volume{"Alpha", true}, "from the card \"Alpha\""},
        {DropSource::Volume{"Alpha", false}, "from the disk \"Alpha\""},
        {DropSource::Window{}, "dropped on the window"},
        {DropSource::Dock{}, "dropped on the Dock icon"},
        {DropSource::Services{}, "added from the Finder menu"},
        {DropSource::Menu{}, "added from the app"},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(DropSource(one.source).describe(), one.words);
        EXPECT_EQ(DropSource(one.source).isVolume(), one.source.index() == 0);
    }
}

TEST(PendingDrop, SuggestsATitleAndSaysHowMuchItIs) {
    const auto drop = [](std::vector<std::filesystem::path> urls, std::optional<std::string> title = {}) {
        return PendingDrop(UUID::random(), std::move(urls), DropSource(DropSource::Window{}), title);
    };
    EXPECT_EQ(drop({"/home/ann/Shoot"}).suggestedTitle, "Shoot");
    EXPECT_EQ(drop({"/home/ann/Shoot/"}).suggestedTitle, "Shoot");
    EXPECT_EQ(drop({}).suggestedTitle, "0 items");
    EXPECT_EQ(drop({"/a", "/b"}).suggestedTitle, "2 items");
    EXPECT_EQ(drop({"/a", "/b"}, "Wedding").suggestedTitle, "Wedding");

    struct Case {
        std::optional<std::int64_t> files;
        std::optional<std::int64_t> bytes;
        bool settling;
        const char* words;
    };
    const Case cases[] = {
        {std::nullopt, std::nullopt, false, "Counting"},
        {std::nullopt, std::nullopt, true, "Counting, the disk is still settling"},
        {3, std::nullopt, false, "Counting"},
        {std::nullopt, 3, true, "Counting, the disk is still settling"},
        {0, 500, true, "Nothing to send"},
        {1, 1, false, "1 file · 1 byte"},
        {1234, 12'000'000'000, true, "1,234 files · 12.0 GB"},
    };
    for (const Case& one : cases) {
        PendingDrop counted = drop({"/a"});
        counted.fileCount = one.files;
        counted.totalBytes = one.bytes;
        counted.settling = one.settling;
        EXPECT_EQ(counted.summary(), one.words);
    }
}

TEST(IngestInfo, KnowsItsOwnCardFromAnotherInTheSamePlace) {
    TemporaryFolder folder;
    std::filesystem::create_directories(folder / "ALPHA");
    IngestInfo ingest;
    ingest.drive = "ALPHA";
    ingest.volumePath = folder / "ALPHA";
    ingest.volumeUUID = "1234-ABCD";
    const Volume own{.name = "ALPHA", .path = folder / "ALPHA", .id = "1234-ABCD"};
    const Volume other{.name = "ALPHA", .path = folder / "ALPHA", .id = "5678-EF01"};
    const Volume nameless{.name = "ALPHA", .path = folder / "ALPHA"};
    const Volume elsewhere{.name = "ALPHA", .path = folder / "ALPHA1", .id = "1234-ABCD"};
    FakeVolumes volumes;
    for (const Volume& volume : {own, other, nameless, elsewhere}) {
        volumes.table = {volume};
        EXPECT_EQ(ingest.driveIsHere(volumes), volume == own) << volume.id.value_or("-");
    }
    volumes.table = {};
    EXPECT_FALSE(ingest.driveIsHere(volumes));
    volumes.table = {own};
    std::filesystem::remove(folder / "ALPHA");
    EXPECT_FALSE(ingest.driveIsHere(volumes));
}

}  // namespace
}  // namespace vark::test
