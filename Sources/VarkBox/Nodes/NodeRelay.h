#pragma once

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <cstdint>
#include <string>
#include <string_view>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/HTTP/Wire.h"
#include "VarkBox/Nodes/Uplink.h"

namespace vark::box {

using RequestHead = boost::beast::http::request<boost::beast::http::empty_body>;
using ReplyHead = boost::beast::http::response<boost::beast::http::empty_body>;

constexpr std::uint32_t longestHead = 64 << 10;
/// The header in which a node tells its vark who brings a request.
constexpr std::string_view nodeHeader = "X-Vark-Node";

/// Reads until the parser has a whole head. False when the peer is gone or its bytes are no HTTP; `wrong`
/// says what is wrong with them. For a caller that awaits it at once.
template <class Parser>
Waiting<bool> readHead(WireReader& from, Parser& parser, boost::system::error_code& wrong) {
    namespace http = boost::beast::http;
    parser.eager(false);
    parser.header_limit(longestHead);
    parser.body_limit(std::numeric_limits<std::uint64_t>::max());
    while (true) {
        if (!from.waiting().empty()) {
            boost::system::error_code error;
            from.take(
                parser.put(boost::asio::const_buffer(from.waiting().data(), from.waiting().size()), error));
            if (parser.is_header_done()) co_return true;
            if (error && error != http::error::need_more) {
                wrong = error;
                co_return false;
            }
        }
        bool more = co_await from.readMore();
        if (!more) co_return false;
    }
}

/// Carries one request from a client to the vark of a node and the answer back, piece by piece. It says
/// nothing that the vark has not said: whatever goes wrong on the way leaves the client without an answer, or
/// with one that breaks off. Lives within one conversation.
class NodeRelay {
  public:
    NodeRelay(const Uplink& uplink, Wire& client, WireReader& body, RecordAtEnd& end)
        : uplink_(uplink), client_(client), body_(body), end_(end) {}

    /// A fault: how many bytes more the answer promises than it has.
    std::uint64_t promisedMore = 0;
    bool keepsAlive = true;

    /// False unless the whole answer has gone to the client.
    Waiting<bool> carry(const RequestHead& head, std::uint64_t length);

  private:
    Waiting<bool> sendBody(Wire& vark, std::uint64_t length);
    Waiting<bool> bringBack(Wire& vark);
    std::string headOnward(const RequestHead& head) const;
    std::string headBack(const ReplyHead& head, std::uint64_t length) const;

    const Uplink& uplink_;
    Wire& client_;
    WireReader& body_;
    RecordAtEnd& end_;
};

}  // namespace vark::box
