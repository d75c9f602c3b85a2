#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Upload/StallWatch.h"

namespace vark {

namespace detail {

/// Why work was given up for standing still, if it was. Written and read on one executor.
struct StallFlag {
    std::optional<std::string> why;
};

/// Looks every second, and returns when the work stands still for too long.
Task<void> watchForStall(std::int64_t length, StallWatch watch, std::function<std::int64_t()> moved,
                         StallFlag& flag);

template <class T>
Task<void> keepOutcome(Task<T> work, Outcome<T>& outcome) {
    outcome = co_await outcomeOf(std::move(work));
}

inline Task<void> firstEndCancelsTheRest(TaskGroup<void>& group) {
    co_await group.next();
    group.cancelAll();
}

}  // namespace detail

/// Runs work that sends `length` bytes for as long as `moved`, the bytes of it that have gone, keeps
/// changing. Work that stands still is cancelled, and fails with `VarkAPIError`'s transport; all else that it
/// comes to is handed back. Nothing of it is left when this returns.
template <class T>
Task<T> runWhileItMoves(std::int64_t length, StallWatch watch, std::function<std::int64_t()> moved,
                        Task<T> work) {
    detail::StallFlag flag;
    Outcome<T> outcome;
    auto body = [&](TaskGroup<void>& group) {
        group.add(detail::keepOutcome(std::move(work), outcome));
        group.add(detail::watchForStall(length, watch, std::move(moved), flag));
        return detail::firstEndCancelsTheRest(group);
    };
    co_await withGroup<void>(body);
    if (flag.why && outcome.failed()) {
        co_await checkCancellation();
        throw VarkAPIError::transport(std::move(*flag.why));
    }
    co_return outcome.take();
}

}  // namespace vark
