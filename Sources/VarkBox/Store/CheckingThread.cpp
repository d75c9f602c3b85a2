#include "VarkBox/Store/CheckingThread.h"

#include <fmt/format.h>

#include <cstdio>
#include <exception>

namespace vark::box {

CheckingThread::CheckingThread() : thread_([this](const std::stop_token& stop) { run(stop); }) {}

void CheckingThread::post(Work work) {
    {
        Locked guard(lock_);
        waiting_.push_back(std::move(work));
    }
    wake_.notify_one();
}

void CheckingThread::run(const std::stop_token& stop) {
    while (true) {
        Work work;
        {
            Locked guard(lock_);
            wake_.wait(lock_, stop, [this]() VARK_REQUIRES(lock_) { return !waiting_.empty(); });
            if (stop.stop_requested()) return;
            work = std::move(waiting_.front());
            waiting_.pop_front();
        }
        try {
            work(stop);
        } catch (const std::exception& failure) {
            // The upload stays in its state; the next start of the box takes it up again.
            fmt::print(stderr, "vark-box: a check could not be finished: {}\n", failure.what());
        }
    }
}

}  // namespace vark::box
