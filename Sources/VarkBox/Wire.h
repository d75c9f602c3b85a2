#pragma once

#include <openssl/types.h>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "VarkBox/Authority.h"

namespace vark::box {

template <class T>
using Waiting = boost::asio::awaitable<T>;

struct FreeTLS {
    void operator()(SSL* session) const;
    void operator()(SSL_CTX* context) const;
};
using TLSContext = std::unique_ptr<SSL_CTX, FreeTLS>;

/// What all connections of a server share. Sessions are resumed.
TLSContext tlsContext(const CertificateFiles& files);

/// The bytes of one connection, with or without TLS, for one coroutine at a time. OpenSSL works on the socket
/// itself, and Asio only waits until the socket is ready: that saves the copies of a stream between them.
class Wire {
  public:
    Wire(boost::asio::ip::tcp::socket socket, SSL_CTX* context);

    /// False when the peer is gone or does not agree.
    Waiting<bool> accept();
    /// As many bytes as are there, at least one; 0 when the peer is gone.
    Waiting<std::size_t> read(char* to, std::size_t size);
    /// False when the peer is gone.
    Waiting<bool> write(std::string_view bytes);
    /// Reads nothing more, and returns when the peer has closed or lost the connection.
    Waiting<void> untilPeerGoes();

    /// Ends the connection so that the peer sees it as broken.
    void reset();
    /// Says that nothing more will be sent.
    void sayGoodbye();

  private:
    using Socket = boost::asio::ip::tcp::socket;

    /// One try: bytes that were moved, or what to wait for, or neither when the connection has ended.
    struct Step {
        std::ptrdiff_t count = 0;
        std::optional<Socket::wait_type> wait{};
    };

    template <class Try>
    Waiting<std::ptrdiff_t> untilDone(Try& attempt);
    Step readOnce(char* to, std::size_t size);
    Step writeOnce(std::string_view bytes);
    Step tlsStep(int result);
    static Step plainStep(std::ptrdiff_t result, Socket::wait_type wait);

    Socket socket_;
    // After the socket that it uses, and so gone before it.
    std::unique_ptr<SSL, FreeTLS> session_;
};

}  // namespace vark::box
