#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <thread>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Services/PathMonitor.h"

namespace vark {

/// Watches the kernel's routes. There is a usable path when a route leads out into the world, or to the host
/// of the vark, which may stand in the local net or on this very machine. Nothing is ever sent. Its end does
/// not wait for a look-up of the host's name that is under way.
class NetlinkPathMonitor final : public PathMonitor {
  public:
    /// `host` is a name or a numeric address.
    explicit NetlinkPathMonitor(std::optional<std::string> host = std::nullopt) : host_(std::move(host)) {}
    ~NetlinkPathMonitor() override;

    void start(std::function<void(bool usable)> changed) override;

  private:
    void watch(const std::function<void(bool usable)>& changed) const;

    const std::optional<std::string> host_;
    Descriptor changes_;
    Descriptor end_;
    std::thread thread_;
};

}  // namespace vark
