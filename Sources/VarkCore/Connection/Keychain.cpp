#include "VarkCore/Connection/Keychain.h"

#include <fmt/format.h>

#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

constexpr const char* tokenAccount = "device-token";
constexpr const char* tokenLabel = "Vark device token";
constexpr const char* legacyService = "dev.vark.transfer";

}  // namespace

std::optional<std::string> Keychain::TokenRead::token() const {
    const Found* found = std::get_if<Found>(&case_);
    return found != nullptr ? std::optional(found->token) : std::nullopt;
}

Keychain::Failure::Failure(const SecretStore& store, std::int32_t status)
    : status_(status),
      description_(store.message(status).value_or(fmt::format("Keychain error {}", status))) {}

SecretName Keychain::nameOf(const Name& service, const Name& account) const {
    return {service.value_or(identity_.bundleID()), account.value_or(tokenAccount)};
}

Keychain::TokenRead Keychain::readToken(const Name& service, const Name& account) const {
    SecretStore::Answer answer = store_.find(nameOf(service, account));
    if (answer.status == SecretStatus::notFound) return TokenRead::Missing{};
    if (answer.status != SecretStatus::done) return TokenRead::Unreadable{answer.status};
    if (!isUTF8(answer.bytes)) return TokenRead::Unreadable{SecretStatus::notText};
    return TokenRead::Found{std::move(answer.bytes)};
}

std::optional<std::string> Keychain::read(const Name& service, const Name& account) const {
    return readToken(service, account).token();
}

void Keychain::write(std::string_view token, const Name& service, const Name& account) const {
    const SecretName name = nameOf(service, account);
    std::int32_t status = store_.update(name, token);
    if (status == SecretStatus::notFound) status = store_.add(name, tokenLabel, token);
    if (status != SecretStatus::done) throw Failure(store_, status);
}

std::int32_t Keychain::remove(const Name& service, const Name& account) const {
    return store_.remove(nameOf(service, account));
}

bool Keychain::migrateFromLegacy() const {
    if (!identity_.isShipping() || !readToken().isMissing()) return false;
    const std::optional<std::string> token = read(legacyService, tokenAccount);
    if (!token) return false;
    try {
        write(*token);
    } catch (const Failure&) {
        // The old item stays, so that the next start tries again.
        return false;
    }
    remove(legacyService, tokenAccount);
    return true;
}

}  // namespace vark
