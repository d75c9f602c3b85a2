#pragma once

#include <cstdint>
#include <string>

namespace vark {

/// How long a chunk may stand still. The second time is far longer: once the last byte has gone, the vark
/// still has to take the chunk in and check it. A value; all times in seconds, all sizes in bytes.
struct StallWatch {
    double noProgress = 45;
    double afterTheBytes = 180;

    bool giveUp(std::int64_t sent, std::int64_t length, double still) const {
        return still > (sent < length ? noProgress : afterTheBytes);
    }

    static std::string sentence(std::int64_t sent, std::int64_t length) {
        return sent < length ? "The vark stopped taking this piece; sending it again."
                             : "The vark took every byte and did not answer; sending it again.";
    }
};

}  // namespace vark
