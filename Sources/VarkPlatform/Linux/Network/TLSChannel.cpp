#include "VarkPlatform/Linux/Network/TLSChannel.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <new>
#include <system_error>
#include <utility>

namespace vark {
namespace {

using boost::asio::ip::tcp;
using Wait = boost::asio::socket_base::wait_type;

/// More does not fit the processor's cache, less costs calls of the kernel.
constexpr std::size_t bytesEncryptedAtOnce = std::size_t{64} << 10;

[[noreturn]] void throwNetwork(int errorNumber) {
    throw DialError(DialError::network, std::system_category().message(errorNumber));
}

void check(const boost::system::error_code& error) {
    if (error) throw DialError(DialError::network, error.message());
}

/// A machine that has gone says nothing, and TCP alone would try it for many minutes. One that is slow, or
/// that takes no more for now, still acknowledges what reaches it, so neither rule counts it as lost.
constexpr std::chrono::seconds timeBetweenLooks{1};
constexpr int mostUnansweredTries = 4;
constexpr std::chrono::seconds longestSilence{6};
/// The same while nothing is on its way to it.
constexpr int idleSecondsBeforeProbes = 5;
constexpr int secondsBetweenProbes = 2;
constexpr int mostUnansweredProbes = 3;

void set(int socket, int level, int option, int value) {
    // An option that the system does not know leaves the connection as good as it is.
    setsockopt(socket, level, option, &value, sizeof value);
}

void probeWhenIdle(int socket) {
    set(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(socket, IPPROTO_TCP, TCP_KEEPIDLE, idleSecondsBeforeProbes);
    set(socket, IPPROTO_TCP, TCP_KEEPINTVL, secondsBetweenProbes);
    set(socket, IPPROTO_TCP, TCP_KEEPCNT, mostUnansweredProbes);
}

bool mustWait(int errorNumber) {
    return errorNumber == EAGAIN || errorNumber == EWOULDBLOCK;
}

}  // namespace

TLSChannel::TLSChannel(boost::asio::io_context& lane, ssl_ctx_st* context)
    : lane_(lane), socket_(lane), watch_(lane), tls_(SSL_new(context)) {
    BIO* bio = BIO_new(transport());
    if (!tls_ || bio == nullptr) throw std::bad_alloc();
    BIO_set_data(bio, this);
    BIO_set_init(bio, 1);
    SSL_set_bio(tls_.get(), bio, bio);
    SSL_set_connect_state(tls_.get());
}

TLSChannel::~TLSChannel() = default;

void TLSChannel::Free::operator()(ssl_st* tls) const noexcept {
    SSL_free(tls);
}

/// How OpenSSL reaches the socket: it reads from it, and what it writes is gathered.
const bio_method_st* TLSChannel::transport() {
    static BIO_METHOD* const method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "channel");
        if (made == nullptr) throw std::bad_alloc();
        BIO_meth_set_write(made, &give);
        BIO_meth_set_read(made, &take);
        BIO_meth_set_ctrl(made, &control);
        return made;
    }();
    return method;
}

int TLSChannel::give(bio_st* bio, const char* bytes, int count) {
    auto& channel = *static_cast<TLSChannel*>(BIO_get_data(bio));
    channel.encrypted_.insert(channel.encrypted_.end(), bytes, bytes + count);
    return count;
}

