#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/LAN/LANNode.h"
#include "VarkCore/Services/Dialer.h"
#include "VarkCore/Services/HTTPSession.h"

namespace vark {

class TokenBucket;

/// HTTP/1.1 to a node: one request for each connection, a body by its length or to the end, and nothing else.
/// Holds no state between calls, so any number may be under way; outlives them, and is outlived by the dialer
/// and by the pool, on which files are read and written a piece at a time. Every operation may fail with
/// `LANTransfer::Failure`, `CancellationError` or `FileError`.
class LANTransfer {
  public:
    class Failure;
    struct Response {
        int status = 0;
        /// Names lower-cased, values trimmed.
        std::map<std::string, std::string> headers;
        /// Empty when it went to a sink.
        std::string body;

        bool operator==(const Response&) const = default;
    };
    using Headers = std::vector<HTTPHeader>;
    /// Told the bytes that have gone so far, from any thread.
    using PutProgress = std::function<void(std::int64_t)>;

    /// `now` paces the limiters.
    LANTransfer(Dialer& dialer, BlockingPool& files, WallClock now = systemDate);

    /// A node that has not answered after `limit` counts as one that could not be reached.
    Task<Response> request(std::string method, LANRoute route, Headers headers,
                           std::optional<std::string> body = std::nullopt,
                           std::chrono::seconds limit = limits::standingStill);
    /// Sends `length` bytes of the file from `offset` on.
    Task<Response> put(std::filesystem::path file, std::int64_t offset, std::int64_t length,
                       std::string contentType, LANRoute route, TokenBucket* limiter, Headers headers,
                       PutProgress progress);
    /// Hands the body of a success to `sink`, which outlives the call, on a thread of the pool; that of a
    /// refusal is in the answer. The caller gives no token along.
    Task<Response> get(LANRoute route, Headers headers, BodySink& sink);

    /// The request line and the header lines, with the end of the head.
    static std::string head(std::string_view method, const LANRoute& route, const Headers& headers);

  private:
    struct FileSlice {
        std::filesystem::path path;
        std::int64_t offset;
        std::int64_t length;
    };
    Task<Response> exchange(LANRoute route, std::string request);
    Task<Response> sendFile(FileSlice slice, LANRoute route, std::string head, TokenBucket* limiter,
                            PutProgress progress);
    Task<Response> fetch(LANRoute route, std::string head, BodySink& sink);
    // What follows is awaited at once, in the same call.
    Task<std::unique_ptr<TLSConnection>> open(const LANRoute& route);
    Task<Response> readResponse(TLSConnection& connection, BodySink* sink = nullptr);

    Dialer& dialer_;
    BlockingPool& files_;
    const WallClock now_;
};

/// Why a transfer came to no answer. `what()` is a finished sentence, seen in logs.
class LANTransfer::Failure : public std::exception {
  public:
    enum Kind { connectKind, badAnswerKind, statusKind, certificateKind, shortBodyKind, cancelledKind };

    static Failure connect(std::string description);
    static Failure badAnswer(std::string what);
    static Failure status(int status, std::string words = "");
    static Failure certificate();
    static Failure shortBody();
    static Failure cancelled();

    Kind kind() const { return kind_; }
    const char* what() const noexcept override { return description_.c_str(); }
    bool operator==(const Failure& other) const {
        return kind_ == other.kind_ && description_ == other.description_;
    }

  private:
    Failure(Kind kind, std::string description) : kind_(kind), description_(std::move(description)) {}

    Kind kind_;
    std::string description_;
};

}  // namespace vark
