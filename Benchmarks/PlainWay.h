#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>

namespace vark {

/// Runs the benchmark and, turn by turn with it, the plain way of doing the same. Shows the quickest round of
/// the plain way in milliseconds, and how many times as long our quickest one took.
inline void compareWithPlainWay(benchmark::State& state, const std::function<void()>& plain,
                                const std::function<void()>& ours) {
    using Milliseconds = std::chrono::duration<double, std::milli>;
    const auto timeOf = [](const std::function<void()>& work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        return Milliseconds(std::chrono::steady_clock::now() - start).count();
    };
    double quickestPlain = 1e300;
    double quickestOurs = 1e300;
    for ([[maybe_unused]] auto _ : state) {
        quickestPlain = std::min(quickestPlain, timeOf(plain));
        const double time = timeOf(ours);
        quickestOurs = std::min(quickestOurs, time);
        state.SetIterationTime(time / 1000);
    }
    state.counters["plain_ms"] = quickestPlain;
    state.counters["ours_ms"] = quickestOurs;
    state.counters["ratio"] = quickestOurs / quickestPlain;
}

inline void runProgram(const std::string& command) {
    if (std::system(command.c_str()) != 0) std::abort();
}

}  // namespace vark
