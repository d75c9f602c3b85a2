#include "VarkPlatform/Linux/Network/TLSDialer.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <cerrno>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Services/Limits.h"
#include "VarkPlatform/Linux/Network/TLSChannel.h"
#include "VarkPlatform/Linux/Network/TrustStore.h"
#include "VarkPlatform/Linux/SignalsBlocked.h"

namespace vark {
namespace {

constexpr unsigned mostLanes = 4;
/// Read from the kernel at once; OpenSSL's own measure is one record.
constexpr std::size_t readBufferBytes = std::size_t{128} << 10;

/// A task of its own, so that it can be given a limit.
Task<void> connect(std::shared_ptr<TLSChannel> channel, DialTarget target) {
    co_await TLSConnect(std::move(channel), std::move(target));
}

}  // namespace

/// A thread with the connections that live on it. Its end awaits what is still to be done for them.
class TLSDialer::Lane {
  public:
    Lane() : work_(context.get_executor()), thread_([this] { context.run(); }) {}
    ~Lane() {
        work_.reset();
        thread_.join();
    }
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    boost::asio::io_context context{1};
    std::atomic<int> connections = 0;

  private:
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_;
    std::thread thread_;
};

class TLSDialer::Connection final : public TLSConnection {
  public:
    Connection(Lane& lane, ssl_ctx_st* context)
        : lane_(lane), channel_(std::make_shared<TLSChannel>(lane.context, context)) {
        ++lane_.connections;
    }
    ~Connection() override {
        channel_->close();
        --lane_.connections;
    }

    const std::shared_ptr<TLSChannel>& channel() const { return channel_; }
    Task<void> send(std::span<const char> bytes) override { co_await TLSSend(channel_, bytes); }
    Task<Received> receive(std::span<char> into) override { co_return co_await TLSReceive(channel_, into); }

    bool trySend(std::span<const char>& bytes) override { return channel_->trySend(bytes); }
    std::optional<Received> tryReceive(std::span<char> into) override { return channel_->tryReceive(into); }

  private:
    Lane& lane_;
    const std::shared_ptr<TLSChannel> channel_;
};

TLSDialer::TLSDialer(const std::optional<std::string>& authorityFile)
    : context_(SSL_CTX_new(TLS_client_method())) {
    if (!context_) throw std::bad_alloc();
    SSL_CTX* context = context_.get();
    TrustStore(authorityFile).applyTo(context);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    // Without renegotiation, whoever sends never has to read; and an end without a farewell is an end.
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_read_ahead(context, 1);
    SSL_CTX_set_default_read_buffer_len(context, readBufferBytes);
    const SignalsBlocked blocked;
    for (unsigned count = std::clamp(std::thread::hardware_concurrency(), 1U, mostLanes); count > 0; --count)
        lanes_.push_back(std::make_unique<Lane>());
}

TLSDialer::~TLSDialer() = default;

void TLSDialer::Free::operator()(ssl_ctx_st* context) const noexcept {
    SSL_CTX_free(context);
}

TLSDialer::Lane& TLSDialer::idlestLane() const {
    return **std::ranges::min_element(lanes_, {}, [](const auto& lane) { return lane->connections.load(); });
}

Task<std::unique_ptr<TLSConnection>> TLSDialer::dial(DialTarget target) {
    auto connection = std::make_unique<Connection>(idlestLane(), context_.get());
    try {
        co_await withTimeout(limits::connectingToANode, connect(connection->channel(), std::move(target)));
    } catch (const TimeoutError&) {
        throw DialError(DialError::network, std::system_category().message(ETIMEDOUT));
    }
    co_return connection;
}

}  // namespace vark
