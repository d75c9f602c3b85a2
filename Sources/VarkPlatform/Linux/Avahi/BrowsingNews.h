#pragma once

#include <variant>
#include <vector>

#include "VarkCore/Concurrency/Executor.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Services/ServiceBrowser.h"

namespace vark {

/// Carries what a browser finds to `home`, in order. Rounds keep what a browser that was stopped had still to
/// say from the ears of the next one. Opened, closed and ended on that executor's thread, and not ended by
/// what it calls; its end drives the executor until nothing of it is queued there.
class BrowsingNews final : private Work {
  public:
    using Item = std::variant<BrowsingState, std::vector<FoundService>>;

    explicit BrowsingNews(Executor& home) : home_(home) {}
    ~BrowsingNews();
    BrowsingNews(const BrowsingNews&) = delete;
    BrowsingNews& operator=(const BrowsingNews&) = delete;

    /// Begins a round and answers its number.
    int open(ServiceBrowser::OnState onState, ServiceBrowser::OnResults onResults);
    void close() { ++round_; }
    /// From any thread.
    void add(int round, Item item);

  private:
    struct Entry {
        int round;
        Item item;
    };
    void run() noexcept override;
    bool isPosted();

    Executor& home_;
    int round_ = 0;
    ServiceBrowser::OnState onState_;
    ServiceBrowser::OnResults onResults_;
    Mutex lock_;
    std::vector<Entry> entries_ VARK_GUARDED_BY(lock_);
    bool posted_ VARK_GUARDED_BY(lock_) = false;
};

}  // namespace vark
