#include "VarkPlatform/Linux/Network/CurlLoop.h"

#include <algorithm>
#include <cassert>
#include <new>
#include <stdexcept>
#include <utility>

#include "VarkPlatform/Linux/SignalsBlocked.h"

namespace vark {
namespace {

/// Connections are kept for this many hosts at their limit: the vark, where its chunks go, and nodes.
constexpr int hostsWithKeptConnections = 4;
/// libcurl's own deadlines come before this one, and whatever is asked rings the bell.
constexpr int longestSleepInMilliseconds = 3'600'000;

/// libcurl wants to be set up once in a process, before everything else of it.
void setUpLibrary() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK) throw std::runtime_error("The HTTP library could not be set up.");
}

}  // namespace

CurlLoop::CurlLoop(int mostConnectionsPerHost) {
    setUpLibrary();
    share_.reset(curl_share_init());
    multi_.reset(curl_multi_init());
    if (!share_ || !multi_) throw std::bad_alloc();
    // TLS sessions are resumed by any handle. No lock functions: one thread uses all of them.
    curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    const long perHost = mostConnectionsPerHost;
    curl_multi_setopt(multi_.get(), CURLMOPT_MAX_HOST_CONNECTIONS, perHost);
    // Unless told, libcurl keeps no more connections than suit the transfers that are under way just now.
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, perHost * hostsWithKeptConnections);
    const SignalsBlocked blocked;
    thread_ = std::thread([this] { run(); });
}

CurlLoop::~CurlLoop() {
    {
        Locked hold(lock_);
        ending_ = true;
    }
    curl_multi_wakeup(multi_.get());
    thread_.join();
    assert(live_ == 0);
}

void CurlLoop::ask(CurlExchange& exchange, bool CurlExchange::Wishes::* wish) {
    {
        Locked hold(lock_);
        if (exchange.over_) return;
        const bool listed = exchange.wishes_.any();
        exchange.wishes_.*wish = true;
        if (listed) return;
        asked_.push_back(&exchange);
        // Whoever asked before has rung already, and the thread takes all at once.
        if (asked_.size() > 1) return;
    }
    curl_multi_wakeup(multi_.get());
}

void CurlLoop::run() {
    std::vector<Asked> asked;
    while (takeAsked(asked)) {
        for (const Asked& one : asked)
            serve(one);
        int running = 0;
        curl_multi_perform(multi_.get(), &running);
        finishEnded();
        curl_multi_poll(multi_.get(), nullptr, 0, longestSleepInMilliseconds, nullptr);
    }
}

bool CurlLoop::takeAsked(std::vector<Asked>& asked) {
    asked.clear();
    Locked hold(lock_);
    for (CurlExchange* exchange : asked_)
        asked.push_back({exchange, std::exchange(exchange->wishes_, {})});
    asked_.clear();
    return !ending_;
}

void CurlLoop::serve(const Asked& asked) {
    CurlExchange& exchange = *asked.exchange;
    if (asked.wishes.cancel) {
        Easy easy(std::exchange(exchange.easy_, nullptr));
        if (easy) {
            curl_multi_remove_handle(multi_.get(), easy.get());
            easy.reset();
            --live_;
        }
        close(exchange);
        exchange.dropped();
        return;
    }
    if (asked.wishes.start) {
        begin(exchange);
        return;
    }
    curl_easy_pause(exchange.easy_, CURLPAUSE_CONT);
}

void CurlLoop::begin(CurlExchange& exchange) {
    Easy easy(curl_easy_init());
    if (!easy) throw std::bad_alloc();
    curl_easy_setopt(easy.get(), CURLOPT_SHARE, share_.get());
    CURLcode result = exchange.prepare(easy.get());
    curl_easy_setopt(easy.get(), CURLOPT_PRIVATE, &exchange);
    if (result == CURLE_OK && curl_multi_add_handle(multi_.get(), easy.get()) == CURLM_OK) {
        exchange.easy_ = easy.release();
        ++live_;
        return;
    }
    if (result == CURLE_OK) result = CURLE_OUT_OF_MEMORY;
    close(exchange);
    exchange.ended(easy.get(), result);
}

void CurlLoop::finishEnded() {
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        // The message goes with the handle's leaving.
        const CURLcode result = message->data.result;
        Easy easy(message->easy_handle);
        CurlExchange* exchange = nullptr;
        curl_easy_getinfo(easy.get(), CURLINFO_PRIVATE, &exchange);
        curl_multi_remove_handle(multi_.get(), easy.get());
        exchange->easy_ = nullptr;
        --live_;
        close(*exchange);
        exchange->ended(easy.get(), result);
    }
}

void CurlLoop::close(CurlExchange& exchange) {
    Locked hold(lock_);
    exchange.over_ = true;
    if (exchange.wishes_.any()) std::erase(asked_, &exchange);
}

}  // namespace vark
