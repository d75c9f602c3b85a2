#include "VarkCore/Concurrency/AsyncSemaphore.h"

namespace vark {

void AsyncSemaphore::signal() {
    SlotWait* next = nullptr;
    {
        Locked hold(lock_);
        if (waiters_.empty()) {
            ++available_;
            return;
        }
        next = waiters_.front();
        waiters_.pop_front();
    }
    next->complete();
}

bool AsyncSemaphore::takeOrEnqueue(SlotWait& wait) {
    Locked hold(lock_);
    if (available_ > 0) {
        --available_;
        return true;
    }
    waiters_.push_back(&wait);
    return false;
}

}  // namespace vark
