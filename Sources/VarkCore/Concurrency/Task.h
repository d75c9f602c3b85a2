#pragma once

#include <cassert>
#include <coroutine>
#include <exception>
#include <type_traits>
#include <utility>
#include <variant>

#include "VarkCore/Concurrency/Coroutine.h"

namespace vark {

/// The end that a cancelled task comes to. It stands apart from `std::exception`, so that nothing which
/// handles failures takes it for one.
class CancellationError {};

/// How a task ended: not yet, with a value, or with a failure.
template <class T>
class Outcome {
  public:
    using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

    template <class... Arguments>
    void setValue(Arguments&&... arguments) {
        content_.template emplace<1>(std::forward<Arguments>(arguments)...);
    }
    void setFailure(std::exception_ptr failure) { content_.template emplace<2>(std::move(failure)); }

    bool failed() const { return content_.index() == 2; }
    /// Moves the value out, or throws the failure.
    T take() {
        if (failed()) std::rethrow_exception(std::get<2>(content_));
        assert(content_.index() == 1);
        if constexpr (!std::is_void_v<T>) return std::move(std::get<1>(content_));
    }
    /// A copy of the value, or the failure thrown: for results that several wait for.
    T read() const {
        if (failed()) std::rethrow_exception(std::get<2>(content_));
        assert(content_.index() == 1);
        if constexpr (!std::is_void_v<T>) return std::get<1>(content_);
    }

  private:
    std::variant<std::monostate, Value, std::exception_ptr> content_;
};

template <class T>
class Task;

namespace detail {

template <class T>
class TaskPromiseBase : public PromiseBase {
  public:
    std::suspend_always initial_suspend() const noexcept { return {}; }
    auto final_suspend() const noexcept {
        struct Final {
            bool await_ready() const noexcept { return false; }
            void await_suspend(std::coroutine_handle<typename Task<T>::promise_type> ended) const noexcept {
                ended.promise().returnToCaller();
            }
            void await_resume() const noexcept {}
        };
        return Final{};
    }
    void unhandled_exception() noexcept { outcome.setFailure(std::current_exception()); }

    Outcome<T> outcome;

  protected:
    ~TaskPromiseBase() = default;
};

template <class T>
class TaskPromise final : public TaskPromiseBase<T> {
  public:
    Task<T> get_return_object() noexcept;
    template <class U = T>
    void return_value(U&& value) {
        this->outcome.setValue(std::forward<U>(value));
    }
};

template <>
class TaskPromise<void> final : public TaskPromiseBase<void> {
  public:
    Task<void> get_return_object() noexcept;
    void return_void() { outcome.setValue(); }
};

}  // namespace detail

/// A piece of asynchronous work that has not begun. It begins when it is awaited, or when a scope or a group
/// takes it; one that is dropped before that never runs. Whoever awaits it goes on where it was, whatever
/// executor the work ended on. Parameters of a coroutine are values; a reference only to what outlives the
/// task.
template <class T = void>
class [[nodiscard]] Task {
  public:
    using promise_type = detail::TaskPromise<T>;
    using Handle = std::coroutine_handle<promise_type>;

    explicit Task(Handle handle) noexcept : handle_(handle) {}
    Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Task& operator=(Task&& other) noexcept {
        if (this != &other) {
            if (handle_) handle_.destroy();
            handle_ = std::exchange(other.handle_, nullptr);
        }
        return *this;
    }
    ~Task() {
        if (handle_) handle_.destroy();
    }

    auto operator co_await() && noexcept { return Awaiter{std::move(*this), nullptr}; }
    /// Awaits with another context than the caller's; `context` outlives the await.
    auto under(const TaskContext& context) && noexcept { return Awaiter{std::move(*this), &context}; }

  private:
    struct Awaiter {
        Task task;
        const TaskContext* context;

        bool await_ready() const noexcept { return false; }
        template <class Promise>
        void await_suspend(std::coroutine_handle<Promise> caller) const noexcept {
            task.handle_.promise().callFrom(caller, context != nullptr ? context : caller.promise().context);
            Driver::resumeNext(task.handle_);
        }
        T await_resume() { return task.handle_.promise().outcome.take(); }
    };

