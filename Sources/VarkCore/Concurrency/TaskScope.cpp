#include "VarkCore/Concurrency/TaskScope.h"

#include <cassert>

namespace vark {

namespace detail {

void StartedTasks::enter(const std::shared_ptr<StartedTask>& task) {
    {
        Locked hold(lock_);
        task->placeInScope = tasks_.size();
        tasks_.push_back(task);
        if (!closed_) return;
    }
    task->cancel();
}

void StartedTasks::close() {
    Locked hold(lock_);
    closed_ = true;
}

void StartedTasks::leave(StartedTask& task, Executor& executor) {
    {
        Locked hold(lock_);
        std::size_t place = task.placeInScope;
        assert(tasks_[place].get() == &task);
        tasks_[place] = std::move(tasks_.back());
        tasks_[place]->placeInScope = place;
        tasks_.pop_back();
        if (!tasks_.empty()) return;
        left_.notify_all();
    }
    executor.wake();
}

void StartedTasks::cancelAll() {
    std::vector<std::shared_ptr<StartedTask>> tasks;
    {
        Locked hold(lock_);
        tasks = tasks_;
    }
    for (const std::shared_ptr<StartedTask>& task : tasks)
        task->cancel();
}

std::size_t StartedTasks::live() const {
    Locked hold(lock_);
    return tasks_.size();
}

void StartedTasks::waitUntilEmpty() {
    Locked hold(lock_);
    while (!tasks_.empty())
        left_.wait(lock_);
}

bool StartedTask::done() const {
    Locked hold(lock_);
    return done_;
}

void StartedTask::end() {
    std::vector<EndWait*> waits;
    {
        Locked hold(lock_);
        done_ = true;
        waits.swap(waits_);
    }
    for (EndWait* wait : waits)
        wait->complete();
    tasks_->leave(*this, executor_);
}

bool StartedTask::enqueue(EndWait& wait) {
    Locked hold(lock_);
    if (done_) return false;
    waits_.push_back(&wait);
    return true;
}

bool StartedTask::withdraw(EndWait& wait) noexcept {
    Locked hold(lock_);
    return std::erase(waits_, &wait) == 1;
}

}  // namespace detail

void TaskScope::endAll() {
    tasks_->close();
    tasks_->cancelAll();
    if (executor_.isCurrent()) {
        executor_.runUntil([this] { return tasks_->live() == 0; });
    } else {
        tasks_->waitUntilEmpty();
    }
}

}  // namespace vark
