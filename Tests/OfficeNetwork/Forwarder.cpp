#include "Tests/OfficeNetwork/Forwarder.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace vark::test {
namespace {

void require(bool held, const char* what) {
    if (!held) throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in addressOf(const std::string& ip, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, ip.c_str(), &address.sin_addr);
    return address;
}

Descriptor listenAt(const std::string& ip, std::uint16_t port) {
    Descriptor listening(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int yes = 1;
    setsockopt(listening.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const sockaddr_in address = addressOf(ip, port);
    require(bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
    require(listen(listening.get(), SOMAXCONN) == 0, "listen");
    return listening;
}

/// A socket belongs to the network in which it was made; only a thread that ends changes to that.
Descriptor listenIn(const std::string& network, const std::string& ip, std::uint16_t port) {
    if (network.empty()) return listenAt(ip, port);
    Descriptor listening;
    std::exception_ptr failure;
    std::thread([&] {
        try {
            const Descriptor space(open(network.c_str(), O_RDONLY | O_CLOEXEC));
            require(setns(space.get(), CLONE_NEWNET) == 0, "setns");
            listening = listenAt(ip, port);
        } catch (...) {
            failure = std::current_exception();
        }
    }).join();
    if (failure) std::rethrow_exception(failure);
    return listening;
}

bool sendAll(int socket, const char* bytes, ssize_t count) {
    while (count > 0) {
        const ssize_t sent = send(socket, bytes, static_cast<std::size_t>(count), MSG_NOSIGNAL);
        if (sent < 0) return false;
        bytes += sent;
        count -= sent;
    }
    return true;
}

}  // namespace

Forwarder::Forwarder(const std::string& network, const std::string& ip, std::uint16_t port)
    : port_(port),
      listening_(listenIn(network, ip, port)),
      ended_(eventfd(0, EFD_CLOEXEC)),
      accepting_([this] { takeConnections(); }) {}

Forwarder::~Forwarder() {
    eventfd_write(ended_.get(), 1);
    accepting_.join();
    for (std::thread& line : lines_)
        line.join();
}

void Forwarder::takeConnections() {
    for (;;) {
        std::array<pollfd, 2> waits{{{listening_.get(), POLLIN, 0}, {ended_.get(), POLLIN, 0}}};
        poll(waits.data(), waits.size(), -1);
        if (waits[1].revents != 0) return;
        Descriptor from(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (from) lines_.emplace_back([this, line = std::move(from)]() mutable { pass(std::move(line)); });
    }
}

void Forwarder::pass(Descriptor from) {
    const Descriptor to(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = addressOf("127.0.0.1", port_);
    if (connect(to.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return;
    std::array<pollfd, 3> waits{{{from.get(), POLLIN, 0}, {to.get(), POLLIN, 0}, {ended_.get(), POLLIN, 0}}};
    std::array<char, 65536> bytes;
    int open = 2;
    while (open > 0) {
        poll(waits.data(), waits.size(), -1);
        if (waits[2].revents != 0) return;
        for (int side = 0; side < 2; ++side) {
            if (waits[static_cast<std::size_t>(side)].revents == 0) continue;
            const int other = side == 0 ? to.get() : from.get();
            const ssize_t count =
                recv(waits[static_cast<std::size_t>(side)].fd, bytes.data(), bytes.size(), 0);
            if (count < 0) return;
            if (count == 0) {
                shutdown(other, SHUT_WR);
                waits[static_cast<std::size_t>(side)].fd = -1;
                --open;
                continue;
            }
            if (side == 0) bytes_ += count;
            if (!sendAll(other, bytes.data(), count)) return;
        }
    }
}

}  // namespace vark::test
