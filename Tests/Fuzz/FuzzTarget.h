#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// Each target hands its bytes to code that takes them from outside, and must come back whatever they are. The
// sanitizers watch memory and arithmetic; what else must hold is said with `require`.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace vark::fuzz {

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {static_cast<const char*>(static_cast<const void*>(data)), size};
}

/// Ends the run, and keeps the input, when something does not hold.
inline void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "This does not hold: %s\n", what);
    std::abort();
}

}  // namespace vark::fuzz
