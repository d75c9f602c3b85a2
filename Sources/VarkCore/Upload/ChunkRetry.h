#pragma once

namespace vark {

/// How a chunk that failed is tried again. Pure functions.
struct ChunkRetry {
    /// Seconds to wait before the attempt of this number; the first is 1.
    static double pause(int beforeAttempt) { return beforeAttempt > 2 ? 3.0 : 1.0; }
};

}  // namespace vark
