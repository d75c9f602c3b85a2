#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Foundation/BytePipe.h"
#include "VarkCore/Foundation/URL.h"
#include "VarkCore/Services/Limits.h"

namespace vark {

struct HTTPHeader {
    std::string name;
    std::string value;
    bool operator==(const HTTPHeader&) const = default;
};

struct HTTPRequest {
    std::string method = "GET";
    URL url;
    std::vector<HTTPHeader> headers;
    std::string body;
    /// How long the transfer may stand still in both directions. Of an upload, only while bytes of it are
    /// unsent: how long the answer may take then is for the caller to watch.
    std::chrono::seconds idleLimit = limits::standingStill;
    /// An answer with a longer body is a failure (`HTTPError::answerTooLong`), before it has been taken in.
    std::size_t longestAnswer = limits::answerBytes;
};

struct HTTPResponse {
    int status = 0;
    std::vector<HTTPHeader> headers;
    std::string body;
};

/// Why a transfer came to no answer. `what()` is a sentence of the system's own, and holds no header and no
/// token.
class HTTPError : public std::exception {
  public:
    enum Code {
        notConnectedToInternet,
        connectionLost,
        cannotConnect,
        cannotFindHost,
        timedOut,
        untrusted,
        answerTooLong,
        other,
    };
    HTTPError(Code code, std::string description) : code_(code), description_(std::move(description)) {}
    Code code() const { return code_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    Code code_;
    std::string description_;
};

/// How all requests of one session go out.
struct HTTPSessionSettings {
    /// On every request, redirected ones included.
    std::vector<HTTPHeader> headers;
    int mostConnectionsPerHost = limits::connectionsPerHost;
    std::chrono::seconds resourceLimit = limits::wholeTransfer;
    /// A file of certificates that are trusted beside the system's own roots.
    std::optional<std::string> authorityFile;
};

/// A redirect that a download is about to follow.
struct HTTPRedirect {
    int status = 0;
    URL location;
};

/// Takes the body of an answer as it comes: in order, one piece at a time, on a thread of whoever brings it,
/// who waits for it. What it throws ends the transfer, and is what that fails with.
class BodySink {
  public:
    virtual ~BodySink() = default;
    /// `answer` has its status and headers, and no body. Called for every success, if only with no bytes.
    virtual void take(const HTTPResponse& answer, std::string_view bytes) = 0;
};

/// HTTP to the vark, with connections kept between requests and neither cookies nor a cache. Outlives the
/// tasks that use it; any thread may call. Every call gives an answer with whatever status, or fails with
/// `HTTPError`; when its task is cancelled the transfer is dropped, and once nothing of it is left
/// `CancellationError` is thrown. A redirect of a GET is followed, and "Authorization" does not go along to
/// another host.
class HTTPSession {
  public:
    virtual ~HTTPSession() = default;

    virtual Task<HTTPResponse> data(HTTPRequest request) = 0;
    /// Sends `length` bytes from the pipe as the body. A pipe that ends before that breaks the transfer off,
    /// and the pipe's reading end is closed when the call returns, however it does.
    virtual Task<HTTPResponse> upload(HTTPRequest request, std::shared_ptr<BytePipe> body,
                                      std::int64_t length) = 0;
    /// Asked before a redirect is followed, on any thread; false refuses it, and the redirect's own answer
    /// is then the answer of the call.
    using FollowRedirect = std::function<bool(const HTTPRedirect&)>;
    /// Hands the body of a success to `sink`, which outlives the call, however long it is; that of any other
    /// answer is in the answer, as it is with `data`.
    virtual Task<HTTPResponse> receive(HTTPRequest request, BodySink& sink, FollowRedirect follow) = 0;
};

}  // namespace vark
