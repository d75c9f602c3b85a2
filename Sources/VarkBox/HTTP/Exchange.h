#pragma once

#include <boost/json/object.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VarkCore/Foundation/Files.h"

namespace vark::box {

/// Of a vark: the application answers calls under "/api", and the chunk listener takes and gives file bytes
/// without a token. Of a node: what clients in the office reach, and the control calls.
enum class Listener { app, chunk, node, control };

std::string_view nameOf(Listener listener);

/// One request as the handlers see it: taken apart, and free of the HTTP library.
struct BoxRequest {
    Listener listener = Listener::app;
    std::string method;
    /// As it came, percent-encoded, with its query.
    std::string target;
    /// The decoded pieces of the path.
    std::vector<std::string> segments;
    /// The decoded query.
    std::vector<std::pair<std::string, std::string>> query;
    /// What stands behind "Bearer ". It is compared, and never written anywhere.
    std::optional<std::string> token;
    std::string range;
    std::string via;
    std::string userAgent;
    /// The host of the node that brings the request; empty when it came straight.
    std::string node;
    std::uint64_t contentLength = 0;
    std::string body;

    std::optional<std::string_view> queryValue(std::string_view name) const;
};

/// A stretch of an open file that follows the head of a reply.
struct FileSlice {
    Descriptor file;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

struct BoxReply {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";
    std::vector<std::pair<std::string, std::string>> headers;
    std::optional<FileSlice> file;

    static BoxReply json(int status, const boost::json::value& value);
    static BoxReply plain(int status, std::string text);
    static BoxReply redirect(std::string location);
};

/// A request that is turned down, with a sentence for the person who made it.
class Refusal : public std::runtime_error {
  public:
    Refusal(int status, const std::string& sentence, boost::json::object extras = {});

    int status() const { return status_; }
    BoxReply reply() const;

  private:
    int status_;
    boost::json::object extras_;
};

/// Takes the body of one request as it arrives, and answers at its end. Owned by the connection and used by
/// one thread at a time; a request that breaks off destroys it without `finish`.
class BodySink {
  public:
    BodySink() = default;
    BodySink(const BodySink&) = delete;
    BodySink& operator=(const BodySink&) = delete;
    virtual ~BodySink() = default;

    virtual void write(std::string_view piece) = 0;
    virtual BoxReply finish() = 0;
};

/// Passes the body over and gives an answer that was known before it.
class DiscardingSink : public BodySink {
  public:
    explicit DiscardingSink(BoxReply reply) : reply_(std::move(reply)) {}

    void write(std::string_view /*piece*/) override {}
    BoxReply finish() override { return std::move(reply_); }

  private:
    BoxReply reply_;
};

/// What goes wrong with a connection on purpose.
enum class Mishap { none, answerEarly, reset, stall, stallAfterBody, shortBody };

class Uplink;

/// How a request is to be taken, decided once its head is known: by a sink, or by the vark of this node.
struct Visit {
    std::unique_ptr<BodySink> sink;
    const Uplink* onward = nullptr;
    std::chrono::milliseconds delay{0};
    Mishap mishap = Mishap::none;
    /// How many bytes of the body are read before the mishap.
    std::uint64_t afterBytes = 0;
};

/// What the request log says of one request.
struct RequestRecord {
    Listener listener = Listener::app;
    std::string method;
    std::string target;
    /// 0 when the request was broken off before its answer was sent.
    int status = 0;
    std::uint64_t bodyBytes = 0;
    bool hadToken = false;
    std::string via;
    std::string userAgent;
    std::string node;
};

/// What the server needs of the site that it serves. Called from every thread of the server at once.
class Site {
  public:
    Site() = default;
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;
    virtual ~Site() = default;

    virtual Visit arrive(BoxRequest request) = 0;
    virtual void record(const RequestRecord& record) noexcept = 0;
};

/// Gives the record of a request to the site once, at the latest when the request has come to its end in any
/// way.
class RecordAtEnd {
  public:
    RecordAtEnd(Site& site, const BoxRequest& request, bool hadToken);
    RecordAtEnd(const RecordAtEnd&) = delete;
    RecordAtEnd& operator=(const RecordAtEnd&) = delete;
    ~RecordAtEnd() { write(); }

    /// Called before the last piece of the answer goes: whoever has it whole finds the line in the log.
    void answered(int status);

    RequestRecord record;

  private:
    void write();

    Site& site_;
    bool written_ = false;
};

}  // namespace vark::box
