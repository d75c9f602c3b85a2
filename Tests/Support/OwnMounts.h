#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// A table of mounts of its own, for programs that are to see another file system than the test. It lasts as
/// long as this object. For the test's thread alone.
class OwnMounts {
  public:
    /// `script` makes the mounts; it runs inside, in a shell.
    explicit OwnMounts(const std::string& script);

    /// Whether this kernel gives one, and the script succeeded.
    bool isThere() const { return isThere_; }
    /// What starts a program inside.
    std::vector<std::string> prefix() const;
    /// A path inside, as the test sees it.
    std::filesystem::path seen(const std::filesystem::path& inside) const;
    /// Runs a script inside, and fails the test when it fails.
    void run(const std::string& script);

  private:
    Process start(const std::vector<std::string>& command);

    TemporaryFolder folder_;
    int runs_ = 0;
    std::optional<Process> holder_;
    bool isThere_ = false;
};

}  // namespace vark::test