int TLSChannel::take(bio_st* bio, char* into, int count) {
    auto& channel = *static_cast<TLSChannel*>(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    // The kernel tells a failure once, and after that an end.
    if (channel.systemError_ != 0) return -1;
    const ssize_t taken =
        recv(channel.socket_.native_handle(), into, static_cast<std::size_t>(count), MSG_DONTWAIT);
    if (taken > 0) return static_cast<int>(taken);
    if (taken == 0) {
        channel.farSideEnded_ = true;
    } else if (mustWait(errno) || errno == EINTR) {
        BIO_set_retry_read(bio);
    } else {
        channel.systemError_ = errno;
    }
    return -1;
}

long TLSChannel::control(bio_st* bio, int command, long, void*) {
    if (command == BIO_CTRL_FLUSH) return 1;
    if (command == BIO_CTRL_EOF) return static_cast<TLSChannel*>(BIO_get_data(bio))->farSideEnded_ ? 1 : 0;
    return 0;
}

void TLSChannel::close() {
    boost::asio::post(lane_, [self = shared_from_this()] {
        boost::system::error_code ignored;
        self->socket_.close(ignored);
        self->watch_.cancel();
        self->finish(std::make_exception_ptr(CancellationError()));
    });
}

void TLSChannel::begin(Call& call) {
    call.number_ = ++lastNumber_;
    boost::asio::post(lane_, [self = shared_from_this(), &call] {
        assert(self->call_ == nullptr && "one call at a time");
        self->call_ = &call;
        self->number_ = call.number_;
        self->proceed();
    });
}

void TLSChannel::cancel(std::uint64_t number) {
    boost::asio::post(lane_, [self = shared_from_this(), number] {
        if (self->number_ != number || self->call_ == nullptr) return;
        boost::system::error_code ignored;
        self->socket_.cancel(ignored);
        self->finish(std::make_exception_ptr(CancellationError()));
    });
}

void TLSChannel::proceed() {
    Need need;
    std::exception_ptr failure;
    try {
        need = call_->advance();
    } catch (...) {
        failure = std::current_exception();
    }
    // Behind the handler: from here on the failure belongs to the one who waits, and to no other thread.
    if (failure || !need) {
        finish(std::move(failure));
        return;
    }
    keepWatch();
    socket_.async_wait(*need, [self = shared_from_this(), number = number_](boost::system::error_code) {
        // A call that has ended meanwhile cancelled this; a failure of the socket's shows at its next use.
        if (self->number_ == number && self->call_ != nullptr) self->proceed();
    });
}

void TLSChannel::keepWatch() {
    if (std::exchange(watching_, true)) return;
    watch_.expires_after(timeBetweenLooks);
    watch_.async_wait([self = shared_from_this()](boost::system::error_code) {
        self->watching_ = false;
        if (self->call_ == nullptr) return;
        if (!self->farSideIsLost()) return self->keepWatch();
        boost::system::error_code ignored;
        self->socket_.cancel(ignored);
        self->finish(std::make_exception_ptr(
            DialError(DialError::network, std::system_category().message(ETIMEDOUT))));
    });
}

bool TLSChannel::farSideIsLost() {
    tcp_info info{};
    socklen_t length = sizeof info;
    if (getsockopt(socket_.native_handle(), IPPROTO_TCP, TCP_INFO, &info, &length) != 0) return false;
    // What cannot even leave this machine counts as a probe.
    const int unanswered = std::max(info.tcpi_retransmits, info.tcpi_probes);
    return unanswered >= mostUnansweredTries &&
           std::chrono::milliseconds(info.tcpi_last_ack_recv) >= longestSilence;
}

void TLSChannel::finish(std::exception_ptr failure) {
    if (Call* call = std::exchange(call_, nullptr)) call->end(std::move(failure));
}

TLSChannel::Need TLSChannel::flush() {
    while (handedOver_ < encrypted_.size()) {
        const ssize_t sent = ::send(socket_.native_handle(), encrypted_.data() + handedOver_,
                                    encrypted_.size() - handedOver_, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0) {
            handedOver_ += static_cast<std::size_t>(sent);
        } else if (mustWait(errno)) {
            return Wait::wait_write;
        } else if (errno != EINTR) {
            throwNetwork(errno);
        }
    }
    encrypted_.clear();
    handedOver_ = 0;
    return std::nullopt;
}

TLSChannel::Need TLSChannel::sendOn(std::span<const char>& bytes) {
    while (true) {
        if (const Need need = flush()) return need;
        if (bytes.empty()) return std::nullopt;
        const std::span<const char> piece = bytes.first(std::min(bytes.size(), bytesEncryptedAtOnce));
        ERR_clear_error();
        std::size_t written = 0;
        if (SSL_write_ex(tls_.get(), piece.data(), piece.size(), &written) != 1) throw failure();
        bytes = bytes.subspan(written);
    }
}

TLSChannel::Need TLSChannel::receiveOn(std::span<char> into, TLSConnection::Received& received) {
    while (received.count < into.size()) {
        const std::span<char> rest = into.subspan(received.count);
        ERR_clear_error();
        std::size_t count = 0;
        const int result = SSL_read_ex(tls_.get(), rest.data(), rest.size(), &count);
        received.count += count;
        if (result == 1) continue;
        if (SSL_get_error(tls_.get(), result) == SSL_ERROR_ZERO_RETURN) {
            received.finished = true;
            return std::nullopt;
        }
        // A failure shows again at the next call, when these bytes have been taken.
        if (received.count > 0) return std::nullopt;
        return readOrThrow(result);
    }
    return std::nullopt;
}

std::optional<TLSConnection::Received> TLSChannel::tryReceive(std::span<char> into) {
    TLSConnection::Received received;
    if (receiveOn(into, received)) return std::nullopt;
    return received;
}

TLSChannel::Need TLSChannel::readOrThrow(int result) {
    if (SSL_get_error(tls_.get(), result) != SSL_ERROR_WANT_READ) throw failure();
    if (const Need need = flush()) return need;
    return Wait::wait_read;
}

DialError TLSChannel::failure() const {
    const int systemError = farSideEnded_ ? ECONNRESET : systemError_;
    if (systemError != 0) return {DialError::network, std::system_category().message(systemError)};
    const long verdict = SSL_get_verify_result(tls_.get());
    if (verdict != X509_V_OK) return {DialError::tls, X509_verify_cert_error_string(verdict)};
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    return {DialError::tls, reason != nullptr ? reason : "the TLS connection failed"};
}

TLSChannel::Need TLSConnect::advance() {
    if (!begun_) {
        begun_ = true;
        begin();
        return Wait::wait_write;
    }
    if (!connected_) {
        int error = 0;
        socklen_t length = sizeof error;
        getsockopt(channel_->socket_.native_handle(), SOL_SOCKET, SO_ERROR, &error, &length);
        if (error != 0) throwNetwork(error);
        connected_ = true;
    }
    ERR_clear_error();
    const int result = SSL_do_handshake(channel_->tls_.get());
    if (result == 1) return channel_->flush();
    try {
        return channel_->readOrThrow(result);
    } catch (const DialError&) {
        // The far side is told why, if that is to be had for nothing.
        (void)channel_->flush();
        throw;
    }
}

void TLSConnect::begin() {
    expectHost();
    boost::system::error_code error;
    const boost::asio::ip::address address = boost::asio::ip::make_address(target_.ip, error);
    check(error);
    const tcp::endpoint endpoint(address, target_.port);
    channel_->socket_.open(endpoint.protocol(), error);
    check(error);
    channel_->socket_.set_option(tcp::no_delay(true), error);
    check(error);
    channel_->socket_.non_blocking(true, error);
    check(error);
    probeWhenIdle(channel_->socket_.native_handle());
    // Asio's own way would block here, or bring a second kind of waiting.
    const int result = ::connect(channel_->socket_.native_handle(), endpoint.data(),
                                 static_cast<socklen_t>(endpoint.size()));
    if (result != 0 && errno != EINPROGRESS) throwNetwork(errno);
}

void TLSConnect::expectHost() {
    // OpenSSL takes an empty name for leave to check none.
    if (target_.host.empty()) throw DialError(DialError::tls, "there is no name to check");
    X509_VERIFY_PARAM* rules = SSL_get0_param(channel_->tls_.get());
    if (X509_VERIFY_PARAM_set1_ip_asc(rules, target_.host.c_str()) == 1) return;
    if (X509_VERIFY_PARAM_set1_host(rules, target_.host.data(), target_.host.size()) == 1 &&
        SSL_set_tlsext_host_name(channel_->tls_.get(), target_.host.c_str()) == 1)
        return;
    throw DialError(DialError::tls, "the name to check is no name");
}

}  // namespace vark
