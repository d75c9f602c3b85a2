#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::box {

enum class SignInState { pending, connected, refused, expired };

std::string_view nameOf(SignInState state);

/// How devices come to a token: with a code that the person reads off the portal, or by a yes of the person
/// in the browser. Kept in memory, and forgotten some time after it has run out. All times are seconds of one
/// clock. Any thread. Refuses with sentences.
class SignIns {
  public:
    /// Makes a token for the device of this name.
    using Connect = std::function<std::string(const std::string&)>;

    explicit SignIns(double lastsSeconds) : lasts_(lastsSeconds) {}

    double lastsSeconds() const { return lasts_; }

    /// Six digits.
    std::string makeCode(double now);
    /// A code serves once. Refuses with 404 one that is not known or has run out.
    void spendCode(std::string_view typed, double now);

    struct Begun {
        /// For the device alone: whoever has it gets the token.
        std::string nonce;
        /// For the browser: whoever has it may say yes.
        std::string key;
    };
    Begun begin(std::string deviceName, double now);

    struct Poll {
        SignInState state = SignInState::pending;
        std::string deviceName;
        /// When connected.
        std::string token{};
    };
    /// The first poll after the yes makes the token, and later ones give the same. Refuses with 404 a sign-in
    /// that is not known, and with 429 polls that come too fast.
    Poll poll(std::string_view nonce, double now, const Connect& connect);

    /// What the browser's page shows. Refuses with 404 a sign-in that is not known.
    Poll look(std::string_view key, double now);
    /// The first answer counts; gives what then stands.
    Poll answer(std::string_view key, bool yes, double now);

  private:
    struct SignIn {
        std::string deviceName;
        std::string key;
        double until = 0;
        SignInState state = SignInState::pending;
        std::string token{};
        std::optional<double> polledAt{};

        SignInState stateAt(double now) const;
    };

    void forgetOld(double now) VARK_REQUIRES(lock_);
    SignIn& require(std::string_view key) VARK_REQUIRES(lock_);

    const double lasts_;
    Mutex lock_;
    /// Until when each code is good.
    std::map<std::string, double, std::less<>> codes_ VARK_GUARDED_BY(lock_);
    std::map<std::string, SignIn, std::less<>> byNonce_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark::box
