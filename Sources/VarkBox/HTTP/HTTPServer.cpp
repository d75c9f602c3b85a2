#include "VarkBox/HTTP/HTTPServer.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <boost/beast/http/status.hpp>
#include <csignal>
#include <thread>
#include <vector>

#include "VarkBox/HTTP/RequestTarget.h"
#include "VarkBox/HTTP/Wire.h"
#include "VarkBox/Nodes/NodeRelay.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::box {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;

namespace {

constexpr std::size_t pieceSize = 256 << 10;
constexpr int threadCount = 2;
constexpr std::uint64_t promisedTooMuch = 1000;
constexpr std::chrono::milliseconds acceptPause{50};

using HeadParser = http::request_parser<http::empty_body>;
using namespace asio::experimental::awaitable_operators;

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
    request.node = std::string(head[nodeHeader]);
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

/// One connection: request after request until either side ends it.
class Conversation {
  public:
    Conversation(tcp::socket socket, const TLSContext& context, Listener listener, Site& site)
        : wire_(std::move(socket), context), reader_(wire_), listener_(listener), site_(site) {}

    Waiting<void> run() {
        bool goesOn = co_await wire_.accept();
        while (goesOn)
            goesOn = co_await exchange();
    }

  private:
    Waiting<void> refuse(Refusal refusal) {
        BoxReply reply = refusal.reply();
        std::string bytes = headOf(reply, reply.body.size(), false) + reply.body;
        co_await wire_.write(bytes);
        wire_.sayGoodbye();
    }

    /// One request and its answer. False when the connection is to end.
    Waiting<bool> exchange() {
        HeadParser parser;
        boost::system::error_code wrong;
        bool understood = co_await readHead(reader_, parser, wrong);
        if (wrong) {
            Refusal noRequest(400, fmt::format("That is no HTTP request: {}.", wrong.message()));
            co_await refuse(noRequest);
        }
        if (!understood) co_return false;
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
            asio::steady_timer timer(wire_.executor(), visit.delay);
            co_await timer.async_wait(awaited);
        }
        if (http::token_list(parser.get()[http::field::expect]).exists("100-continue") && length > 0) {
            if (!co_await wire_.write("HTTP/1.1 100 Continue\r\n\r\n")) co_return false;
        }
        if (visit.onward != nullptr) co_return co_await passOn(visit, parser.get(), length, end);
        co_return co_await receiveAndAnswer(visit, length, parser.get().keep_alive(), end);
    }

    Waiting<bool> passOn(const Visit& visit, const RequestHead& head, std::uint64_t length,
                         RecordAtEnd& end) {
        bool isShort = visit.mishap == Mishap::shortBody;
        NodeRelay relay(*visit.onward, wire_, reader_, end);
        relay.promisedMore = isShort ? promisedTooMuch : 0;
        relay.keepsAlive = head.keep_alive() && !isShort;
        // A client that has gone must not leave a request behind that waits for the vark.
        auto carried = co_await (relay.carry(head, length) || wire_.untilPeerGoes());
        const bool* whole = std::get_if<0>(&carried);
        if (whole == nullptr || !*whole) co_return false;
        if (!relay.keepsAlive) wire_.sayGoodbye();
        co_return relay.keepsAlive;
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
        std::uint64_t promised = visit.mishap == Mishap::shortBody ? promisedTooMuch : 0;
        if (!co_await answer(reply, promised, goesOn, end)) co_return false;
        if (goesOn) co_return true;
        wire_.sayGoodbye();
        // A close with bytes unread would reset the connection before the peer has read the answer.
        while (wanted < length && co_await reader_.readMore())
            reader_.take(reader_.waiting().size());
        co_return false;
    }

    Waiting<bool> receive(BodySink& sink, std::uint64_t length, RequestRecord& record) {
        while (record.bodyBytes < length) {
            if (reader_.waiting().empty() && !co_await reader_.readMore()) co_return false;
            std::string_view piece = reader_.waiting();
            piece = piece.substr(0, std::min<std::uint64_t>(piece.size(), length - record.bodyBytes));
            sink.write(piece);
            reader_.take(piece.size());
            record.bodyBytes += piece.size();
        }
        co_return true;
    }

    Waiting<bool> answer(const BoxReply& reply, std::uint64_t promisedMore, bool keepsAlive,
                         RecordAtEnd& end) {
        std::uint64_t length = reply.file ? reply.file->length : reply.body.size();
        std::string bytes = headOf(reply, length + promisedMore, keepsAlive) + reply.body;
        std::uint64_t left = reply.file ? length : 0;
        if (left == 0) end.answered(reply.status);
        if (!co_await wire_.write(bytes)) co_return false;
        std::vector<char> piece(left > 0 ? pieceSize : 0);
        while (left > 0) {
            auto offset = static_cast<off_t>(reply.file->offset + length - left);
            std::size_t size = std::min<std::uint64_t>(piece.size(), left);
            ssize_t count = ::pread(reply.file->file.get(), piece.data(), size, offset);
            if (count <= 0) co_return false;
            std::string_view part(piece.data(), static_cast<std::size_t>(count));
            left -= part.size();
            if (left == 0) end.answered(reply.status);
            if (!co_await wire_.write(part)) co_return false;
        }
        co_return true;
    }

    Wire wire_;
    WireReader reader_;
    Listener listener_;
    Site& site_;
};

}  // namespace

class HTTPServer::Machine {
  public:
    Machine(Site& site, const std::optional<CertificateFiles>& certificates) : site_(site) {
        if (certificates) useCertificates(*certificates);
    }

    ~Machine() { stop(); }

    void useCertificates(const CertificateFiles& files) {
        TLSContext context = serverContext(files);
        Locked guard(lock_);
        context_ = std::move(context);
    }

    std::string listen(Listener listener, std::string_view address, Reach reach) {
        tcp::endpoint endpoint = endpointFrom(address);
        if (reach == Reach::thisMachine && !endpoint.address().is_loopback()) {
            throw std::runtime_error(fmt::format(
                "This listens on this machine only, and {} is open to others. Give one like 127.0.0.1:8443.",
                address));
        }
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
            // A strand for each: a conversation may wait for two things at once.
            auto [error, socket] = co_await acceptor.async_accept(asio::make_strand(io_), awaited);
            if (!error) {
                asio::any_io_executor executor = socket.get_executor();
                asio::co_spawn(executor, converse(std::move(socket), listener), asio::detached);
                continue;
            }
            // Out of descriptors, most likely: some connection will end.
            asio::steady_timer timer(io_, acceptPause);
            co_await timer.async_wait(awaited);
        }
    }

    Waiting<void> converse(tcp::socket socket, Listener listener) {
        Conversation conversation(std::move(socket), context(), listener, site_);
        co_await conversation.run();
    }

    TLSContext context() {
        Locked guard(lock_);
        return context_;
    }

    Site& site_;
    Mutex lock_;
    TLSContext context_ VARK_GUARDED_BY(lock_);
    asio::io_context io_{threadCount};
    std::vector<std::jthread> threads_;
};

HTTPServer::HTTPServer(Site& site, const std::optional<CertificateFiles>& certificates)
    : machine_(std::make_unique<Machine>(site, certificates)) {}

HTTPServer::~HTTPServer() = default;

void HTTPServer::useCertificates(const CertificateFiles& files) {
    machine_->useCertificates(files);
}

std::string HTTPServer::listen(Listener listener, std::string_view address, Reach reach) {
    return machine_->listen(listener, address, reach);
}

void HTTPServer::start() {
    machine_->start();
}

void HTTPServer::stop() {
    machine_->stop();
}

}  // namespace vark::box
