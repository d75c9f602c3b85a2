#include "VarkPlatform/Linux/Volumes/MountedVolumes.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <semaphore>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestCard.h"

namespace vark::test {
namespace {

using testing::ElementsAre;

/// A machine with a disk, a memory card, a stick without partitions and a share on another machine.
class MountedVolumesTest : public testing::Test {
  protected:
    MountedVolumesTest() {
        partition("8:1", "sda/sda1", "0");
        partition("8:17", "sdb/sdb1", "1");
        partition("8:48", "sdd/", "1");
        link("labels/EOS\\x20DIGITAL", folder / "dev/sdb1");
        link("labels/Root", folder / "dev/sda1");
        link("identifiers/1234-ABCD", folder / "dev/sdb1");
    }

    void partition(const std::string& number, const std::string& place, const char* removable) const {
        folder.file("block/" + place.substr(0, 3) + "/removable", std::string(removable) + "\n");
        std::filesystem::create_directories(folder / ("block/" + place));
        link("numbers/" + number, folder / ("block/" + place));
        folder.file("dev/" + (place.size() > 4 ? place.substr(4) : place.substr(0, 3)));
    }
    void link(const std::string& name, const std::filesystem::path& target) const {
        std::filesystem::create_directories((folder / name).parent_path());
        std::filesystem::create_symlink(target, folder / name);
    }
    void mount(const char* number, const std::string& source, const std::string& path) {
        const std::string device = source.starts_with("sd") ? (folder / ("dev/" + source)).string() : source;
        table +=
            fmt::format("36 35 {} / {} rw,noatime shared:1 master:2 - ext4 {} rw\n", number, path, device);
    }
    MountedVolumes volumes() const {
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
    mount("0:22", "tmpfs", "/media/ann/EOS\\040DIGITAL");
    mount("8:17", "sdb1", "/media/ann/EOS\\040DIGITAL");
    mount("8:48", "sdd", "/mnt/stick");
    mount("0:50", "nas:/films", "/run/media/ann/films");
    mount("0:51", "tmpfs", "/mnt");
    mount("0:52", "nas:/home", "/home");
    mount("8:1", "sda1", "/mnt/system-again");
    mount("8:99", "sdz1", "/media/left-of-a-disk-that-was-pulled-out");
    table += "garbage\n36 35 8:17 / /media/card rw - ext4\n36 35\n\n";
    EXPECT_THAT(volumes().volumes(),
                ElementsAre(Volume{.name = "Root", .path = "/", .isBoot = true},
                            Volume{.name = "EOS DIGITAL",
                                   .path = "/media/ann/EOS DIGITAL",
                                   .id = "1234-ABCD",
                                   .ejectable = true},
                            Volume{.name = "stick", .path = "/mnt/stick", .ejectable = true},
                            Volume{.name = "films", .path = "/run/media/ann/films", .ejectable = true}));
}

TEST_F(MountedVolumesTest, NamesTheVolumeThatAPathLiesOn) {
    mount("8:1", "sda1", "/");
    mount("8:17", "sdb1", (folder / "card").string());
    std::filesystem::create_directories(folder / "card/DCIM");
    EXPECT_EQ(volumes().volumeName(folder / "card/DCIM/1.jpg"), "EOS DIGITAL");
    for (const char* elsewhere : {"card/DCIM/../../elsewhere", "cardigan/x"})
        EXPECT_EQ(volumes().volumeName(folder / elsewhere), std::nullopt) << elsewhere;
}

TEST(MountedVolumes, RingWhenACardComesAndGoesAndKnowItByItsOwnName) {
    const std::unique_ptr<TestCard> card = TestCard::make("ALPHA");
    if (!card) GTEST_SKIP() << TestCard::whySkipped;
    card->pull();
    const MountedVolumes mounted({.mounts = card->mounts().table()});
    std::counting_semaphore<> rung(0);
    const std::unique_ptr<VolumeWatch> watch = mounted.watch([&] { rung.release(); });
    const auto seen = [&]() -> std::optional<Volume> {
        for (const Volume& volume : mounted.volumes()) {
            if (volume.path == card->path()) return volume;
        }
        return std::nullopt;
    };
    EXPECT_FALSE(seen());
    card->plug();
    while (!seen())
        ASSERT_TRUE(rung.try_acquire_for(std::chrono::minutes(1)));
    EXPECT_EQ(seen()->name, "ALPHA");
    EXPECT_EQ(seen()->id.has_value(), card->hasIdentifier());
    EXPECT_TRUE(seen()->ejectable);
    card->pull();
    while (seen())
        ASSERT_TRUE(rung.try_acquire_for(std::chrono::minutes(1)));
}

}  // namespace
}  // namespace vark::test
