#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Tests/Support/TestAuthority.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/URL.h"

namespace vark::test {

/// The head of a request as it came.
struct RequestHead {
    std::string method;
    std::string target;
    std::vector<std::pair<std::string, std::string>> headers;

    /// The first header of this name, whatever its case; nothing if there is none.
    std::optional<std::string> header(std::string_view name) const;
};

/// One connection in the hands of a script. All of it blocks, and ends early when the server ends. The TLS
/// handshake comes with the first reading or writing.
class Conversation {
  public:
    Conversation(Descriptor socket, SSL_CTX* context, int number);
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    /// Counts the connections of a server from 1.
    int number() const { return number_; }

    /// Nothing when the client has gone.
    std::optional<RequestHead> readHead();
    /// This many bytes, fewer when the client has gone before.
    std::string readBody(std::size_t length);
    bool write(std::string_view text);
    /// A whole answer, with its length and further header lines, each with its line end.
    bool answer(int status, std::string_view body, std::string_view headerLines = "");

    /// Returns when the client has sent its first bytes, which stay unread.
    void waitForFirstBytes();
    /// Sends as it is, whatever TLS would have to come first.
    void writeWithoutTLS(std::string_view text);
    /// Reads and forgets until the client has gone.
    void waitForTheEnd();
    /// Says that no more comes, as TLS wants it.
    void sayGoodbye();
    /// Ends the connection with a reset, so that what is under way is lost.
    void reset();

    /// Whether the client has taken up an earlier TLS session.
    bool isResumed() const { return SSL_session_reused(tls_.get()) == 1; }

    /// The name that the client asked for; empty when it asked for none.
    std::string serverName() const;

    /// Wakes whoever is blocked here. From any thread.
    void breakOff();

  private:
    bool secure();
    bool readMore();

    Descriptor socket_;
    std::unique_ptr<SSL, OpenSSLFree<SSL_free>> tls_;
    int number_;
    bool isSecure_ = false;
    std::string unread_;
};

/// A TLS server on a free port of 127.0.0.1 that does to each connection, on a thread of its own, what the
/// script says. Its end breaks off all connections and awaits the scripts.
class ScriptedServer {
  public:
    using Script = std::function<void(Conversation&)>;

    ScriptedServer(const TestAuthority& authority, Script script,
                   const std::vector<std::string>& names = {"127.0.0.1", "localhost"})
        : ScriptedServer(authority.serverContext(names), std::move(script)) {}
    ScriptedServer(ServerContext context, Script script);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::uint16_t port() const { return port_; }
    URL url(std::string_view target, std::string_view host = "127.0.0.1") const;
    /// How many connections there have been.
    int connections() const { return connections_; }

  private:
    struct Running {
        std::unique_ptr<Conversation> conversation;
        std::thread thread;
    };
    void accept();

    ServerContext context_;
    Script script_;
    Descriptor listener_;
    std::uint16_t port_ = 0;
    std::atomic<int> connections_ = 0;
    Mutex lock_;
    bool ended_ VARK_GUARDED_BY(lock_) = false;
    std::list<Running> running_ VARK_GUARDED_BY(lock_);
    std::thread acceptor_;
};

}  // namespace vark::test
