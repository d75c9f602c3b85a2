#pragma once

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/UntilCancelled.h"
#include "VarkCore/Services/Dialer.h"

namespace vark::test {

/// What the far side of one connection does. It takes all that it is sent, unless told otherwise, and sends
/// each of `pieces` for one read; then it ends its stream, unless `then` says something else.
struct ScriptedNode {
    std::deque<std::string> pieces = {};
    enum Then { ending, silence, breaking } then = ending;
    /// No connection is made; or none before the task is cancelled.
    std::optional<DialError> refusal = std::nullopt;
    bool hangsAtDialling = false;
    /// Takes only so many bytes, and then breaks, or stands still when `then` is `silence`.
    std::optional<std::size_t> bytesTaken = std::nullopt;
};

/// A node that answers in one piece and ends its stream.
inline ScriptedNode nodeAnswer(int status, std::string body = "",
                               const std::map<std::string, std::string>& headers = {}) {
    std::string text = "HTTP/1.1 " + std::to_string(status) + " Words\r\n";
    for (const auto& [name, value] : headers)
        text += name + ": " + value + "\r\n";
    text += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    return {.pieces = {text + body}};
}

inline ScriptedNode nodeRefusal(DialError::Kind kind, std::string description = "The system says so.") {
    return {.refusal = DialError(kind, std::move(description))};
}

/// Connections whose far sides are written by the test, which queues them. All on the test's executor; no
/// connection outlives it.
class FakeDialer final : public Dialer {
  public:
    void queue(ScriptedNode node) { queued_.push_back(std::move(node)); }

    std::vector<DialTarget> targets;
    /// What each connection was sent, in the order of the dialling, and in how many sends.
    std::vector<std::string> received;
    std::vector<std::size_t> sends;
    /// The connections that have not ended.
    int open = 0;

    Task<std::unique_ptr<TLSConnection>> dial(DialTarget target) override {
        co_await checkCancellation();
        ScriptedNode node = nodeFor(target);
        targets.push_back(std::move(target));
        if (node.hangsAtDialling) {
            co_await UntilCancelled();
            throw CancellationError();
        }
        if (node.refusal) throw DialError(*node.refusal);
        received.emplace_back();
        sends.push_back(0);
        co_return std::make_unique<Connection>(*this, std::move(node), received.size() - 1);
    }

  private:
    class Connection final : public TLSConnection {
      public:
        Connection(FakeDialer& dialer, ScriptedNode node, std::size_t place)
            : dialer_(dialer), node_(std::move(node)), place_(place) {
            ++dialer_.open;
        }
        ~Connection() override { --dialer_.open; }

        Task<void> send(std::span<const char> bytes) override {
            co_await checkCancellation();
            std::string& taken = dialer_.received[place_];
            const std::size_t room = node_.bytesTaken.value_or(taken.size() + bytes.size()) - taken.size();
            taken.append(bytes.data(), std::min(room, bytes.size()));
            ++dialer_.sends[place_];
            if (room < bytes.size()) co_await breakOrStandStill();
        }

        Task<Received> receive(std::span<char> into) override {
            co_await checkCancellation();
            if (node_.pieces.empty()) {
                if (node_.then == ScriptedNode::ending) co_return Received{0, true};
                co_await breakOrStandStill();
            }
            std::string& piece = node_.pieces.front();
            const std::size_t count = std::min(piece.size(), into.size());
            std::copy_n(piece.begin(), count, into.begin());
            piece.erase(0, count);
            if (piece.empty()) node_.pieces.pop_front();
            const bool last = node_.pieces.empty() && node_.then == ScriptedNode::ending;
            co_return Received{count, last};
        }

      private:
        Task<void> breakOrStandStill() const {
            if (node_.then == ScriptedNode::silence) {
                co_await UntilCancelled();
                throw CancellationError();
            }
            throw DialError(DialError::network, "Connection reset by peer");
        }

        FakeDialer& dialer_;
        ScriptedNode node_;
        const std::size_t place_;
    };

    ScriptedNode nodeFor(const DialTarget& target) {
        if (queued_.empty()) return nodeRefusal(DialError::network, "No node was written for " + target.host);
        ScriptedNode node = std::move(queued_.front());
        queued_.pop_front();
        return node;
    }

    std::deque<ScriptedNode> queued_;
};

}  // namespace vark::test