    Handle handle_;
};

namespace detail {

template <class T>
Task<T> TaskPromise<T>::get_return_object() noexcept {
    return Task<T>(std::coroutine_handle<TaskPromise<T>>::from_promise(*this));
}
inline Task<void> TaskPromise<void>::get_return_object() noexcept {
    return Task<void>(std::coroutine_handle<TaskPromise<void>>::from_promise(*this));
}

/// A coroutine that nobody awaits: it is posted to an executor once, tells its owner about its end by itself,
/// and its frame goes with its end. Only the scope and the group make such.
class RootCoroutine {
  public:
    class promise_type final : public PromiseBase {
      public:
        RootCoroutine get_return_object() noexcept {
            return RootCoroutine(std::coroutine_handle<promise_type>::from_promise(*this));
        }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        std::suspend_never final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        void unhandled_exception() const noexcept { std::terminate(); }
        void run() noexcept override {
            Driver::run(std::coroutine_handle<promise_type>::from_promise(*this));
        }
    };

    void start(Executor& executor, const TaskContext& context) && noexcept {
        handle_.promise().context = &context;
        executor.post(handle_.promise());
    }

  private:
    explicit RootCoroutine(std::coroutine_handle<promise_type> handle) noexcept : handle_(handle) {}
    std::coroutine_handle<promise_type> handle_;
};

/// Runs the task, keeps how it ended in `outcome`, and leaves nothing of the task alive. Awaited, never
/// started.
template <class T>
Task<Outcome<T>> outcomeOf(Task<T> task) {
    Task<T> mine = std::move(task);
    Outcome<T> outcome;
    try {
        if constexpr (std::is_void_v<T>) {
            co_await std::move(mine);
            outcome.setValue();
        } else {
            outcome.setValue(co_await std::move(mine));
        }
    } catch (...) {
        outcome.setFailure(std::current_exception());
    }
    co_return outcome;
}

/// An awaitable that reads the awaiting task's context and never suspends it.
template <class Read>
class ContextAwaiter {
  public:
    explicit ContextAwaiter(Read read) : read_(read) {}
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> caller) noexcept {
        context_ = caller.promise().context;
        return false;
    }
    auto await_resume() const { return read_(*context_); }

  private:
    Read read_;
    const TaskContext* context_ = nullptr;
};

}  // namespace detail

/// The token by which the awaiting task is cancelled.
inline auto thisToken() {
    return detail::ContextAwaiter([](const TaskContext& context) { return context.token; });
}
inline auto thisClock() {
    return detail::ContextAwaiter([](const TaskContext& context) { return context.clock; });
}
/// The executor that the awaiting task runs on now.
inline auto thisExecutor() {
    return detail::ContextAwaiter([](const TaskContext&) { return Executor::current(); });
}
/// Throws `CancellationError` when the awaiting task has been cancelled.
inline auto checkCancellation() {
    return detail::ContextAwaiter([](const TaskContext& context) {
        if (context.token.stop_requested()) throw CancellationError();
    });
}
/// Whether the awaiting task has been cancelled.
inline auto isCancelled() {
    return detail::ContextAwaiter([](const TaskContext& context) { return context.token.stop_requested(); });
}

namespace detail {
class Hop final : public Work {
  public:
    explicit Hop(Executor* target) : target_(target) {}
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> handle) noexcept {
        handle_ = handle;
        (target_ != nullptr ? target_ : Executor::current())->post(*this);
    }
    void await_resume() const noexcept {}
    void run() noexcept override { Driver::run(handle_); }

  private:
    Executor* target_;
    std::coroutine_handle<> handle_;
};
}  // namespace detail

/// The rest of this function runs on `executor`; its caller goes on where it was.
inline detail::Hop hopTo(Executor& executor) {
    return detail::Hop(&executor);
}
/// Lets everything else that is queued on this executor run first.
inline detail::Hop yieldNow() {
    return detail::Hop(nullptr);
}

/// Cancellation does not reach the task: for clean-up that must still await. Keep it short.
template <class T>
Task<T> shielded(Task<T> task) {
    TaskContext sheltered{std::stop_token(), co_await thisClock()};
    co_return co_await std::move(task).under(sheltered);
}

}  // namespace vark
