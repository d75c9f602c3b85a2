#include <gmock/gmock.h>

#include <semaphore>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestCard.h"
#include "VarkPlatform/Linux/MountedVolumes.h"

namespace vark::test {
namespace {

using testing::ElementsAre;

/// A machine with a disk, a memory card, a second disk in /mnt and a share on another machine.
class MountedVolumesTest : public testing::Test {
  protected:
    MountedVolumesTest() {
        for (const char* device : {"sda1", "sdb1", "sdc1", "sdd"})
            folder.file(std::string("dev/") + device);
        device("8:1", "sda", "sda1", "0");
        device("8:17", "sdb", "sdb1", "1");
        device("8:33", "sdc", "sdc1", "0");
        device("8:48", "sdd", "", "1");
        link("labels", "EOS\\x20DIGITAL", "sdb1");
        link("labels", "Root", "sda1");
        link("identifiers", "1234-ABCD", "sdb1");
    }

    void device(const char* number, const std::string& disk, const std::string& partition,
                const char* removable) {
        folder.file("block/" + disk + "/removable", std::string(removable) + "\n");
        const std::filesystem::path place = folder / ("block/" + disk + "/" + partition);
        std::filesystem::create_directories(place);
        std::filesystem::create_directories(folder / "numbers");
        std::filesystem::create_directory_symlink(place, folder / "numbers" / number);
    }
    void link(const char* kind, const char* name, const char* device) const {
        std::filesystem::create_directories(folder / kind);
        std::filesystem::create_symlink(std::filesystem::path("../dev") / device, folder / kind / name);
    }
    void mount(const char* number, const std::string& source, const std::string& path) {
        const std::string device =
            source.starts_with("sd") ? folder / ("dev/" + source) : std::filesystem::path(source);
        table += "36 35 " + std::string(number) + " / " + path + " rw,noatime shared:1 master:2 - ext4 " +
                 device + " rw\n";
    }
    MountedVolumes volumes() {
        return MountedVolumes({.mounts = folder.file("mountinfo", table),
                               .blockDevices = folder / "numbers",
                               .labels = folder / "labels",
                               .identifiers = folder / "identifiers"});
    }

    TemporaryFolder folder;
    std::string table;
};

TEST_F(MountedVolumesTest, TellsThePeoplesDisksFromTheSystems) {
    mount("0:22", "proc", "/proc");
    mount("8:1", "sda1", "/");
    mount("8:17", "sdb1", "/media/ann/EOS\\040DIGITAL");
    mount("8:33", "sdc1", "/mnt/archive");
    mount("8:48", "sdd", "/srv/stick");
    mount("0:50", "nas:/films", "/run/media/ann/films");
    mount("0:51", "tmpfs", "/mnt");
    mount("0:52", "nas:/home", "/home");
    mount("8:1", "sda1", "/mnt/system-again");
    EXPECT_THAT(volumes().volumes(),
                ElementsAre(Volume{.name = "Root", .path = "/", .isBoot = true},
                            Volume{.name = "EOS DIGITAL",
                                   .path = "/media/ann/EOS DIGITAL",
                                   .id = "1234-ABCD",
                                   .ejectable = true},
                            Volume{.name = "archive", .path = "/mnt/archive"},
                            Volume{.name = "stick", .path = "/srv/stick", .ejectable = true},
                            Volume{.name = "films", .path = "/run/media/ann/films", .ejectable = true}));
}

TEST_F(MountedVolumesTest, NamesTheVolumeThatAPathLiesOn) {
    mount("8:1", "sda1", "/");
    mount("8:17", "sdb1", (folder / "card").string());
    mount("0:50", "tmpfs", (folder / "card/inside").string());
    mount("8:48", "sdd", (folder / "cardigan").string());
    std::filesystem::create_directories(folder / "card/DCIM");
    std::filesystem::create_directory_symlink(folder / "card", folder / "link");
    struct Case {
        std::filesystem::path path;
        std::optional<std::string> name;
    };
    const std::vector<Case> cases{
        {folder / "card", "EOS DIGITAL"},         {folder / "card/DCIM/1.jpg", "EOS DIGITAL"},
        {folder / "link/DCIM", "EOS DIGITAL"},    {folder / "card/DCIM/../../elsewhere", std::nullopt},
        {folder / "card/inside/x", std::nullopt}, {folder / "cardigan/x", "cardigan"},
        {folder / "cards", std::nullopt},         {"/", std::nullopt},
    };
    const MountedVolumes mounted = volumes();
    for (const Case& one : cases)
        EXPECT_EQ(mounted.volumeName(one.path), one.name) << one.path;
}

TEST_F(MountedVolumesTest, GoesByTheLastOfTwoMountsAtOnePlace) {
    mount("8:17", "sdb1", "/media/card");
    mount("8:48", "sdd", "/media/card");
    EXPECT_THAT(volumes().volumes(),
                ElementsAre(Volume{.name = "card", .path = "/media/card", .ejectable = true}));
}

TEST_F(MountedVolumesTest, DoesNotCountWhatIsLeftOfADiskThatWasPulledOut) {
    mount("8:17", "sdb1", "/media/card");
    mount("8:99", "sdz1", "/media/pulled");
    EXPECT_THAT(volumes().volumes(), ElementsAre(testing::Field(&Volume::path, "/media/card")));
}

TEST_F(MountedVolumesTest, KnowsNothingWhereTheTableIsBrokenOrAway) {
    table = "garbage\n36 35 8:17 / /media/card rw - ext4\n36 35\n\n";
    EXPECT_TRUE(volumes().volumes().empty());
    const MountedVolumes blind({.mounts = folder / "nowhere"});
    EXPECT_TRUE(blind.volumes().empty());
    EXPECT_THROW(blind.watch([] {}), FileError);
}

TEST(MountedVolumes, FindsTheStartUpDiskOfThisMachine) {
    const std::vector<Volume> volumes = MountedVolumes().volumes();
    EXPECT_EQ(std::ranges::count(volumes, true, &Volume::isBoot), 1);
    EXPECT_EQ(MountedVolumes().volumeName("/etc/hostname"), std::nullopt);
}

TEST(MountedVolumes, RingWhenACardComesAndGoesAndKnowItByItsOwnName) {
    const std::unique_ptr<TestCard> card = TestCard::make("ALPHA");
    if (!card) GTEST_SKIP() << "NOTHING CAN BE MOUNTED HERE: the coming and going of cards is NOT tested.";
    card->pull();
    const MountedVolumes mounted;
    std::counting_semaphore<> rung(0);
    const std::unique_ptr<VolumeWatch> watch = mounted.watch([&] { rung.release(); });
    const auto seen = [&]() -> std::optional<Volume> {
        for (const Volume& volume : mounted.volumes()) {
            if (volume.path == card->path()) return volume;
        }
        return std::nullopt;
    };
    const auto comesTrue = [&](const std::function<bool()>& awaited) {
        while (!awaited()) {
            if (!rung.try_acquire_for(std::chrono::minutes(1))) return false;
        }
        return true;
    };
    EXPECT_FALSE(seen());
    card->plug();
    ASSERT_TRUE(comesTrue([&] { return seen().has_value(); }));
    EXPECT_EQ(seen()->name, "ALPHA");
    EXPECT_EQ(seen()->id.has_value(), card->hasIdentifier());
    EXPECT_TRUE(seen()->ejectable);
    card->pull();
    EXPECT_TRUE(comesTrue([&] { return !seen(); }));
}

}  // namespace
}  // namespace vark::test
