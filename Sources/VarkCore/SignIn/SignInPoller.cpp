#include "VarkCore/SignIn/SignInPoller.h"

#include <algorithm>

namespace vark {
namespace {

constexpr double shortestInterval = 1;
constexpr double slowInterval = 2;
constexpr double shortestLife = 5;
/// Beyond what the vark promised.
constexpr double grace = 5;

/// The state that an answer decides by itself; nothing while it is open.
std::optional<SignInPoller::State> endOf(const DevicePoll& answer) {
    using State = SignInPoller::State;
    if (const auto* connected = std::get_if<DevicePoll::Connected>(&answer.which()))
        return State::Connected{connected->claim};
    if (std::holds_alternative<DevicePoll::Refused>(answer.which())) return State::Refused{};
    if (std::holds_alternative<DevicePoll::Expired>(answer.which())) return State::Expired{};
    return std::nullopt;
}

}  // namespace

SignInPoller::SignInPoller(double expiresIn)
    : interval_(shortestInterval), deadline_(std::max(expiresIn, shortestLife) + grace) {}

std::optional<double> SignInPoller::step(const DevicePoll& answer, double elapsed) {
    if (isFinished()) return std::nullopt;
    ++polls_;
    // The answer counts before the clock: whoever has agreed is connected, however late.
    if (std::optional<State> end = endOf(answer)) {
        state_ = std::move(*end);
        return std::nullopt;
    }
    if (std::holds_alternative<DevicePoll::SlowDown>(answer.which()))
        interval_ = std::max(interval_, slowInterval);
    if (elapsed >= deadline_) {
        state_ = State::Expired{};
        return std::nullopt;
    }
    return std::max(interval_, shortestInterval);
}

}  // namespace vark
