#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "VarkCore/Foundation/Files.h"

namespace vark::test {

/// Takes connections at an address of one network and passes their bytes to a port of this one's loopback:
/// the line by which others reach a server that listens on this machine only. Its end cuts them all.
class Forwarder {
  public:
    /// `network` is a namespace by its file; empty for this one.
    Forwarder(const std::string& network, const std::string& ip, std::uint16_t port);
    ~Forwarder();
    Forwarder(const Forwarder&) = delete;
    Forwarder& operator=(const Forwarder&) = delete;

    /// Bytes that came in by this line.
    std::int64_t bytes() const { return bytes_; }

  private:
    void takeConnections();
    void pass(Descriptor from);

    const std::uint16_t port_;
    Descriptor listening_;
    Descriptor ended_;
    std::atomic<std::int64_t> bytes_ = 0;
    std::vector<std::thread> lines_;  // The accepting thread only.
    std::thread accepting_;
};

}  // namespace vark::test
