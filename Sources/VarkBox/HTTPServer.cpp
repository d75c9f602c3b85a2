#include "VarkBox/HTTPServer.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <boost/beast/http/status.hpp>
#include <charconv>
#include <csignal>
#include <limits>
#include <thread>
#include <vector>

#include "VarkBox/RequestTarget.h"
#include "VarkBox/Wire.h"

namespace vark::box {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;

namespace {

constexpr std::size_t pieceSize = 256 << 10;
constexpr std::uint32_t longestHead = 64 << 10;
constexpr int threadCount = 2;
constexpr std::chrono::milliseconds acceptPause{50};

constexpr auto awaited = asio::as_tuple(asio::use_awaitable);

using HeadParser = http::request_parser<http::empty_body>;

std::optional<BoxRequest> requestFrom(const HeadParser& parser, Listener listener) {
    const auto& head = parser.get();
    auto text = [&head](http::field field) { return std::string(head[field]); };
    BoxRequest request;
    request.listener = listener;
    request.method = std::string(head.method_string());
    request.target = std::string(head.target());
    constexpr std::string_view scheme = "Bearer ";
    std::string authorization = text(http::field::authorization);
    if (authorization.starts_with(scheme)) request.token = authorization.substr(scheme.size());
    request.range = text(http::field::range);
    request.userAgent = text(http::field::user_agent);
    request.via = std::string(head["X-Vark-Via"]);
    request.contentLength = parser.content_length().value_or(0);
    if (!takeTargetApart(request)) return std::nullopt;
    return request;
}

std::string headOf(const BoxReply& reply, std::uint64_t length, bool keepsAlive) {
    std::string head;
    auto line = std::back_inserter(head);
    fmt::format_to(line, "HTTP/1.1 {} {}\r\n", reply.status,
                   std::string_view(http::obsolete_reason(static_cast<http::status>(reply.status))));
    // These statuses have no body by their nature, and must not announce one.
    if (reply.status != 204 && reply.status != 304) {
        fmt::format_to(line, "Content-Type: {}\r\nContent-Length: {}\r\n", reply.contentType, length);
    }
    for (const auto& [name, value] : reply.headers)
        fmt::format_to(line, "{}: {}\r\n", name, value);
    if (!keepsAlive) head += "Connection: close\r\n";
    return head + "\r\n";
}

/// Writes the line of a request into the log once, at the latest when the request has come to its end in any
/// way.
class RecordAtEnd {
  public:
    RecordAtEnd(Site& site, const BoxRequest& request, bool hadToken) : site_(site) {
        record.listener = request.listener;
        record.method = request.method;
        record.target = request.target;
        record.hadToken = hadToken;
        record.via = request.via;
        record.userAgent = request.userAgent;
    }
    RecordAtEnd(const RecordAtEnd&) = delete;
    RecordAtEnd& operator=(const RecordAtEnd&) = delete;
    ~RecordAtEnd() { write(); }

    void write() {
        if (!written_) site_.record(record);
        written_ = true;
    }

    RequestRecord record;

  private:
    Site& site_;
    bool written_ = false;
};

/// One connection: request after request until either side ends it.
class Conversation {
  public:
    Conversation(tcp::socket socket, SSL_CTX* context, Listener listener, Site& site)
        : executor_(socket.get_executor()),
          wire_(std::move(socket), context),
          listener_(listener),
          site_(site),
          buffer_(pieceSize) {}

    Waiting<void> run() {
        bool goesOn = co_await wire_.accept();
        while (goesOn)
            goesOn = co_await exchange();
    }

  private:
    /// What of the buffer has been read and not yet used.
    std::string_view waiting() const { return {buffer_.data() + used_, filled_ - used_}; }

