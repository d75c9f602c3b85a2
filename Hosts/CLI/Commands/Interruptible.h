#pragma once

#include <optional>

#include "Hosts/CLI/CommandSurroundings.h"
#include "Hosts/CLI/Display/Terminal.h"

namespace vark::cli {

/// Drives the executor until the task has ended, or has been told by a signal to end and has done so: then
/// there is no result.
template <class T>
std::optional<T> awaitUnlessInterrupted(CommandSurroundings& surroundings, Task<T> task) {
    TaskScope scope(surroundings.executor, surroundings.clock);
    const TaskHandle<T> work = scope.start(std::move(task));
    const Terminal terminal(false, [work](std::optional<char>) { work.cancel(); });
    surroundings.executor.runUntil([&] { return work.done(); });
    try {
        return work.result();
    } catch (const CancellationError&) {
        return std::nullopt;
    }
}

/// The same; whether it came to its end.
inline bool endsUninterrupted(CommandSurroundings& surroundings, Task<void> task) {
    const auto whole = [](Task<void> part) -> Task<bool> {
        co_await std::move(part);
        co_return true;
    };
    return awaitUnlessInterrupted<bool>(surroundings, whole(std::move(task))).has_value();
}

}  // namespace vark::cli
