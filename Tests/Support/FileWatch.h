#pragma once

#include <sys/inotify.h>

#include <chrono>
#include <filesystem>
#include <functional>

#include "VarkCore/Foundation/Files.h"

namespace vark::test {

/// Wakes when something happens in a folder: a file in it was made, written or renamed.
class FileWatch {
  public:
    explicit FileWatch(const std::filesystem::path& folder);

    /// Asks at once, and again after each change, until the answer is yes. False when the limit has passed,
    /// or when the process behind `pidfd` (if there is one) has ended and the answer is still no.
    bool until(const std::function<bool()>& answer, std::chrono::milliseconds limit, int pidfd = -1) const;

  private:
    Descriptor notes_;
};

}  // namespace vark::test
