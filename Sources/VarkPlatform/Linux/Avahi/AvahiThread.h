#pragma once

#include <avahi-common/simple-watch.h>

#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {

/// Frees what Avahi's library made.
template <auto free>
struct AvahiFree {
    template <class T>
    void operator()(T* object) const noexcept {
        free(object);
    }
};

/// The thread on which Avahi's library runs and calls back. A call of the library's waits for the daemon, so
/// nothing that must not wait is done here.
class AvahiThread {
  public:
    AvahiThread();
    ~AvahiThread() { end(); }
    AvahiThread(const AvahiThread&) = delete;
    AvahiThread& operator=(const AvahiThread&) = delete;

    /// For use on the thread, or when it has ended.
    const AvahiPoll* poll() const { return avahi_simple_poll_get(poll_.get()); }
    /// Runs `work` on the thread, in the order of the posts. From any thread.
    void post(std::function<void()> work);
    /// Runs what has been posted and ends the thread. From its owner only.
    void end();

  private:
    void runPosted();

    const std::unique_ptr<AvahiSimplePoll, AvahiFree<avahi_simple_poll_free>> poll_;
    Descriptor bell_;
    Mutex lock_;
    std::vector<std::function<void()>> posted_ VARK_GUARDED_BY(lock_);
    std::thread thread_;
};

}  // namespace vark
