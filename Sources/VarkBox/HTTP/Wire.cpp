#include "VarkBox/HTTP/Wire.h"

#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <stdexcept>
#include <string>

namespace vark::box {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

namespace {

constexpr std::size_t readAtOnce = 256 << 10;
constexpr std::chrono::milliseconds departureLook{50};

std::string tlsReason() {
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_get_error(), text.data(), text.size());
    return text.data();
}

void setManners(SSL_CTX* context) {
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // One read of the socket brings many records.
    SSL_CTX_set_read_ahead(context, 1);
    SSL_CTX_set_default_read_buffer_len(context, readAtOnce);
}

}  // namespace

void FreeTLS::operator()(SSL* session) const {
    SSL_free(session);
}

void FreeTLS::operator()(SSL_CTX* context) const {
    SSL_CTX_free(context);
}

TLSContext serverContext(const CertificateFiles& files) {
    TLSContext context(SSL_CTX_new(TLS_server_method()), FreeTLS());
    bool good = context != nullptr &&
                SSL_CTX_use_certificate_chain_file(context.get(), files.certificate.c_str()) == 1 &&
                SSL_CTX_use_PrivateKey_file(context.get(), files.privateKey.c_str(), SSL_FILETYPE_PEM) == 1 &&
                SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1;
    if (!good) {
        throw std::runtime_error(
            fmt::format("Could not use the certificate {}: {}.", files.certificate.string(), tlsReason()));
    }
    constexpr std::string_view sessions = "vark-box";
    SSL_CTX_set_session_id_context(context.get(), reinterpret_cast<const unsigned char*>(sessions.data()),
                                   sessions.size());
    setManners(context.get());
    return context;
}

TLSContext clientContext(const std::filesystem::path& authority) {
    TLSContext context(SSL_CTX_new(TLS_client_method()), FreeTLS());
    bool good = context != nullptr && SSL_CTX_load_verify_file(context.get(), authority.c_str()) == 1 &&
                SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1;
    if (!good) {
        throw std::runtime_error(
            fmt::format("Could not use the authority {}: {}.", authority.string(), tlsReason()));
    }
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    setManners(context.get());
    return context;
}

tcp::endpoint endpointFrom(std::string_view address) {
    std::size_t colon = address.rfind(':');
    std::string host(address.substr(0, colon));
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    if (host == "localhost") host = "127.0.0.1";
    std::uint32_t port = 0;
    boost::system::error_code error;
    asio::ip::address parsed = asio::ip::make_address(host, error);
    bool hasPort = colon != std::string_view::npos;
    if (hasPort) {
        std::string_view digits = address.substr(colon + 1);
        auto [end, wrong] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
        hasPort = wrong == std::errc() && end == digits.data() + digits.size() && port <= 65535;
    }
    if (error || !hasPort) {
        throw std::runtime_error(
            fmt::format("\"{}\" is no address with a port. Give one like 127.0.0.1:8443.", address));
    }
    return {parsed, static_cast<std::uint16_t>(port)};
}

Wire::Wire(tcp::socket socket, const TLSContext& context) : socket_(std::move(socket)) {
    boost::system::error_code ignored;
    socket_.non_blocking(true, ignored);
    socket_.set_option(tcp::no_delay(true), ignored);
    if (context == nullptr) return;
    session_.reset(SSL_new(context.get()));
    SSL_set_fd(session_.get(), socket_.native_handle());
}

template <class Try>
Waiting<std::ptrdiff_t> Wire::untilDone(Try& attempt) {
    while (true) {
        Step step = attempt();
        if (!step.wait) co_return step.count;
        auto [error] = co_await socket_.async_wait(*step.wait, awaited);
        if (error) co_return 0;
    }
}

Waiting<std::optional<Wire>> Wire::dial(asio::any_io_executor executor, tcp::endpoint address,
                                        TLSContext context, std::string name) {
    tcp::socket socket(executor);
    auto [error] = co_await socket.async_connect(address, awaited);
    if (error) co_return std::nullopt;
    Wire wire(std::move(socket), context);
    wire.expectName(name);
    bool agreed = co_await wire.shakeHands(SSL_connect);
    if (!agreed) co_return std::nullopt;
    co_return std::optional<Wire>(std::move(wire));
}

