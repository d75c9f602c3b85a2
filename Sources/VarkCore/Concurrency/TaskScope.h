#pragma once

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <optional>
#include <vector>

#include "VarkCore/Concurrency/Clock.h"
#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

namespace detail {

class StartedTask;

/// The started tasks of one scope that have not ended. Shared by the scope and by each of its tasks, since
/// the last task may outlast the scope by the few instructions of its leaving.
class StartedTasks {
  public:
    /// A task that enters after `close` is cancelled from its beginning.
    void enter(const std::shared_ptr<StartedTask>& task);
    void close();
    void leave(StartedTask& task, Executor& executor);
    void cancelAll();
    std::size_t live() const;
    void waitUntilEmpty();

  private:
    mutable Mutex lock_;
    std::condition_variable_any left_;
    std::vector<std::shared_ptr<StartedTask>> tasks_ VARK_GUARDED_BY(lock_);
    bool closed_ VARK_GUARDED_BY(lock_) = false;
};

/// The record of one started task, without its result.
class StartedTask : public std::enable_shared_from_this<StartedTask> {
  public:
    StartedTask(std::shared_ptr<StartedTasks> tasks, Executor& executor, Clock& clock)
        : tasks_(std::move(tasks)), executor_(executor), context_{source_.get_token(), &clock} {}
    virtual ~StartedTask() = default;
    StartedTask(const StartedTask&) = delete;
    StartedTask& operator=(const StartedTask&) = delete;

    void cancel() { source_.request_stop(); }
    bool done() const;
    const TaskContext& context() const { return context_; }

    /// Waits for the end of a task. A stop of the waiting task ends the wait only where the wait says so.
    class EndWait;
    std::size_t placeInScope = 0;  // Guarded by the lock of its `StartedTasks`.

  protected:
    void end();

  private:
    bool enqueue(EndWait& wait);
    bool withdraw(EndWait& wait) noexcept;

    std::shared_ptr<StartedTasks> tasks_;
    Executor& executor_;
    std::stop_source source_;
    TaskContext context_;
    mutable Mutex lock_;
    bool done_ VARK_GUARDED_BY(lock_) = false;
    std::vector<EndWait*> waits_ VARK_GUARDED_BY(lock_);
};

class StartedTask::EndWait final : public StoppableWait {
  public:
    EndWait(std::shared_ptr<StartedTask> task, bool stoppable)
        : task_(std::move(task)), stoppable_(stoppable) {}
    EndWait(EndWait&& other) = delete;

    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
        return suspend(handle, [this](const TaskContext& context) {
            if (!task_->enqueue(*this)) {
                complete();
            } else if (stoppable_) {
                watch(context.token);
            }
        });
    }
    void await_resume() {
        unwatch();
        if (cancelled_) throw CancellationError();
    }

  private:
    friend class StartedTask;
    void onStop() noexcept override {
        if (!task_->withdraw(*this)) return;
        cancelled_ = true;
        complete();
    }

    std::shared_ptr<StartedTask> task_;
    bool stoppable_;
    bool cancelled_ = false;
};

template <class T>
class StartedTaskOf final : public StartedTask {
  public:
    using StartedTask::StartedTask;
    Outcome<T> outcome;

    static RootCoroutine run(std::shared_ptr<StartedTaskOf> self, Task<T> task) {
        self->outcome = co_await outcomeOf(std::move(task));
        self->end();
    }
};

}  // namespace detail

/// A started task, from any thread and by as many holders as there are. The scope that started it still owns
/// it: dropping every handle ends nothing.
template <class T = void>
class TaskHandle {
  public:
    TaskHandle() = default;
    explicit TaskHandle(std::shared_ptr<detail::StartedTaskOf<T>> task) : task_(std::move(task)) {}

    /// Asks for the end. Answers at once; the end comes when the task gets there.
    void cancel() const {
        if (task_) task_->cancel();
    }
    bool done() const { return !task_ || task_->done(); }
    /// Waits for the end, whatever it is, and does so even when the waiting task is cancelled.
    detail::StartedTask::EndWait finished() const { return detail::StartedTask::EndWait(task_, false); }
    /// The task's result or failure. A cancelled wait throws and leaves the task running.
    Task<T> value() const { return valueOf(task_); }
    /// The result of a task that is done.
    T result() const { return task_->outcome.read(); }

  private:
    static Task<T> valueOf(std::shared_ptr<detail::StartedTaskOf<T>> task) {
        co_await detail::StartedTask::EndWait(task, true);
        co_return task->outcome.read();
    }

    std::shared_ptr<detail::StartedTaskOf<T>> task_;
};

/// The one way to start work. A scope is the last member of its owner, so that at its end, when it cancels
/// what it started and drives the executor until all of it has ended, everything that the tasks use is still
/// there. Started work begins on the scope's executor, never inside `start`. `start`, `cancelAll` and `live`
/// may be called from any thread; the end of a scope comes on the executor's thread, or on another one while
/// the executor is driven.
class TaskScope {
  public:
    TaskScope(Executor& executor, Clock& clock) : executor_(executor), clock_(clock) {}
    ~TaskScope() { endAll(); }
    TaskScope(const TaskScope&) = delete;
    TaskScope& operator=(const TaskScope&) = delete;

    template <class T>
    TaskHandle<T> start(Task<T> task) {
        auto started = std::make_shared<detail::StartedTaskOf<T>>(tasks_, executor_, clock_);
        tasks_->enter(started);
        detail::StartedTaskOf<T>::run(started, std::move(task)).start(executor_, started->context());
        return TaskHandle<T>(std::move(started));
    }
    void cancelAll() { tasks_->cancelAll(); }
    std::size_t live() const { return tasks_->live(); }
    /// Cancels everything and returns when all of it has ended. What is started after this is cancelled from
    /// its beginning.
    void endAll();

  private:
    Executor& executor_;
    Clock& clock_;
    std::shared_ptr<detail::StartedTasks> tasks_ = std::make_shared<detail::StartedTasks>();
};

/// Drives `executor` on its own thread until the task has ended, and gives its result: for a main and for
/// tests.
template <class T>
T run(Executor& executor, Clock& clock, Task<T> task) {
    TaskScope scope(executor, clock);
    TaskHandle<T> handle = scope.start(std::move(task));
    executor.runUntil([&] { return handle.done(); });
    return handle.result();
}

}  // namespace vark
