#include "VarkCore/Concurrency/BlockingPool.h"

#include <cassert>
#include <stdexcept>
#include <system_error>

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
    // First, since a failure here resumes whoever waits for the job, and takes the job with it.
    if (jobs_.size() >= waiting_ && threads_.size() < mostThreads_) addThread();
    jobs_.push_back(&job);
    ++unfinished_;
    submitted_.notify_one();
}

void BlockingPool::addThread() {
    try {
        threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        // With fewer threads the job waits its turn; without any it would wait for ever.
        if (threads_.empty())
            throw std::runtime_error(
                "The system allows no further thread. End some programs, then try again.");
    }
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
