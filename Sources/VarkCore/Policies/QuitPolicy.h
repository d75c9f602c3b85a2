#pragma once

#include <cstdint>

namespace vark {

/// Whether the application may end while files are on their way. Pure.
struct QuitPolicy {
    enum class QuitReason : std::uint8_t { person, system };
    enum class Decision : std::uint8_t { quitNow, askFirst };

    struct Situation {
        QuitReason reason = QuitReason::person;
        bool transferActive = false;
        /// The person has been asked, and means it.
        bool confirmed = false;
    };

    /// The end of the session is never held up by a question.
    static Decision decide(const Situation& situation);
};

}  // namespace vark
