#pragma once

#include <fmt/format.h>

#include <memory>

#include "Tests/Support/OwnNamespaces.h"

namespace vark::test {

/// A memory card that a test plugs in and pulls out: a disk image on a loop device where the machine gives
/// one, and otherwise a file system in memory, which has no identifier. It is mounted below /media in a table
/// of mounts of its own. Pulling is as abrupt as a hand: whoever reads from the card loses it. For the test's
/// thread alone.
class TestCard {
  public:
    static constexpr const char* whySkipped = "NOTHING CAN BE MOUNTED HERE: cards are NOT tested.";

    /// Nothing where nothing can be mounted.
    static std::unique_ptr<TestCard> make(const std::string& name) {
        std::unique_ptr<TestCard> card(new TestCard(name));
        if (!card->mounts_.areThere()) return nullptr;
        card->plug();
        return card;
    }

    /// Where those find it who see its mounts.
    const std::string& path() const { return path_; }
    const OwnNamespaces& mounts() const { return mounts_; }
    /// Where the test finds it while it is plugged in.
    std::filesystem::path seen() const { return mounts_.seen(path_); }
    /// Whether one card can be told from another of the same name.
    bool hasIdentifier() const { return std::filesystem::exists(folder_ / "disk"); }

    void plug() const {
        const std::string source = hasIdentifier() ? "-o loop disk" : "--bind memory";
        mounts_.run(fmt::format("cd '{}'; mount {} '{}'", folder_.path().string(), source, path_));
    }
    void pull() const { mounts_.run(fmt::format("umount --lazy '{}'", path_)); }

  private:
    explicit TestCard(const std::string& name)
        : path_("/media/" + name),
          mounts_(fmt::format(R"(
cd '{0}'
mount -t tmpfs tmpfs /media
mkdir '{1}'
truncate --size=64M disk
if mkfs.ext4 -q -O ^has_journal disk -L '{2}' && mount -o loop disk '{1}'; then
  rmdir '{1}/lost+found'  # No camera makes one.
  umount '{1}'
else
  rm disk
  mkdir memory
  mount -t tmpfs tmpfs memory
fi)",
                              folder_.path().string(), path_, name)) {}

    TemporaryFolder folder_;
    const std::string path_;
    OwnNamespaces mounts_;
};

}  // namespace vark::test
