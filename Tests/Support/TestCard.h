#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// A memory card that a test plugs in and pulls out: a disk image on a loop device where the machine gives
/// one, and otherwise a file system in memory, which has no identifier. It is mounted below /media in a mount
/// namespace of this process's own, which the programs that it starts share. Pulling is as abrupt as a hand:
/// whoever reads from the card loses it. For the test's thread alone; pulled at its end.
class TestCard {
  public:
    /// Nothing where nothing can be mounted.
    static std::unique_ptr<TestCard> make(const std::string& name);
    ~TestCard();

    /// While it is plugged in.
    std::filesystem::path path() const { return std::filesystem::path("/media") / name_; }
    /// Whether one card can be told from another of the same name.
    bool hasIdentifier() const { return isDisk_; }
    void plug();
    void pull();

  private:
    explicit TestCard(std::string name) : name_(std::move(name)) {}
    bool makeDisk();
    bool makeMemory();
    bool mountDisk();
    bool mountMemory();

    const std::string name_;
    TemporaryFolder folder_;
    bool isDisk_ = false;
    bool isPlugged_ = false;
};

}  // namespace vark::test
