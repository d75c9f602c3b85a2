#pragma once

#include <openssl/types.h>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkBox/HTTP/Authority.h"

namespace vark::box {

template <class T>
using Waiting = boost::asio::awaitable<T>;
/// For an operation to be awaited, which then gives its error as a value.
inline constexpr auto awaited = boost::asio::as_tuple(boost::asio::use_awaitable);

struct FreeTLS {
    void operator()(SSL* session) const;
    void operator()(SSL_CTX* context) const;
};
using TLSContext = std::shared_ptr<SSL_CTX>;

/// What all connections of a server share. Sessions are resumed.
TLSContext serverContext(const CertificateFiles& files);
/// What all connections to servers share that this authority vouches for.
TLSContext clientContext(const std::filesystem::path& authority);

/// A numeric address with a port, or "localhost" with one. Fails with std::runtime_error and a sentence.
boost::asio::ip::tcp::endpoint endpointFrom(std::string_view address);

/// The bytes of one connection, with or without TLS, for one coroutine at a time. OpenSSL works on the socket
/// itself, and Asio only waits until the socket is ready: that saves the copies of a stream between them.
class Wire {
  public:
    using Socket = boost::asio::ip::tcp::socket;

    Wire(Socket socket, const TLSContext& context);

    /// A connection to a server that has proved its name; nothing when there is none to be had.
    static Waiting<std::optional<Wire>> dial(boost::asio::any_io_executor executor,
                                             boost::asio::ip::tcp::endpoint address, TLSContext context,
                                             std::string name);

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

    boost::asio::any_io_executor executor() { return socket_.get_executor(); }

  private:
    /// One try: bytes that were moved, or what to wait for, or neither when the connection has ended.
    struct Step {
        std::ptrdiff_t count = 0;
        std::optional<Socket::wait_type> wait{};
    };

    template <class Try>
    Waiting<std::ptrdiff_t> untilDone(Try& attempt);
    Waiting<bool> shakeHands(int (*hands)(SSL*));
    void expectName(const std::string& name);
    Step readOnce(char* to, std::size_t size);
    Step writeOnce(std::string_view bytes);
    Step tlsStep(int result);
    static Step plainStep(std::ptrdiff_t result, Socket::wait_type wait);

    Socket socket_;
    // After the socket that it uses, and so gone before it.
    std::unique_ptr<SSL, FreeTLS> session_;
};

/// Reads a wire ahead into a buffer. Used by the wire's one coroutine.
class WireReader {
  public:
    explicit WireReader(Wire& wire);

    /// What has been read and not yet taken.
    std::string_view waiting() const { return {buffer_.data() + used_, filled_ - used_}; }
    void take(std::size_t count) { used_ += count; }
    /// Makes at least one byte more available; false when the peer is gone.
    Waiting<bool> readMore();

  private:
    Wire& wire_;
    std::vector<char> buffer_;
    std::size_t used_ = 0;
    std::size_t filled_ = 0;
};

}  // namespace vark::box
