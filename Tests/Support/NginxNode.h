#pragma once

#include <fmt/format.h>

#include <stdexcept>

#include "Tests/Support/BuildTree.h"
#include "Tests/Support/LoopbackPort.h"
#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/LAN/LANNode.h"

namespace vark::test {

/// An nginx as a node of the office would run it (nginx.conf), on a free port of the loopback, with the
/// identity that a TestAuthority has made.
class NginxNode {
  public:
    explicit NginxNode(const std::string& identity) : process_(options(identity)) {
        // It listens before it writes this.
        if (!process_.untilThere(folder_ / "pid")) throw std::runtime_error("nginx: " + process_.errors());
    }

    LANRoute routeTo(const std::string& path, const std::string& host = "node.test") const {
        const std::string url = fmt::format("https://127.0.0.1:{}{}", port_.port(), path);
        return {URL::parse(url).value(), "127.0.0.1", port_.port(), host, path};
    }

    /// It holds its port, and does nothing any more.
    void standStill() const { process_.signal(SIGSTOP); }

  private:
    Process::Options options(const std::string& identity) const {
        std::filesystem::create_directory(folder_ / "served");
        std::filesystem::copy(sourceTree() / "Tests/Support/nginx.conf", folder_.path());
        std::filesystem::copy(identity, folder_ / "identity");
        folder_.file("listen.conf", fmt::format("listen 127.0.0.1:{} ssl reuseport;", port_.port()));
        return {.program = "/usr/sbin/nginx",
                .arguments = {"-p", folder_.path(), "-c", "nginx.conf", "-e", "errors"}};
    }

    TemporaryFolder folder_;
    LoopbackPort port_;
    Process process_;
};

}  // namespace vark::test
