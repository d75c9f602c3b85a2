#pragma once

#include <curl/curl.h>

#include <memory>
#include <thread>
#include <vector>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// One exchange of a request and its answer, as the loop sees it. From `start` until `ended` or `dropped` is
/// called it belongs to the loop and stays where it is.
class CurlExchange {
  public:
    /// On the loop's thread: sets all options of a fresh handle.
    virtual CURLcode prepare(CURL* easy) = 0;
    /// On the loop's thread, after the handle has left libcurl's hands: nothing of the exchange is used any
    /// more. The exchange may be gone when this returns.
    virtual void ended(CURL* easy, CURLcode result) = 0;
    /// The same for an exchange that was cancelled.
    virtual void dropped() = 0;

  protected:
    CurlExchange() = default;
    ~CurlExchange() = default;
    CurlExchange(const CurlExchange&) = delete;
    CurlExchange& operator=(const CurlExchange&) = delete;

  private:
    friend class CurlLoop;

    struct Wishes {
        bool start = false;
        bool resume = false;
        bool cancel = false;
        bool any() const { return start || resume || cancel; }
    };
    Wishes wishes_;         // Guarded by the loop's lock.
    bool over_ = false;     // Guarded by the loop's lock.
    CURL* easy_ = nullptr;  // The loop's thread only.
};

/// The one thread that libcurl runs on, with the connections that it keeps. Each exchange has a handle of its
/// own: what lasts, connections and TLS sessions, lies outside of the handles, and one whose exchange failed
/// refuses its options when it is used again. Whatever others want of an exchange they ask of the loop, from
/// any thread, and the thread does it between two rounds of libcurl.
/// Ended by its owner, when no exchange is left.
class CurlLoop {
  public:
    explicit CurlLoop(int mostConnectionsPerHost);
    ~CurlLoop();
    CurlLoop(const CurlLoop&) = delete;
    CurlLoop& operator=(const CurlLoop&) = delete;

    void start(CurlExchange& exchange) { ask(exchange, &CurlExchange::Wishes::start); }
    /// The exchange has paused its sending, and can go on. No harm when it has not paused.
    void resume(CurlExchange& exchange) { ask(exchange, &CurlExchange::Wishes::resume); }
    /// Does nothing for an exchange that is over; otherwise its end comes soon, not inside this call.
    void cancel(CurlExchange& exchange) { ask(exchange, &CurlExchange::Wishes::cancel); }

  private:
    template <auto function>
    struct Calls {
        template <class T>
        void operator()(T* object) const noexcept {
            function(object);
        }
    };
    using Easy = std::unique_ptr<CURL, Calls<curl_easy_cleanup>>;
    struct Asked {
        CurlExchange* exchange;
        CurlExchange::Wishes wishes;
    };

    void ask(CurlExchange& exchange, bool CurlExchange::Wishes::* wish);

    void run();
    bool takeAsked(std::vector<Asked>& asked);
    void serve(const Asked& asked);
    void begin(CurlExchange& exchange);
    void finishEnded();
    /// From here on nothing that is asked of the exchange reaches it.
    void close(CurlExchange& exchange);

    // The loop's thread only. The order matters: the multi handle goes before what the handles share.
    std::unique_ptr<CURLSH, Calls<curl_share_cleanup>> share_;
    std::unique_ptr<CURLM, Calls<curl_multi_cleanup>> multi_;
    std::size_t live_ = 0;

    Mutex lock_;
    std::vector<CurlExchange*> asked_ VARK_GUARDED_BY(lock_);
    bool ending_ VARK_GUARDED_BY(lock_) = false;
    std::thread thread_;
};

}  // namespace vark
