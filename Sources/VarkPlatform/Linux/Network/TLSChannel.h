#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "VarkCore/Concurrency/Coroutine.h"
#include "VarkCore/Services/Dialer.h"

extern "C" {
struct bio_st;
struct bio_method_st;
struct ssl_st;
struct ssl_ctx_st;
}

namespace vark {

/// A socket with TLS on it, all of which happens on the one thread of `lane`: the channel goes as far as it
/// can and then waits there until the socket is ready for more. Records are gathered, so that the kernel is
/// asked once for many of them. Shared by the connection and by what waits on the lane; ended by `close`.
class TLSChannel final : public std::enable_shared_from_this<TLSChannel> {
  public:
    class Call;

    TLSChannel(boost::asio::io_context& lane, ssl_ctx_st* context);
    ~TLSChannel();
    TLSChannel(const TLSChannel&) = delete;
    TLSChannel& operator=(const TLSChannel&) = delete;

    /// From any thread. A call that is under way ends as a cancelled one.
    void close();
    /// On any thread while no call is under way.
    bool trySend(std::span<const char>& bytes) { return !sendOn(bytes); }
    std::optional<TLSConnection::Received> tryReceive(std::span<char> into);

  private:
    friend class TLSConnect;
    friend class TLSSend;
    friend class TLSReceive;
    struct Free {
        void operator()(ssl_st* tls) const noexcept;
    };
    /// What the socket must become ready for before there is more to do; nothing when all is done.
    using Need = std::optional<boost::asio::socket_base::wait_type>;

    static const bio_method_st* transport();
    static int give(bio_st* bio, const char* bytes, int count);
    static int take(bio_st* bio, char* into, int count);
    static long control(bio_st* bio, int command, long number, void* pointer);

    void begin(Call& call);
    void cancel(std::uint64_t number);
    void proceed();
    /// Ends the call under way once the far side has fallen silent in the middle of it.
    void keepWatch();
    bool farSideIsLost();
    void finish(std::exception_ptr failure);

    /// Hands the kernel what has been encrypted.
    Need flush();
    /// Takes off the front of `bytes` what has been encrypted; done when all of it is the kernel's.
    Need sendOn(std::span<const char>& bytes);
    Need receiveOn(std::span<char> into, TLSConnection::Received& received);
    /// What a refusal of OpenSSL's means, with `result` as it gave it: that it waits for bytes, or a failure.
    Need readOrThrow(int result);
    DialError failure() const;

    boost::asio::io_context& lane_;
    boost::asio::ip::tcp::socket socket_;
    boost::asio::steady_timer watch_;
    bool watching_ = false;
    std::unique_ptr<ssl_st, Free> tls_;

    std::vector<char> encrypted_;
    std::size_t handedOver_ = 0;
    bool farSideEnded_ = false;
    int systemError_ = 0;

    std::uint64_t lastNumber_ = 0;  // Belongs to the one task that calls.
    Call* call_ = nullptr;
    std::uint64_t number_ = 0;
};

/// The wait for one thing that a channel does. A part of the coroutine that awaits it.
class TLSChannel::Call : public StoppableWait {
  public:
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
        return suspend(handle, [this](const TaskContext& context) {
            if (context.token.stop_requested()) {
                end(std::make_exception_ptr(CancellationError()));
                return;
            }
            channel_->begin(*this);
            watch(context.token);
        });
    }

  protected:
    explicit Call(std::shared_ptr<TLSChannel> channel) : channel_(std::move(channel)) {}
    ~Call() = default;

    /// On the lane: goes as far as possible; called again once the need is met. Failures are thrown.
    virtual Need advance() = 0;
    void await_resume() {
        unwatch();
        if (failure_) std::rethrow_exception(failure_);
    }

    const std::shared_ptr<TLSChannel> channel_;

  private:
    friend class TLSChannel;
    void onStop() noexcept override { channel_->cancel(number_); }
    void end(std::exception_ptr failure) {
        failure_ = std::move(failure);
        complete();
    }

    std::uint64_t number_ = 0;
    std::exception_ptr failure_;
};

/// Connects, and proves that the far side may call itself `host`.
class TLSConnect final : public TLSChannel::Call {
  public:
    TLSConnect(std::shared_ptr<TLSChannel> channel, DialTarget target)
        : Call(std::move(channel)), target_(std::move(target)) {}
    using Call::await_resume;

  private:
    TLSChannel::Need advance() override;
    void begin();
    void expectHost();

    const DialTarget target_;
    bool begun_ = false;
    bool connected_ = false;
};

class TLSSend final : public TLSChannel::Call {
  public:
    TLSSend(std::shared_ptr<TLSChannel> channel, std::span<const char> bytes)
        : Call(std::move(channel)), bytes_(bytes) {}
    using Call::await_resume;

  private:
    TLSChannel::Need advance() override { return channel_->sendOn(bytes_); }

    std::span<const char> bytes_;
};

class TLSReceive final : public TLSChannel::Call {
  public:
    TLSReceive(std::shared_ptr<TLSChannel> channel, std::span<char> into)
        : Call(std::move(channel)), into_(into) {}
    TLSConnection::Received await_resume() {
        Call::await_resume();
        return received_;
    }

  private:
    TLSChannel::Need advance() override { return channel_->receiveOn(into_, received_); }

    const std::span<char> into_;
    TLSConnection::Received received_;
};

}  // namespace vark
