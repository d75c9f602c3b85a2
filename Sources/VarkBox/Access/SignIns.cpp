#include "VarkBox/Access/SignIns.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <ranges>
#include <utility>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/Store/Hasher.h"

namespace vark::box {

namespace {

/// Less than the second that a client leaves between two polls.
constexpr double shortestBetweenPolls = 0.5;

std::string sixDigits() {
    std::string bytes = randomHex(8);
    std::uint64_t number = 0;
    std::from_chars(bytes.data(), bytes.data() + bytes.size(), number, 16);
    return fmt::format("{:06}", number % 1'000'000);
}

Refusal unknown() {
    return Refusal(404, "This sign-in is not known here, or has run out. Start it again on the device.");
}

}  // namespace

std::string_view nameOf(SignInState state) {
    // In the order of SignInState.
    constexpr std::array<std::string_view, 4> names = {"pending", "connected", "refused", "expired"};
    return names.at(static_cast<std::size_t>(state));
}

SignInState SignIns::SignIn::stateAt(double now) const {
    return state == SignInState::pending && now >= until ? SignInState::expired : state;
}

std::string SignIns::makeCode(double now) {
    Locked guard(lock_);
    forgetOld(now);
    std::string code = sixDigits();
    while (codes_.contains(code))
        code = sixDigits();
    codes_.emplace(code, now + lasts_);
    return code;
}

void SignIns::spendCode(std::string_view typed, double now) {
    std::string code(typed);
    std::erase_if(code, [](char character) { return character == ' ' || character == '-'; });
    Locked guard(lock_);
    auto found = codes_.find(code);
    bool isGood = found != codes_.end() && now < found->second;
    if (found != codes_.end()) codes_.erase(found);
    if (!isGood)
        throw Refusal(404,
                      "This code is not known, or has run out. Make a new one in Settings in the portal.");
}

SignIns::Begun SignIns::begin(std::string deviceName, double now) {
    Begun begun{.nonce = randomHex(16), .key = randomHex(16)};
    Locked guard(lock_);
    forgetOld(now);
    byNonce_.emplace(begun.nonce,
                     SignIn{.deviceName = std::move(deviceName), .key = begun.key, .until = now + lasts_});
    return begun;
}

SignIns::Poll SignIns::poll(std::string_view nonce, double now, const Connect& connect) {
    Locked guard(lock_);
    auto found = byNonce_.find(nonce);
    if (found == byNonce_.end()) throw unknown();
    SignIn& signIn = found->second;
    std::optional<double> before = std::exchange(signIn.polledAt, now);
    if (before && now - *before < shortestBetweenPolls)
        throw Refusal(429, "This device asks too often. Once a second is enough.");
    SignInState state = signIn.stateAt(now);
    if (state == SignInState::connected && signIn.token.empty()) signIn.token = connect(signIn.deviceName);
    return {state, signIn.deviceName, signIn.token};
}

SignIns::Poll SignIns::look(std::string_view key, double now) {
    Locked guard(lock_);
    const SignIn& signIn = require(key);
    return {signIn.stateAt(now), signIn.deviceName};
}

SignIns::Poll SignIns::answer(std::string_view key, bool yes, double now) {
    Locked guard(lock_);
    SignIn& signIn = require(key);
    if (signIn.stateAt(now) == SignInState::pending)
        signIn.state = yes ? SignInState::connected : SignInState::refused;
    return {signIn.stateAt(now), signIn.deviceName};
}

SignIns::SignIn& SignIns::require(std::string_view key) {
    for (SignIn& signIn : byNonce_ | std::views::values) {
        if (signIn.key == key) return signIn;
    }
    throw unknown();
}

void SignIns::forgetOld(double now) {
    // A device that asks a little late is still told what became of it.
    std::erase_if(byNonce_, [&](const auto& entry) { return entry.second.until + lasts_ < now; });
    std::erase_if(codes_, [&](const auto& entry) { return entry.second < now; });
}

}  // namespace vark::box
