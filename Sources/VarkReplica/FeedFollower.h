#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkProvider/VarkEnumerator.h"
#include "VarkReplica/DoubtedItems.h"
#include "VarkReplica/Replica.h"

namespace vark {

class ExtensionLog;

/// Brings the changes of the vark into the replica, page by page, for as long as it lives: every 5 s while
/// the disk was used in the last minute, else every 30 s, and after 5 to 60 s when something failed. Owned by
/// the host, which ends it before what it stands on; its tasks run on one executor, and `tell` is called
/// there.
class FeedFollower {
  public:
    using Tell = std::function<void(std::vector<KernelNews>)>;

    /// `changes` is the working set's.
    FeedFollower(Replica& replica, VarkEnumerator& changes, DoubtedItems& doubts, ExtensionLog& log,
                 Tell tell, Executor& executor, Clock& clock);

    /// Once, before anything else is called.
    void start();
    /// On the executor. Returns when the replica has a place in the feed: before that nothing may be listed,
    /// as what changed between the list and the place would never be heard of.
    Task<void> hasPlace() { return place_.value(); }
    /// Somebody uses the disk. From any thread; costs next to nothing.
    void used();
    /// Asks at once. From any thread.
    void hurry();

  private:
    enum class Page : std::uint8_t { last, oneOfMore, failed };

    Task<void> takePlace();
    Task<void> follow();
    Task<Page> takePage();
    Task<void> pause(Duration duration);
    Duration pace(int failures) const;

    Replica& replica_;
    VarkEnumerator& changes_;
    DoubtedItems& doubts_;
    ExtensionLog& log_;
    const Tell tell_;
    Clock& clock_;
    std::atomic<Instant> used_;
    TaskHandle<void> place_;
    Mutex lock_;
    TaskHandle<void> pause_ VARK_GUARDED_BY(lock_);
    bool isHurried_ VARK_GUARDED_BY(lock_) = false;
    TaskScope scope_;
};

}  // namespace vark