void Wire::expectName(const std::string& name) {
    // A name that is an address stands in another part of a certificate, and is not announced.
    if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(session_.get()), name.c_str()) == 1) return;
    SSL_set1_host(session_.get(), name.c_str());
    SSL_set_tlsext_host_name(session_.get(), name.c_str());
}

Waiting<bool> Wire::accept() {
    if (!session_) co_return true;
    co_return co_await shakeHands(SSL_accept);
}

Waiting<bool> Wire::shakeHands(int (*hands)(SSL*)) {
    auto handshake = [this, hands] {
        ERR_clear_error();
        return tlsStep(hands(session_.get()));
    };
    co_return co_await untilDone(handshake) > 0;
}

Waiting<std::size_t> Wire::read(char* to, std::size_t size) {
    auto once = [&] { return readOnce(to, size); };
    std::ptrdiff_t first = co_await untilDone(once);
    if (first <= 0) co_return 0;
    auto total = static_cast<std::size_t>(first);
    while (total < size) {
        std::ptrdiff_t more = readOnce(to + total, size - total).count;
        if (more <= 0) break;
        total += static_cast<std::size_t>(more);
    }
    co_return total;
}

Waiting<bool> Wire::write(std::string_view bytes) {
    while (!bytes.empty()) {
        auto once = [&] { return writeOnce(bytes); };
        std::ptrdiff_t count = co_await untilDone(once);
        if (count <= 0) co_return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    co_return true;
}

Waiting<void> Wire::untilPeerGoes() {
    asio::steady_timer timer(socket_.get_executor());
    while (true) {
        pollfd look{.fd = socket_.native_handle(), .events = POLLRDHUP, .revents = 0};
        if (::poll(&look, 1, 0) != 0) co_return;
        timer.expires_after(departureLook);
        co_await timer.async_wait(awaited);
    }
}

void Wire::reset() {
    boost::system::error_code ignored;
    socket_.set_option(asio::socket_base::linger(true, 0), ignored);
    socket_.close(ignored);
}

void Wire::sayGoodbye() {
    ERR_clear_error();
    if (session_) SSL_shutdown(session_.get());
    boost::system::error_code ignored;
    socket_.shutdown(tcp::socket::shutdown_send, ignored);
}

Wire::Step Wire::readOnce(char* to, std::size_t size) {
    if (session_) {
        ERR_clear_error();
        return tlsStep(SSL_read(session_.get(), to, static_cast<int>(size)));
    }
    return plainStep(::recv(socket_.native_handle(), to, size, 0), tcp::socket::wait_read);
}

Wire::Step Wire::writeOnce(std::string_view bytes) {
    if (session_) {
        ERR_clear_error();
        return tlsStep(SSL_write(session_.get(), bytes.data(), static_cast<int>(bytes.size())));
    }
    return plainStep(::send(socket_.native_handle(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                     tcp::socket::wait_write);
}

Wire::Step Wire::tlsStep(int result) {
    if (result > 0) return {result, std::nullopt};
    int reason = SSL_get_error(session_.get(), result);
    if (reason == SSL_ERROR_WANT_READ) return {0, tcp::socket::wait_read};
    if (reason == SSL_ERROR_WANT_WRITE) return {0, tcp::socket::wait_write};
    return {};
}

Wire::Step Wire::plainStep(std::ptrdiff_t result, Socket::wait_type wait) {
    if (result >= 0) return {result, std::nullopt};
    if (errno == EAGAIN || errno == EINTR) return {0, wait};
    return {};
}

WireReader::WireReader(Wire& wire) : wire_(wire), buffer_(readAtOnce) {}

Waiting<bool> WireReader::readMore() {
    if (used_ == filled_) {
        used_ = filled_ = 0;
    } else if (filled_ == buffer_.size()) {
        std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(used_), buffer_.end(), buffer_.begin());
        filled_ -= used_;
        used_ = 0;
    }
    std::size_t count = co_await wire_.read(buffer_.data() + filled_, buffer_.size() - filled_);
    filled_ += count;
    co_return count > 0;
}

}  // namespace vark::box
