#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestAuthority.h"
#include "VarkCore/LAN/LANNode.h"

namespace vark::test {

/// An nginx as a node of the office would run it, on a free port of the loopback: it serves and takes files,
/// with the name and certificate of `context`. What lies below "/endless/" is sent without its length.
class NginxNode {
  public:
    explicit NginxNode(const ServerContext& context);

    std::uint16_t port() const { return port_; }
    /// The folder that it serves as "/".
    std::filesystem::path served() const { return folder_ / "served"; }
    LANRoute routeTo(const std::string& path, const std::string& host = "node.test") const;

    /// It holds its port, and does nothing any more.
    void standStill() const { process_->signal(SIGSTOP); }
    void kill() { process_->kill(); }

  private:
    bool start();

    TemporaryFolder folder_;
    std::uint16_t port_ = 0;
    std::optional<Process> process_;
};

}  // namespace vark::test
