#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>
#include <pthread.h>
#include <strings.h>

#include <csignal>
#include <sstream>
#include <stdexcept>

namespace vark::test {

std::optional<std::string> RequestHead::header(std::string_view name) const {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(": ");
        if (colon != name.size() || strncasecmp(line.data(), name.data(), colon) != 0) continue;
        return line.substr(colon + 2, line.size() - colon - std::string_view(": \r").size());
    }
    return std::nullopt;
}

Conversation::Conversation(Descriptor socket, SSL_CTX* context)
    : socket_(std::move(socket)), tls_(SSL_new(context), SSL_free) {
    SSL_set_fd(tls_.get(), socket_.get());
}

bool Conversation::secure() {
    if (!isSecure_) isSecure_ = SSL_accept(tls_.get()) == 1;
    return isSecure_;
}

bool Conversation::readMore() {
    char buffer[65'536];
    const int count = secure() ? SSL_read(tls_.get(), buffer, sizeof buffer) : 0;
    if (count > 0) unread_.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
}

std::optional<RequestHead> Conversation::readHead() {
    std::size_t end = unread_.find("\r\n\r\n");
    for (; end == std::string::npos; end = unread_.find("\r\n\r\n")) {
        if (!readMore()) return std::nullopt;
    }
    RequestHead head{.text = unread_.substr(0, end + 2)};
    unread_.erase(0, end + 4);
    std::istringstream(head.text) >> head.method >> head.target;
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

void Conversation::waitForFirstBytes() const {
    char byte = 0;
    (void)recv(socket_.get(), &byte, 1, MSG_PEEK);
}

void Conversation::waitForTheEnd() const {
    // Below TLS, so that it serves a connection in any state.
    char buffer[65'536];
    while (recv(socket_.get(), buffer, sizeof buffer, 0) > 0) {
    }
}

void Conversation::reset() const {
    // The kernel's way to take a connection apart and keep the descriptor.
    const sockaddr nobody{.sa_family = AF_UNSPEC, .sa_data = {}};
    connect(socket_.get(), &nobody, sizeof nobody);
}

ScriptedServer::ScriptedServer(const std::string& identity, Script script)
    : context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free), script_(std::move(script)) {
    if (SSL_CTX_use_certificate_file(context_.get(), identity.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_use_PrivateKey_file(context_.get(), identity.c_str(), SSL_FILETYPE_PEM) != 1)
        throw std::runtime_error("The server cannot prove anything with " + identity);
    port_.listen();
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
        for (const Conversation& conversation : conversations_)
            conversation.breakOff();
    }
    shutdown(port_.descriptor(), SHUT_RDWR);
    acceptor_.join();
    scripts_.clear();
}

URL ScriptedServer::url(std::string_view target) const {
    return URL::parse(fmt::format("https://127.0.0.1:{}{}", port(), target)).value();
}

void ScriptedServer::accept() {
    while (true) {
        Descriptor socket(accept4(port_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!socket) return;
        Locked hold(lock_);
        if (ended_) return;
        Conversation& one = conversations_.emplace_back(std::move(socket), context_.get());
        ++connections_;
        scripts_.emplace_back([this, &one] {
            script_(one);
            one.breakOff();
        });
    }
}

}  // namespace vark::test
