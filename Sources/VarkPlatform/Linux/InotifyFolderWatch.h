#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Services/FolderWatch.h"

namespace vark {

/// Watches by the kernel's inotify, on one thread that sleeps until something happens. A machine has only so
/// many watches: where there is none to be had, the handler is called once a second until there is.
class InotifyFolderWatch final : public FolderWatch {
  public:
    InotifyFolderWatch() = default;
    ~InotifyFolderWatch() override;

    void start(std::filesystem::path folder, std::function<void()> changed) override;

  private:
    using Instant = std::chrono::steady_clock::time_point;
    struct News {
        bool isAny = false;
        bool hasClosed = false;
        bool isLost = false;
    };

    void place();
    void watch();
    News readNews() const;

    std::filesystem::path folder_;
    std::function<void()> changed_;
    Descriptor notes_;
    Descriptor end_;
    // Of the thread, once it runs.
    int watched_ = -1;
    /// Of the folder's way, what is not there yet; empty while the folder is.
    std::string awaited_;
    std::thread thread_;
};

}  // namespace vark