    /// Makes at least one byte more available; false when the peer is gone.
    Waiting<bool> readMore() {
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

    /// False when there is no further request, or none that can be understood.
    Waiting<bool> readHead(HeadParser& parser) {
        while (true) {
            if (!waiting().empty()) {
                boost::system::error_code error;
                used_ += parser.put(asio::const_buffer(waiting().data(), waiting().size()), error);
                if (parser.is_header_done()) co_return true;
                if (error && error != http::error::need_more) {
                    co_await refuse(
                        Refusal(400, fmt::format("That is no HTTP request: {}.", error.message())));
                    co_return false;
                }
            }
            if (!co_await readMore()) co_return false;
        }
    }

    Waiting<void> refuse(Refusal refusal) {
        BoxReply reply = refusal.reply();
        std::string bytes = headOf(reply, reply.body.size(), false) + reply.body;
        co_await wire_.write(bytes);
        wire_.sayGoodbye();
    }

    /// One request and its answer. False when the connection is to end.
    Waiting<bool> exchange() {
        HeadParser parser;
        parser.eager(false);
        parser.header_limit(longestHead);
        parser.body_limit(std::numeric_limits<std::uint64_t>::max());
        if (!co_await readHead(parser)) co_return false;
        std::optional<BoxRequest> request = requestFrom(parser, listener_);
        if (!request || parser.chunked()) {
            Refusal noTarget(400, "The target of this request is no path in UTF-8.");
            Refusal noLength(411, "A body needs a Content-Length here.");
            co_await refuse(request ? noLength : noTarget);
            co_return false;
        }
        bool hadToken = parser.get().count(http::field::authorization) > 0;
        RecordAtEnd end(site_, *request, hadToken);
        std::uint64_t length = request->contentLength;
        Visit visit = site_.arrive(std::move(*request));
        if (visit.delay.count() > 0) {
            asio::steady_timer timer(executor_, visit.delay);
            co_await timer.async_wait(awaited);
        }
        if (http::token_list(parser.get()[http::field::expect]).exists("100-continue") && length > 0) {
            if (!co_await wire_.write("HTTP/1.1 100 Continue\r\n\r\n")) co_return false;
        }
        co_return co_await receiveAndAnswer(visit, length, parser.get().keep_alive(), end);
    }

    Waiting<bool> receiveAndAnswer(Visit& visit, std::uint64_t length, bool keepsAlive, RecordAtEnd& end) {
        bool cutShort = visit.mishap == Mishap::answerEarly || visit.mishap == Mishap::reset ||
                        visit.mishap == Mishap::stall;
        std::uint64_t wanted = cutShort ? std::min(length, visit.afterBytes) : length;
        if (!co_await receive(*visit.sink, wanted, end.record)) co_return false;
        switch (visit.mishap) {
            case Mishap::reset:
                wire_.reset();
                co_return false;
            case Mishap::stall:
            case Mishap::stallAfterBody:
                co_await wire_.untilPeerGoes();
                co_return false;
            case Mishap::none:
            case Mishap::answerEarly:
            case Mishap::shortBody:
                break;
        }
        BoxReply reply = visit.sink->finish();
        bool goesOn = keepsAlive && visit.mishap == Mishap::none;
        std::uint64_t promised = visit.mishap == Mishap::shortBody ? 1000 : 0;
        bool isShort = !reply.file;
        if (isShort) {
            // Whoever has the answer finds the line in the log.
            end.record.status = reply.status;
            end.write();
        }
        if (!co_await answer(reply, promised, goesOn)) co_return false;
        end.record.status = reply.status;
        if (goesOn) co_return true;
        wire_.sayGoodbye();
        // A close with bytes unread would reset the connection before the peer has read the answer.
        while (wanted < length && co_await readMore())
            used_ = filled_;
        co_return false;
    }

    Waiting<bool> receive(BodySink& sink, std::uint64_t length, RequestRecord& record) {
        while (record.bodyBytes < length) {
            if (waiting().empty() && !co_await readMore()) co_return false;
            std::string_view piece = waiting();
            piece = piece.substr(0, std::min<std::uint64_t>(piece.size(), length - record.bodyBytes));
            sink.write(piece);
            used_ += piece.size();
            record.bodyBytes += piece.size();
        }
        co_return true;
    }

    Waiting<bool> answer(const BoxReply& reply, std::uint64_t promisedMore, bool keepsAlive) {
        std::uint64_t length = reply.file ? reply.file->length : reply.body.size();
        std::string bytes = headOf(reply, length + promisedMore, keepsAlive) + reply.body;
        if (!co_await wire_.write(bytes)) co_return false;
        if (!reply.file) co_return true;
        std::vector<char> piece(pieceSize);
        std::uint64_t sent = 0;
        while (sent < length) {
            auto offset = static_cast<off_t>(reply.file->offset + sent);
            std::size_t size = std::min<std::uint64_t>(piece.size(), length - sent);
            ssize_t count = ::pread(reply.file->file.get(), piece.data(), size, offset);
            if (count <= 0) co_return false;
            std::string_view part(piece.data(), static_cast<std::size_t>(count));
            if (!co_await wire_.write(part)) co_return false;
            sent += part.size();
        }
        co_return true;
    }

    asio::any_io_executor executor_;
    Wire wire_;
    Listener listener_;
    Site& site_;
    std::vector<char> buffer_;
    std::size_t used_ = 0;
    std::size_t filled_ = 0;
};

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
            fmt::format("\"{}\" is no address to listen on. Give one like 127.0.0.1:8443.", address));
    }
    if (!parsed.is_loopback()) {
        throw std::runtime_error(fmt::format(
            "The box listens on this machine only, and {} is open to others. Give one like 127.0.0.1:8443.",
            host));
    }
    return {parsed, static_cast<std::uint16_t>(port)};
}

}  // namespace

