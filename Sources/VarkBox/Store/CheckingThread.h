#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <stop_token>
#include <thread>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::box {

/// One thread that does what must not hold up a request, in the order of the posts. Any thread may post. Its
/// end asks the running piece of work to stop, awaits it, and drops the rest.
class CheckingThread {
  public:
    using Work = std::function<void(const std::stop_token&)>;

    CheckingThread();
    CheckingThread(const CheckingThread&) = delete;
    CheckingThread& operator=(const CheckingThread&) = delete;

    void post(Work work);

  private:
    void run(const std::stop_token& stop);

    Mutex lock_;
    std::condition_variable_any wake_;
    std::deque<Work> waiting_ VARK_GUARDED_BY(lock_);

    // Last: it uses all of the above.
    std::jthread thread_;
};

}  // namespace vark::box
