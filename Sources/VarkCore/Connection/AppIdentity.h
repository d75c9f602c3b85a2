#pragma once

#include <filesystem>
#include <string>

namespace vark {

class Bundle;

/// Which build is running. A build that is not the shipping one keeps its files and its domains apart from
/// it. A value; any thread.
class AppIdentity {
  public:
    explicit AppIdentity(const Bundle& bundle);

    const std::string& bundleID() const { return bundleID_; }
    bool isShipping() const;
    /// The name of the folder with this build's own files.
    std::string folderName() const;
    /// Moves the folder of an older version in `base` to its new name: in the shipping build, when only the
    /// old one is there. Failures are swallowed; the new name counts either way.
    void carryOverFolder(const std::filesystem::path& base) const;

  private:
    std::string bundleID_;
};

}  // namespace vark
