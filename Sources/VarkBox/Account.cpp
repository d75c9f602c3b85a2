#include "VarkBox/Account.h"

#include <fmt/format.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <array>

#include "VarkBox/Exchange.h"

namespace vark::box {

namespace {

constexpr int lowestWritingLevel = 4;
constexpr std::array<std::string_view, 7> labels = {"No access", "Guest",   "Viewer", "Reader",
                                                    "Editor",    "Manager", "Owner"};

bool sameSecret(std::string_view a, std::string_view b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

Account::Account(std::string client, std::string token, int level)
    : client_(std::move(client)), email_("somebody@vark.example"), token_(std::move(token)), level_(level) {}

int Account::level() const {
    Locked guard(lock_);
    return level_;
}

std::string_view Account::levelLabel() const {
    int last = static_cast<int>(labels.size()) - 1;
    return labels.at(static_cast<std::size_t>(std::clamp(level(), 0, last)));
}

void Account::setLevel(int level) {
    Locked guard(lock_);
    level_ = level;
}

void Account::setSignedOut(bool signedOut) {
    Locked guard(lock_);
    signedOut_ = signedOut;
}

void Account::checkToken(const std::optional<std::string>& token) const {
    if (!token) throw Refusal(401, "This call needs the token of a device. Sign in first.");
    if (!sameSecret(*token, token_)) throw Refusal(401, "The vark does not know this device. Sign in again.");
    Locked guard(lock_);
    if (signedOut_)
        throw Refusal(401, "This device has been signed out. Sign in again.", {{"sign_out", true}});
}

void Account::checkMayWrite() const {
    if (level() >= lowestWritingLevel) return;
    throw Refusal(403, fmt::format("Your level, {}, may look at files but not change them. Ask {} for more.",
                                   levelLabel(), client_));
}

}  // namespace vark::box
