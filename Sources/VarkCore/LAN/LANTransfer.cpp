#include "VarkCore/LAN/LANTransfer.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <utility>

#include "VarkCore/Concurrency/Clock.h"
#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/LAN/ResponseReader.h"
#include "VarkCore/Services/Limits.h"
#include "VarkCore/Upload/FilePieces.h"

namespace vark {
namespace {

using Failure = LANTransfer::Failure;
using Response = LANTransfer::Response;

/// Received and written at once: more would leave the processor's cache before it is used.
constexpr std::size_t mostBytesOfARead = 65'536;
/// Until the head has come: the start of the body that comes along counts against the limit of the head.
constexpr std::size_t mostBytesOfAHeadRead = 16'384;
/// After so many, whoever waits for the pool has a turn.
constexpr int mostPiecesOfATurn = 64;

/// What the node must not show us again in a sentence: the credentials of the request.
std::string secretIn(const LANTransfer::Headers& headers) {
    for (const HTTPHeader& header : headers) {
        if (lowercased(header.name) == "authorization")
            return header.value.substr(header.value.find_last_of(' ') + 1);
    }
    return "";
}

/// Gives every failure of the connection the form in which callers know it.
Task<Response> judged(Task<Response> transfer, std::string secret = "") {
    try {
        co_return co_await std::move(transfer);
    } catch (const DialError& error) {
        if (error.kind() == DialError::tls) throw Failure::certificate();
        throw Failure::connect(error.what());
    } catch (const Failure& failure) {
        if (secret.empty() || !std::string_view(failure.what()).contains(secret)) throw;
        throw Failure::badAnswer("our own request");
    }
}

void keep(std::string_view piece, std::string& body) {
    if (body.size() + piece.size() > limits::answerBytes) throw Failure::badAnswer("body too long");
    body += piece;
}

template <class T>
Task<T> inTime(std::chrono::seconds limit, Task<T> task) {
    try {
        co_return co_await withTimeout(limit, std::move(task));
    } catch (const TimeoutError&) {
        throw Failure::connect("it has fallen silent");
    }
}

/// Where the body of one answer goes: a success to the sink, if there is one, all else into memory.
class Body {
  public:
    explicit Body(BodySink* sink) : sink_(sink) {}

    void take(std::string_view piece, const ResponseReader& reader) {
        if (!reader.hasHead()) return;
        if (sink_ == nullptr || reader.status() / 100 != 2) {
            keep(piece, kept_);
            return;
        }
        if (head_.status != 0 && piece.empty()) return;
        if (head_.status == 0) head_ = headOf(reader);
        sink_->take(head_, piece);
    }
    std::string takeKept() { return std::move(kept_); }

  private:
    static HTTPResponse headOf(const ResponseReader& reader) {
        HTTPResponse head{.status = reader.status(), .headers = {}, .body = {}};
        for (const auto& [name, value] : reader.headers())
            head.headers.push_back({name, value});
        return head;
    }

