#pragma once

#include <exception>

namespace vark {

/// How a chunk that failed is tried again. Pure functions.
struct ChunkRetry {
    /// Whether the same chunk may go through a little later. An upload that must begin again does not.
    static bool worthAnotherGo(const std::exception_ptr& failure);
    /// Seconds to wait before the attempt of this number; the first is 1.
    static double pause(int beforeAttempt) { return beforeAttempt > 2 ? 3.0 : 1.0; }
};

}  // namespace vark
