#include "VarkCore/Concurrency/Executor.h"

#include <cassert>
#include <future>
#include <utility>

namespace vark {

namespace {
thread_local constinit Executor* currentExecutor = nullptr;
}

Executor* Executor::current() noexcept {
    return currentExecutor;
}

Executor::Entered::Entered(Executor& executor) noexcept : outer_(std::exchange(currentExecutor, &executor)) {}
Executor::Entered::~Entered() {
    currentExecutor = outer_;
}

SerialExecutor::~SerialExecutor() {
    Locked hold(lock_);
    assert(first_ == nullptr && "an executor outlives the work that was posted to it");
}

void SerialExecutor::post(Work& work) noexcept {
    {
        Locked hold(lock_);
        assert(work.nextWork_ == nullptr && &work != last_ && "work is posted once at a time");
        const bool wasEmpty = last_ == nullptr;
        if (wasEmpty) {
            first_ = &work;
        } else {
            last_->nextWork_ = &work;
        }
        last_ = &work;
        if (wasEmpty && arrival_) arrival_();
        // Under the lock: once it is released, the owner may find this work, finish, and be gone.
        arrived_.notify_one();
    }
}

void SerialExecutor::wake() noexcept {
    Locked hold(lock_);
    woken_ = true;
    arrived_.notify_one();
}

Work* SerialExecutor::pop() noexcept {
    Locked hold(lock_);
    Work* work = first_;
    if (work == nullptr) return nullptr;
    first_ = std::exchange(work->nextWork_, nullptr);
    if (first_ == nullptr) last_ = nullptr;
    return work;
}

void SerialExecutor::execute(Work& work) noexcept {
    Entered entered(*this);
    work.run();
}

std::size_t SerialExecutor::runReady() {
    assert(isCurrent());
    std::size_t ran = 0;
    while (Work* work = pop()) {
        execute(*work);
        ++ran;
    }
    return ran;
}

bool SerialExecutor::runFor(std::chrono::nanoseconds time) {
    assert(isCurrent());
    const auto end = std::chrono::steady_clock::now() + time;
    do {
        Work* work = pop();
        if (work == nullptr) return false;
        execute(*work);
    } while (std::chrono::steady_clock::now() < end);
    return hasWork();
}

bool SerialExecutor::hasWork() const {
    Locked hold(lock_);
    return first_ != nullptr;
}

void SerialExecutor::setArrival(std::function<void()> arrived) {
    Locked hold(lock_);
    arrival_ = std::move(arrived);
    if (arrival_ && first_ != nullptr) arrival_();
}

void SerialExecutor::runUntil(const std::function<bool()>& done) {
    assert(isCurrent());
    while (!done()) {
        if (Work* work = pop()) {
            execute(*work);
            continue;
        }
        Locked hold(lock_);
        while (first_ == nullptr && !woken_)
            arrived_.wait(lock_);
        woken_ = false;
    }
}

EngineThread::EngineThread() {
    std::promise<SerialExecutor*> ready;
    std::future<SerialExecutor*> made = ready.get_future();
    thread_ = std::thread([this, &ready] {
        SerialExecutor executor;
        ready.set_value(&executor);
        executor.runUntil([this] { return ended_.load(); });
    });
    executor_ = made.get();
}

EngineThread::~EngineThread() {
    ended_ = true;
    executor_->wake();
    thread_.join();
}

}  // namespace vark
