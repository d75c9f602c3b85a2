#pragma once

#include <algorithm>
#include <exception>
#include <functional>
#include <type_traits>

#include "VarkCore/Concurrency/Clock.h"

namespace vark {

/// Waits out a short failure of the vark. Functions only.
struct Patience {
    /// Seconds to wait behind the try of this number; the first is 1.
    using Pause = std::function<double(int attempt)>;

    static constexpr int tries = 3;

    /// The network, a vark that is overloaded or that failed by itself; nothing else, a cancellation least.
    static bool worthWaiting(const std::exception_ptr& failure);
    static double pause(int beforeAttempt) { return beforeAttempt > 1 ? 3.0 : 1.0; }

    /// Up to three tries of an operation that makes a task. It is kept until the end, and must be no
    /// coroutine itself.
    template <class Operation>
    static std::invoke_result_t<Operation&> run(Operation operation, Pause pause = Patience::pause) {
        for (int attempt = 1;; ++attempt) {
            std::exception_ptr failure;
            try {
                co_return co_await operation();
            } catch (...) {
                failure = std::current_exception();
            }
            if (attempt >= tries || !worthWaiting(failure)) std::rethrow_exception(failure);
            const double wait = std::max(pause(attempt), 0.0);
            co_await sleepFor(seconds(wait));
        }
    }
};

}  // namespace vark
