#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "Tests/Support/LoopbackPort.h"
#include "Tests/Support/TestAuthority.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/URL.h"

namespace vark::test {

/// The head of a request as it came.
struct RequestHead {
    std::string text;
    std::string method{};
    std::string target{};

    /// The first header of this name, whatever its case; nothing if there is none.
    std::optional<std::string> header(std::string_view name) const;
};

/// One connection in the hands of a script. All of it blocks, and ends early when the server ends. The TLS
/// handshake comes with the first reading or writing.
class Conversation {
  public:
    Conversation(Descriptor socket, SSL_CTX* context);
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    /// Nothing when the client has gone.
    std::optional<RequestHead> readHead();
    /// This many bytes, fewer when the client has gone before.
    std::string readBody(std::size_t length);
    bool write(std::string_view text);
    /// A whole answer, with its length and further header lines, each with its line end.
    bool answer(int status, std::string_view body, std::string_view headerLines = "");

    /// Returns when the client has sent its first bytes, which stay unread.
    void waitForFirstBytes() const;
    /// Reads and forgets until the client has gone.
    void waitForTheEnd() const;
    /// Ends the connection with a reset, so that what is under way is lost.
    void reset() const;
    /// Wakes whoever is blocked here. From any thread.
    void breakOff() const { shutdown(socket_.get(), SHUT_RDWR); }

  private:
    bool secure();
    bool readMore();

    Descriptor socket_;
    std::unique_ptr<SSL, decltype(&SSL_free)> tls_;
    bool isSecure_ = false;
    std::string unread_;
};

/// A TLS server on a free port of 127.0.0.1 that does to each connection, on a thread of its own, what the
/// script says. Its end breaks off all connections and awaits the scripts.
class ScriptedServer {
  public:
    using Script = std::function<void(Conversation&)>;

    /// `identity` is a file that a TestAuthority has made.
    ScriptedServer(const std::string& identity, Script script);
    ScriptedServer(const TestAuthority& authority, Script script)
        : ScriptedServer(authority.identity("IP:127.0.0.1,DNS:localhost"), std::move(script)) {}
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::uint16_t port() const { return port_.port(); }
    URL url(std::string_view target) const;
    /// How many connections there have been.
    int connections() const { return connections_; }

  private:
    void accept();

    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
    Script script_;
    LoopbackPort port_;
    std::atomic<int> connections_ = 0;
    Mutex lock_;
    bool ended_ VARK_GUARDED_BY(lock_) = false;
    std::list<Conversation> conversations_ VARK_GUARDED_BY(lock_);
    std::list<std::jthread> scripts_;  // The accepting thread's until it has ended.
    std::thread acceptor_;
};

}  // namespace vark::test