class HTTPServer::Machine {
  public:
    Machine(Site& site, const std::optional<CertificateFiles>& certificates) : site_(site) {
        if (certificates) context_ = tlsContext(*certificates);
    }

    ~Machine() { stop(); }

    std::string listen(Listener listener, std::string_view address) {
        tcp::endpoint endpoint = endpointFrom(address);
        tcp::acceptor acceptor(io_);
        try {
            acceptor.open(endpoint.protocol());
            acceptor.set_option(asio::socket_base::reuse_address(true));
            acceptor.bind(endpoint);
            acceptor.listen();
        } catch (const boost::system::system_error& failure) {
            throw std::runtime_error(
                fmt::format("Could not listen on {}: {}. Is another program using that port?", address,
                            failure.code().message()));
        }
        tcp::endpoint bound = acceptor.local_endpoint();
        asio::co_spawn(io_, accept(std::move(acceptor), listener), asio::detached);
        std::string host = bound.address().to_string();
        return fmt::format(fmt::runtime(bound.address().is_v6() ? "[{}]:{}" : "{}:{}"), host, bound.port());
    }

    void start() {
        // OpenSSL writes to sockets in the plain way, and a peer that has gone must not end the process.
        std::signal(SIGPIPE, SIG_IGN);
        for (int i = 0; i < threadCount; ++i)
            threads_.emplace_back([this] { io_.run(); });
    }

    void stop() {
        io_.stop();
        threads_.clear();
    }

  private:
    Waiting<void> accept(tcp::acceptor acceptor, Listener listener) {
        while (true) {
            auto [error, socket] = co_await acceptor.async_accept(awaited);
            if (!error) {
                asio::co_spawn(io_, converse(std::move(socket), listener), asio::detached);
                continue;
            }
            // Out of descriptors, most likely: some connection will end.
            asio::steady_timer timer(io_, acceptPause);
            co_await timer.async_wait(awaited);
        }
    }

    Waiting<void> converse(tcp::socket socket, Listener listener) {
        Conversation conversation(std::move(socket), context_.get(), listener, site_);
        co_await conversation.run();
    }

    Site& site_;
    TLSContext context_;
    asio::io_context io_{threadCount};
    std::vector<std::jthread> threads_;
};

HTTPServer::HTTPServer(Site& site, const std::optional<CertificateFiles>& certificates)
    : machine_(std::make_unique<Machine>(site, certificates)) {}

HTTPServer::~HTTPServer() = default;

std::string HTTPServer::listen(Listener listener, std::string_view address) {
    return machine_->listen(listener, address);
}

void HTTPServer::start() {
    machine_->start();
}

void HTTPServer::stop() {
    machine_->stop();
}

}  // namespace vark::box
