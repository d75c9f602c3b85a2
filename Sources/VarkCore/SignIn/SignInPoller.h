#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <utility>
#include <variant>

#include "VarkCore/API/Messages/DeviceSignIn.h"

namespace vark {

/// Paces the polls of a sign-in in the browser, and knows how it ended. A value without a clock: whoever
/// polls says how many seconds have gone since the start.
class SignInPoller {
  public:
    class State {
      public:
        struct Connected {
            DeviceClaim claim{};
            bool operator==(const Connected&) const = default;
        };
        struct Waiting {
            bool operator==(const Waiting&) const = default;
        };
        struct Refused {
            bool operator==(const Refused&) const = default;
        };
        struct Expired {
            bool operator==(const Expired&) const = default;
        };
        using Case = std::variant<Connected, Waiting, Refused, Expired>;

        template <class T>
            requires std::constructible_from<Case, T>
        State(T which) : case_(std::move(which)) {}

        const Case& which() const { return case_; }
        bool operator==(const State&) const = default;

      private:
        Case case_;
    };

    /// For a sign-in that the vark forgets after so many seconds.
    explicit SignInPoller(double expiresIn);

    /// Takes the answer to a poll. Gives the seconds until the next one, or nothing when polling is over.
    std::optional<double> step(const DevicePoll& answer, double elapsed);

    bool isFinished() const { return !std::holds_alternative<State::Waiting>(state_.which()); }
    const State& state() const { return state_; }
    /// In seconds, as is the deadline.
    double interval() const { return interval_; }
    double deadline() const { return deadline_; }
    std::int64_t polls() const { return polls_; }

  private:
    State state_ = State::Waiting{};
    double interval_;
    double deadline_;
    std::int64_t polls_ = 0;
};

}  // namespace vark
