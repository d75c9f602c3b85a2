#include "VarkBox/Nodes/NodeRelay.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>
#include <boost/beast/core/string.hpp>
#include <chrono>
#include <csignal>
#include <future>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace vark::box {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

namespace {

constexpr std::chrono::seconds patience{10};

using ReplyParser = http::response_parser<http::empty_body>;

/// What is said of one connection, and not of the request or the answer that goes over it.
bool isOfTheConnection(std::string_view name) {
    constexpr std::array<std::string_view, 7> names = {
        "Connection", "Keep-Alive", "Proxy-Connection", "TE", "Trailer", "Transfer-Encoding", "Upgrade"};
    return std::ranges::any_of(names, [name](std::string_view one) { return beast::iequals(one, name); });
}

bool isSaidAnew(std::string_view name) {
    constexpr std::array<std::string_view, 3> names = {"Host", "Expect", nodeHeader};
    return std::ranges::any_of(names, [name](std::string_view one) { return beast::iequals(one, name); });
}

}  // namespace

struct Uplink::Way {
    std::string host;
    std::string name;
    asio::ip::tcp::endpoint address;
    TLSContext trust;
    std::string node;

    Waiting<std::optional<Wire>> dial(asio::any_io_executor executor) const {
        return Wire::dial(std::move(executor), address, trust, name);
    }
    Waiting<UplinkAnswer> ask(std::string request) const;
};

Uplink::Uplink(std::string_view url, const std::filesystem::path& authority, std::string node)
    : way_(std::make_unique<Way>()) {
    constexpr std::string_view scheme = "https://";
    if (!url.starts_with(scheme)) {
        throw std::runtime_error(fmt::format(
            "\"{}\" is no vark that a node can serve. Give one like https://127.0.0.1:8443.", url));
    }
    url.remove_prefix(scheme.size());
    if (url.ends_with('/')) url.remove_suffix(1);
    way_->host = url;
    way_->address = endpointFrom(url);
    bool isLocalName = url.starts_with("localhost:");
    way_->name = isLocalName ? "localhost" : way_->address.address().to_string();
    way_->trust = clientContext(authority);
    way_->node = std::move(node);
}

Uplink::~Uplink() = default;

UplinkAnswer Uplink::ask(std::string_view method, std::string_view target, std::string_view body) const {
    // As the server does: OpenSSL writes to sockets in the plain way.
    std::signal(SIGPIPE, SIG_IGN);
    asio::io_context io(1);
    std::string request = fmt::format(
        "{} {} HTTP/1.1\r\nHost: {}\r\nConnection: close\r\nContent-Type: application/json\r\n"
        "Content-Length: {}\r\n\r\n{}",
        method, target, way_->host, body.size(), body);
    std::future<UplinkAnswer> answer = asio::co_spawn(io, way_->ask(std::move(request)), asio::use_future);
    io.run_for(patience);
    bool isThere = answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    UplinkAnswer result = isThere ? answer.get() : UplinkAnswer();
    if (result.status == 0) {
        throw std::runtime_error(fmt::format(
            "The vark at {} gave no answer. Is it serving there, and is this its authority?", way_->host));
    }
    return result;
}

Waiting<UplinkAnswer> Uplink::Way::ask(std::string request) const {
    asio::any_io_executor executor = co_await asio::this_coro::executor;
    std::optional<Wire> vark = co_await dial(executor);
    if (!vark) co_return UplinkAnswer();
    bool sent = co_await vark->write(request);
    if (!sent) co_return UplinkAnswer();
    WireReader reader(*vark);
    ReplyParser parser;
    boost::system::error_code wrong;
    bool understood = co_await readHead(reader, parser, wrong);
    if (!understood) co_return UplinkAnswer();
    std::uint64_t length = parser.content_length().value_or(0);
    while (reader.waiting().size() < length) {
        bool more = co_await reader.readMore();
        if (!more) co_return UplinkAnswer();
    }
    co_return UplinkAnswer{.status = static_cast<int>(parser.get().result_int()),
                           .body = std::string(reader.waiting().substr(0, length))};
}

Waiting<bool> NodeRelay::carry(const RequestHead& head, std::uint64_t length) {
    std::optional<Wire> vark = co_await uplink_.way_->dial(client_.executor());
    if (!vark) co_return false;
    std::string bytes = headOnward(head);
    bool sent = co_await vark->write(bytes);
    if (sent) sent = co_await sendBody(*vark, length);
    if (!sent) co_return false;
    co_return co_await bringBack(*vark);
}

Waiting<bool> NodeRelay::sendBody(Wire& vark, std::uint64_t length) {
    std::uint64_t& sent = end_.record.bodyBytes;
    while (sent < length) {
        if (body_.waiting().empty() && !co_await body_.readMore()) co_return false;
        std::string_view piece = body_.waiting();
        piece = piece.substr(0, std::min<std::uint64_t>(piece.size(), length - sent));
        bool taken = co_await vark.write(piece);
        if (!taken) co_return false;
        body_.take(piece.size());
        sent += piece.size();
    }
    co_return true;
}

Waiting<bool> NodeRelay::bringBack(Wire& vark) {
    WireReader reader(vark);
    ReplyParser parser;
    boost::system::error_code wrong;
    bool understood = co_await readHead(reader, parser, wrong);
    if (!understood) co_return false;
    std::uint64_t left = parser.content_length().value_or(0);
    int status = static_cast<int>(parser.get().result_int());
    if (left == 0) end_.answered(status);
    // On its own: a client may refuse an answer of which too much comes along with the head.
    std::string head = headBack(parser.get(), left);
    bool taken = co_await client_.write(head);
    while (taken && left > 0) {
        if (reader.waiting().empty() && !co_await reader.readMore()) co_return false;
        std::string_view piece = reader.waiting();
        piece = piece.substr(0, std::min<std::uint64_t>(piece.size(), left));
        left -= piece.size();
        if (left == 0) end_.answered(status);
        taken = co_await client_.write(piece);
        reader.take(piece.size());
    }
    co_return taken;
}

std::string NodeRelay::headOnward(const RequestHead& head) const {
    std::string text;
    auto line = std::back_inserter(text);
    fmt::format_to(line, "{} {} HTTP/1.1\r\nHost: {}\r\nConnection: close\r\n",
                   std::string_view(head.method_string()), std::string_view(head.target()),
                   uplink_.way_->host);
    for (const auto& field : head) {
        std::string_view name = field.name_string();
        if (isOfTheConnection(name) || isSaidAnew(name)) continue;
        fmt::format_to(line, "{}: {}\r\n", name, std::string_view(field.value()));
    }
    fmt::format_to(line, "{}: {}\r\n\r\n", nodeHeader, uplink_.way_->node);
    return text;
}

std::string NodeRelay::headBack(const ReplyHead& head, std::uint64_t length) const {
    std::string text;
    auto line = std::back_inserter(text);
    fmt::format_to(line, "HTTP/1.1 {} {}\r\n", head.result_int(), std::string_view(head.reason()));
    for (const auto& field : head) {
        std::string_view name = field.name_string();
        if (isOfTheConnection(name) || field.name() == http::field::content_length) continue;
        fmt::format_to(line, "{}: {}\r\n", name, std::string_view(field.value()));
    }
    if (head.count(http::field::content_length) > 0)
        fmt::format_to(line, "Content-Length: {}\r\n", length + promisedMore);
    if (!keepsAlive) text += "Connection: close\r\n";
    return text + "\r\n";
}

}  // namespace vark::box
