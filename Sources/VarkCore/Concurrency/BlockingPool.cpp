#include "VarkCore/Concurrency/BlockingPool.h"

#include <cassert>

namespace vark {

BlockingPool::~BlockingPool() {
    std::vector<std::thread> threads;
    {
        Locked hold(lock_);
        assert(jobs_.empty() && "a pool outlives the tasks that use it");
        ended_ = true;
        threads.swap(threads_);
        submitted_.notify_all();
    }
    for (std::thread& thread : threads)
        thread.join();
}

void BlockingPool::submit(Job& job) {
    Locked hold(lock_);
    jobs_.push_back(&job);
    ++unfinished_;
    if (jobs_.size() > waiting_ && threads_.size() < mostThreads_) {
        threads_.emplace_back([this] { work(); });
    }
    submitted_.notify_one();
}

void BlockingPool::work() {
    while (true) {
        Job* job = nullptr;
        {
            Locked hold(lock_);
            ++waiting_;
            while (jobs_.empty() && !ended_)
                submitted_.wait(lock_);
            --waiting_;
            if (jobs_.empty()) return;
            job = jobs_.front();
            jobs_.pop_front();
        }
        job->execute();
        // The job may be gone here: whoever waited for it has been told.
        Locked hold(lock_);
        if (--unfinished_ == 0) idle_.notify_all();
    }
}

void BlockingPool::waitUntilIdle() {
    Locked hold(lock_);
    while (unfinished_ > 0)
        idle_.wait(lock_);
}

bool BlockingPool::isIdle() const {
    Locked hold(lock_);
    return unfinished_ == 0;
}

}  // namespace vark
