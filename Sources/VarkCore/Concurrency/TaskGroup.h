#pragma once

#include <deque>
#include <optional>
#include <ranges>

#include "VarkCore/Concurrency/Clock.h"
#include "VarkCore/Concurrency/Task.h"

namespace vark {

/// The children of one task: each runs on the executor that the group was made on, their results come in the
/// order of their ends, and nothing of them is left when `withGroup`, the only maker of groups, returns.
/// Touched on that executor alone.
template <class T>
class TaskGroup {
  public:
    TaskGroup(const TaskContext& parent, Executor& executor) : executor_(executor) {
        context_ = TaskContext{source_.get_token(), parent.clock};
        if (parent.token.stop_possible()) parentStop_.emplace(parent.token, CancelOnStop{&source_});
    }
    TaskGroup(const TaskGroup&) = delete;
    TaskGroup& operator=(const TaskGroup&) = delete;

    void add(Task<T> task) {
        ++running_;
        runChild(this, std::move(task)).start(executor_, context_);
    }
    /// How many have been added whose end `next` has not told yet.
    std::size_t pending() const { return running_ + ended_.size(); }
    void cancelAll() { source_.request_stop(); }

    /// The next child's end: its outcome, or nothing when no child is left.
    Task<std::optional<Outcome<T>>> nextOutcome() {
        while (ended_.empty()) {
            if (running_ == 0) co_return std::nullopt;
            co_await EndWait(*this);
        }
        std::optional<Outcome<T>> outcome(std::move(ended_.front()));
        ended_.pop_front();
        co_return outcome;
    }
    /// The next child's result; throws if it failed. For children without a result: whether there was one.
    Task<std::conditional_t<std::is_void_v<T>, bool, std::optional<T>>> next() {
        std::optional<Outcome<T>> outcome = co_await nextOutcome();
        if constexpr (std::is_void_v<T>) {
            if (outcome) outcome->take();
            co_return outcome.has_value();
        } else {
            if (!outcome) co_return std::nullopt;
            co_return outcome->take();
        }
    }

  private:
    struct CancelOnStop {
        std::stop_source* source;
        void operator()() const noexcept { source->request_stop(); }
    };
    class EndWait final : public LeafWait {
      public:
        explicit EndWait(TaskGroup& group) : group_(group) {}
        template <class Promise>
        bool await_suspend(std::coroutine_handle<Promise> handle) {
            return this->suspend(handle, [this](const TaskContext&) { group_.waiting_ = this; });
        }
        void await_resume() const noexcept {}
        void wake() noexcept { this->complete(); }

      private:
        TaskGroup& group_;
    };

    static detail::RootCoroutine runChild(TaskGroup* group, Task<T> task) {
        group->ended_.push_back(co_await detail::outcomeOf(std::move(task)));
        --group->running_;
        if (EndWait* waiting = std::exchange(group->waiting_, nullptr)) waiting->wake();
    }

    Executor& executor_;
    std::stop_source source_;
    TaskContext context_;
    std::optional<std::stop_callback<CancelOnStop>> parentStop_;
    std::size_t running_ = 0;
    std::deque<Outcome<T>> ended_;
    EndWait* waiting_ = nullptr;
};

namespace detail {
template <class T>
struct TaskResult;
template <class T>
struct TaskResult<Task<T>> {
    using Type = T;
};
inline auto thisContext() {
    return ContextAwaiter([](const TaskContext& context) { return &context; });
}
}  // namespace detail

/// Runs `body(group)`, a coroutine that adds children and takes their ends. When the body fails, the children
/// that are left are cancelled; either way all have ended before this returns the body's result or throws its
/// failure. `body` is kept until then, so it may be a lambda with captures.
template <class T, class Body,
          class Result = detail::TaskResult<std::invoke_result_t<Body&, TaskGroup<T>&>>::Type>
Task<Result> withGroup(Body body) {
    const TaskContext* context = co_await detail::thisContext();
    TaskGroup<T> group(*context, *Executor::current());
    Outcome<Result> outcome = co_await detail::outcomeOf(body(group));
    if (outcome.failed()) group.cancelAll();
    while (co_await group.nextOutcome()) {
    }
    co_return outcome.take();
}

/// Runs `make(element)`, a task, for each element of `range` in order, at most `width` at a time; a child is
/// made when a place comes free. The first failure cancels the rest and is thrown when all have ended.
template <class Range, class Make>
Task<void> forEachBounded(Range range, std::size_t width, Make make) {
    auto body = [&range, width, &make](TaskGroup<void>& group) -> Task<void> {
        for (auto&& element : range) {
            if (group.pending() >= width) co_await group.next();
            co_await checkCancellation();
            group.add(make(element));
        }
        while (co_await group.next()) {
        }
    };
    co_await withGroup<void>(body);
}

/// The time that a task was given has passed.
class TimeoutError {};

/// Throws `TimeoutError` when the task has not ended after `limit`; the task has then been cancelled and has
/// ended.
template <class T>
Task<T> withTimeout(Duration limit, Task<T> task) {
    auto sleeper = [](Duration duration) -> Task<Outcome<T>> {
        co_await sleepFor(duration);
        throw TimeoutError();
    };
    auto body = [&](TaskGroup<Outcome<T>>& group) -> Task<Outcome<T>> {
        group.add(detail::outcomeOf(std::move(task)));
        group.add(sleeper(limit));
        std::optional<Outcome<T>> first = co_await group.next();
        group.cancelAll();
        co_return std::move(*first);
    };
    Outcome<T> outcome = co_await withGroup<Outcome<T>>(body);
    co_return outcome.take();
}

}  // namespace vark
