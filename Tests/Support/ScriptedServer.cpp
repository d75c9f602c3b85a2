#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>
#include <netinet/in.h>
#include <pthread.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace vark::test {
namespace {

void require(bool ok, const char* what) {
    if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

sockaddr* asAddress(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

RequestHead parsedHead(std::string_view text) {
    RequestHead head;
    const std::size_t firstBlank = text.find(' ');
    const std::size_t secondBlank = text.find(' ', firstBlank + 1);
    head.method = text.substr(0, firstBlank);
    head.target = text.substr(firstBlank + 1, secondBlank - firstBlank - 1);
    for (std::size_t line = text.find("\r\n"); line != std::string_view::npos;) {
        const std::size_t start = line + 2;
        line = text.find("\r\n", start);
        const std::string_view header = text.substr(start, line - start);
        const std::size_t colon = header.find(": ");
        if (colon != std::string_view::npos)
            head.headers.emplace_back(header.substr(0, colon), header.substr(colon + 2));
    }
    return head;
}

}  // namespace

std::optional<std::string> RequestHead::header(std::string_view name) const {
    const auto found = std::ranges::find_if(headers, [&](const auto& one) {
        return strcasecmp(one.first.c_str(), std::string(name).c_str()) == 0;
    });
    if (found == headers.end()) return std::nullopt;
    return found->second;
}

Conversation::Conversation(Descriptor socket, SSL_CTX* context, int number)
    : socket_(std::move(socket)), tls_(SSL_new(context)), number_(number) {
    SSL_set_fd(tls_.get(), socket_.get());
}

bool Conversation::secure() {
    if (!isSecure_) isSecure_ = SSL_accept(tls_.get()) == 1;
    return isSecure_;
}

bool Conversation::readMore() {
    if (!secure()) return false;
    char buffer[65'536];
    const int count = SSL_read(tls_.get(), buffer, sizeof buffer);
    if (count <= 0) return false;
    unread_.append(buffer, static_cast<std::size_t>(count));
    return true;
}

std::optional<RequestHead> Conversation::readHead() {
    while (unread_.find("\r\n\r\n") == std::string::npos) {
        if (!readMore()) return std::nullopt;
    }
    const std::size_t end = unread_.find("\r\n\r\n");
    RequestHead head = parsedHead(std::string_view(unread_).substr(0, end));
    unread_.erase(0, end + 4);
    return head;
}

std::string Conversation::readBody(std::size_t length) {
    while (unread_.size() < length) {
        if (!readMore()) break;
    }
    std::string body = unread_.substr(0, length);
    unread_.erase(0, body.size());
    return body;
}

bool Conversation::write(std::string_view text) {
    if (!secure()) return false;
    return text.empty() || SSL_write(tls_.get(), text.data(), static_cast<int>(text.size())) > 0;
}

bool Conversation::answer(int status, std::string_view body, std::string_view headerLines) {
    return write(fmt::format("HTTP/1.1 {} Scripted\r\nContent-Length: {}\r\n{}\r\n{}", status, body.size(),
                             headerLines, body));
}

void Conversation::waitForFirstBytes() {
    char byte = 0;
    (void)recv(socket_.get(), &byte, 1, MSG_PEEK);
}

void Conversation::writeWithoutTLS(std::string_view text) {
    require(::send(socket_.get(), text.data(), text.size(), 0) >= 0, "send");
}

void Conversation::waitForTheEnd() {
    // Below TLS, so that it serves a connection in any state.
    char buffer[65'536];
    while (recv(socket_.get(), buffer, sizeof buffer, 0) > 0) {
    }
}

void Conversation::sayGoodbye() {
    if (secure()) SSL_shutdown(tls_.get());
}

void Conversation::reset() {
    // The kernel's way to take a connection apart and keep the descriptor.
    const sockaddr nobody{.sa_family = AF_UNSPEC, .sa_data = {}};
    require(connect(socket_.get(), &nobody, sizeof nobody) == 0, "connect");
}

std::string Conversation::serverName() const {
    const char* name = SSL_get_servername(tls_.get(), TLSEXT_NAMETYPE_host_name);
    return name == nullptr ? "" : name;
}

void Conversation::breakOff() {
    shutdown(socket_.get(), SHUT_RDWR);
}

ScriptedServer::ScriptedServer(ServerContext context, Script script)
    : context_(std::move(context)),
      script_(std::move(script)),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    require(bind(listener_.get(), asAddress(address), length) == 0, "bind");
    require(listen(listener_.get(), SOMAXCONN) == 0, "listen");
    require(getsockname(listener_.get(), asAddress(address), &length) == 0, "getsockname");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] {
        // OpenSSL writes to sockets that the client has closed. Only here: the client is to get by without.
        sigset_t brokenPipe;
        sigemptyset(&brokenPipe);
        sigaddset(&brokenPipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
        accept();
    });
}

ScriptedServer::~ScriptedServer() {
    {
        Locked hold(lock_);
        ended_ = true;
        for (Running& running : running_)
            running.conversation->breakOff();
    }
    shutdown(listener_.get(), SHUT_RDWR);
    acceptor_.join();
    std::list<Running> running;
    {
        Locked hold(lock_);
        running.swap(running_);
    }
    for (Running& one : running)
        one.thread.join();
}

URL ScriptedServer::url(std::string_view target, std::string_view host) const {
    const std::optional<URL> url = URL::parse(fmt::format("https://{}:{}{}", host, port_, target));
    if (!url) throw std::invalid_argument("no target of a request");
    return *url;
}

void ScriptedServer::accept() {
    while (true) {
        Descriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!socket) return;
        Locked hold(lock_);
        if (ended_) return;
        Running& running = running_.emplace_back();
        running.conversation =
            std::make_unique<Conversation>(std::move(socket), context_.get(), ++connections_);
        running.thread = std::thread([this, conversation = running.conversation.get()] {
            script_(*conversation);
            conversation->breakOff();
        });
    }
}

}  // namespace vark::test
