#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "VarkCore/Concurrency/Coroutine.h"
#include "VarkCore/Services/HTTPSession.h"
#include "VarkPlatform/Linux/Network/CurlLoop.h"
#include "VarkPlatform/Linux/Network/TrustStore.h"

namespace vark {

/// What all transfers of one session have in common.
struct CurlTransferSettings {
    const TrustStore& trust;
    std::chrono::seconds resourceLimit;
};

/// The body of an upload. The owner of the pipe's reading end: closes it at its end.
class CurlUploadBody {
  public:
    CurlUploadBody(std::shared_ptr<BytePipe> pipe, std::int64_t length)
        : pipe_(std::move(pipe)), length_(length) {}
    CurlUploadBody(CurlUploadBody&&) noexcept = default;
    ~CurlUploadBody() {
        if (pipe_) pipe_->closeReading();
    }

    BytePipe& pipe() const { return *pipe_; }
    std::int64_t length() const { return length_; }

  private:
    std::shared_ptr<BytePipe> pipe_;
    std::int64_t length_;
};

/// The wait for one answer to one request, with no redirect followed. A part of the coroutine that awaits it;
/// what it refers to outlives it. It ends only when libcurl has let go of its buffers.
class CurlTransfer final : public StoppableWait, private CurlExchange {
  public:
    CurlTransfer(CurlLoop& loop, const CurlTransferSettings& settings, const HTTPRequest& request,
                 std::optional<CurlUploadBody> body = std::nullopt);
    CurlTransfer(CurlLoop& loop, const CurlTransferSettings& settings, const HTTPRequest& request,
                 BodySink& sink);

    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
        return suspend(handle, [this](const TaskContext& context) {
            if (context.token.stop_requested()) {
                dropped();
                return;
            }
            loop_.start(*this);
            watch(context.token);
        });
    }
    HTTPResponse await_resume();

  private:
    struct FreeList {
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };

    void onStop() noexcept override { loop_.cancel(*this); }

    CURLcode prepare(CURL* easy) override;
    void ended(CURL* easy, CURLcode result) override;
    void dropped() override;

    void buildHeaderList();
    void addHeaderLine(const std::string& line);
    HTTPError failure(CURL* easy, CURLcode result) const;

    std::size_t takeHeaderLine(std::string_view line);
    std::size_t takeAnswer(std::string_view bytes);
    bool succeeds() const;
    /// Keeps what the sink fails with, and answers whether it did not.
    bool giveToSink(std::string_view bytes);
    std::size_t giveBody(std::span<char> to);

    CurlLoop& loop_;
    const CurlTransferSettings& settings_;
    const HTTPRequest& request_;
    const std::optional<CurlUploadBody> body_;
    BodySink* const sink_ = nullptr;
    std::unique_ptr<curl_slist, FreeList> headers_;
    CURL* handle_ = nullptr;  // From `prepare` to the end.

    std::int64_t sent_ = 0;
    bool bodyEndedShort_ = false;
    bool sinkIsTold_ = false;
    bool answerTooLong_ = false;
    std::exception_ptr sinkFailure_;
    bool cancelled_ = false;
    HTTPResponse response_;
    std::optional<HTTPError> failure_;
};

}  // namespace vark