    BodySink* const sink_;
    HTTPResponse head_;  // Its status is 0 until the sink was told.
    std::string kept_;
};

}  // namespace

LANTransfer::LANTransfer(Dialer& dialer, BlockingPool& files, WallClock now)
    : dialer_(dialer), files_(files), now_(std::move(now)) {}

std::string LANTransfer::head(std::string_view method, const LANRoute& route, const Headers& headers) {
    std::string head = fmt::format(
        "{} {} HTTP/1.1\r\nHost: {}\r\nConnection: close\r\nUser-Agent: Vark/1.0 (macOS; LAN)\r\n", method,
        route.requestTarget(), route.host);
    for (const HTTPHeader& header : headers)
        head += fmt::format("{}: {}\r\n", header.name, header.value);
    return head + "\r\n";
}

Task<Response> LANTransfer::request(std::string method, LANRoute route, Headers headers,
                                    std::optional<std::string> body, std::chrono::seconds limit) {
    std::string secret = secretIn(headers);
    if (body || method == "POST")
        headers.push_back({"Content-Length", std::to_string(body ? body->size() : 0)});
    // Head and body go in one piece.
    std::string request = head(method, route, headers) + std::move(body).value_or("");
    return judged(inTime(limit, exchange(std::move(route), std::move(request))), std::move(secret));
}

Task<Response> LANTransfer::put(std::filesystem::path file, std::int64_t offset, std::int64_t length,
                                std::string contentType, LANRoute route, TokenBucket* limiter,
                                Headers headers, PutProgress progress) {
    std::string secret = secretIn(headers);
    const Headers first = {{"Content-Type", std::move(contentType)},
                           {"Content-Length", std::to_string(length)}};
    headers.insert(headers.begin(), first.begin(), first.end());
    std::string request = head("PUT", route, headers);
    FileSlice slice{std::move(file), offset, length};
    return judged(
        sendFile(std::move(slice), std::move(route), std::move(request), limiter, std::move(progress)),
        std::move(secret));
}

Task<Response> LANTransfer::get(LANRoute route, Headers headers, BodySink& sink) {
    std::string request = head("GET", route, headers);
    return judged(fetch(std::move(route), std::move(request), sink));
}

Task<Response> LANTransfer::exchange(LANRoute route, std::string request) {
    const std::unique_ptr<TLSConnection> connection = co_await open(route);
    co_await connection->send(request);
    co_return co_await readResponse(*connection);
}

Task<Response> LANTransfer::sendFile(FileSlice slice, LANRoute route, std::string head, TokenBucket* limiter,
                                     PutProgress progress) {
    auto openSlice = [&slice] { return FilePieces(std::move(slice.path), slice.offset, slice.length); };
    FilePieces file = co_await files_.run(openSlice);
    const std::unique_ptr<TLSConnection> connection = co_await open(route);
    co_await connection->send(head);

    const std::size_t size = file.sizeOfNext();
    const auto buffer = std::make_unique_for_overwrite<char[]>(size);
    const std::stop_token cancelled = co_await thisToken();
    std::int64_t sent = 0;
    const auto haveSent = [&](std::size_t count) {
        sent += static_cast<std::int64_t>(count);
        if (progress) progress(sent);
    };
    while (!file.isAtEnd()) {
        co_await checkCancellation();
        std::size_t count = 0;
        std::span<const char> rest;
        // Reads pieces and sends them on, for as long as that takes no waiting.
        auto sendWhatGoes = [&] {
            for (int pieces = 0; pieces < mostPiecesOfATurn; ++pieces) {
                if (file.isAtEnd() || cancelled.stop_requested()) return true;
                count = file.read({buffer.get(), size});
                if (count == 0) throw Failure::shortBody();
                rest = {buffer.get(), count};
                if (limiter != nullptr || !connection->trySend(rest)) return false;
                haveSent(count);
            }
            return true;
        };
        if (co_await files_.run(sendWhatGoes)) continue;
        const double pause = pauseBefore(limiter, count, now_());
        if (pause > 0) co_await sleepFor(seconds(pause));
        co_await connection->send(rest);
        haveSent(count);
    }
    co_return co_await readResponse(*connection);
}

Task<Response> LANTransfer::fetch(LANRoute route, std::string head, BodySink& sink) {
    const std::unique_ptr<TLSConnection> connection = co_await open(route);
    co_await connection->send(head);
    co_return co_await readResponse(*connection, &sink);
}

Task<std::unique_ptr<TLSConnection>> LANTransfer::open(const LANRoute& route) {
    if (route.port == 0) throw Failure::connect("bad port");
    DialTarget target{route.ip, route.port, route.host};
    co_return co_await dialer_.dial(std::move(target));
}

Task<Response> LANTransfer::readResponse(TLSConnection& connection, BodySink* sink) {
    const auto memory = std::make_unique_for_overwrite<char[]>(mostBytesOfARead);
    const std::stop_token cancelled = co_await thisToken();
    ResponseReader reader;
    const auto room = [&] {
        return std::span<char>(memory.get(), reader.hasHead() ? mostBytesOfARead : mostBytesOfAHeadRead);
    };
    Body body(sink);
    do {
        co_await checkCancellation();
        Task<TLSConnection::Received> receiving = connection.receive(room());
        // A chunk is watched by whoever sends it, since the vark may take its time over one; a file is not.
        if (sink != nullptr) receiving = inTime(limits::standingStill, std::move(receiving));
        const TLSConnection::Received received = co_await std::move(receiving);
        const std::string_view piece = reader.take({memory.get(), received.count}, received.finished);
        if (sink == nullptr) {
            body.take(piece, reader);
            continue;
        }
        // Hands on the piece and more of them, for as long as that takes no waiting.
        auto takeWhatComes = [&] {
            body.take(piece, reader);
            for (int pieces = 1; pieces < mostPiecesOfATurn; ++pieces) {
                if (reader.isComplete() || cancelled.stop_requested()) return;
                const std::optional<TLSConnection::Received> more = connection.tryReceive(room());
                if (!more) return;
                body.take(reader.take({memory.get(), more->count}, more->finished), reader);
            }
        };
        co_await files_.run(takeWhatComes);
    } while (!reader.isComplete());
    co_return Response{reader.status(), std::move(reader.headers()), body.takeKept()};
}

Failure Failure::connect(std::string description) {
    return {connectKind, "Could not reach the node on this network: " + description};
}

Failure Failure::badAnswer(std::string what) {
    return {badAnswerKind, "The node on this network answered with something unexpected (" + what + ")."};
}

Failure Failure::status(int status, std::string words) {
    return {statusKind, words.empty() ? fmt::format("The node answered {}.", status) : std::move(words)};
}

Failure Failure::certificate() {
    return {certificateKind, "The node on this network did not prove its name."};
}

Failure Failure::shortBody() {
    return {shortBodyKind, "The node sent less than it said it would."};
}

Failure Failure::cancelled() {
    return {cancelledKind, "Cancelled"};
}

}  // namespace vark
