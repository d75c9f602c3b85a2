#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <system_error>

#include "VarkCore/Foundation/Files.h"

namespace vark::test {

/// A free port of 127.0.0.1 that is this object's: connections are refused unless it listens, or a program of
/// the test's that shares the port (SO_REUSEPORT).
class LoopbackPort {
  public:
    LoopbackPort() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{
            .sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
        socklen_t length = sizeof address;
        auto* any = reinterpret_cast<sockaddr*>(&address);
        const int yes = 1;
        if (setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes) != 0 ||
            bind(socket_.get(), any, length) != 0 || getsockname(socket_.get(), any, &length) != 0)
            throw std::system_error(errno, std::generic_category(), "no free port");
        port_ = ntohs(address.sin_port);
    }

    std::uint16_t port() const { return port_; }
    int descriptor() const { return socket_.get(); }
    void listen() const { ::listen(socket_.get(), SOMAXCONN); }
    void close() { socket_.close(); }

  private:
    Descriptor socket_;
    std::uint16_t port_ = 0;
};

}  // namespace vark::test
