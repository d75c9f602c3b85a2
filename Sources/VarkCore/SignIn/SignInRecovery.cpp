#include "VarkCore/SignIn/SignInRecovery.h"

#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

std::string tidiedServer(std::string_view address) {
    std::string tidied = lowercased(trimmed(address));
    while (tidied.ends_with('/'))
        tidied.pop_back();
    return tidied;
}

bool isSameServer(std::string_view one, std::string_view other) {
    const std::string tidied = tidiedServer(one);
    return !tidied.empty() && tidied == tidiedServer(other);
}

bool isSameClient(std::string_view one, std::string_view other) {
    const std::string_view cut = trimmed(one);
    return !cut.empty() && lowercased(cut) == lowercased(trimmed(other));
}

}  // namespace

SignInRecovery::Step SignInRecovery::next(const Keychain::TokenRead& keychain,
                                          const std::optional<SharedConnection>& shared,
                                          std::string_view server, std::string_view clientName) {
    // A token that cannot be read may still be there.
    if (!keychain.isMissing()) return NothingToDo{};
    if (!shared || shared->token.empty()) return NothingToDo{};
    if (!isSameServer(shared->server, server)) return NothingToDo{};
    if (!isSameClient(clientName, shared->clientName)) return NothingToDo{};
    return VerifyThenAdopt{shared->token};
}

}  // namespace vark
