#include <cstdlib>
#include <iostream>

#include "Tests/Support/Fakes/FakeSystem.h"
#include "VarkCore/Connection/Keychain.h"
#include "VarkPlatform/Linux/Secrets/SecretServiceStore.h"

// One operation on the keychain of the session around it, told on the output. A process of its own, as every
// program has: to which bus it talks is settled with its first call.

namespace {

using vark::Keychain;

std::string told(const Keychain::TokenRead& read) {
    if (const auto* unreadable = std::get_if<Keychain::TokenRead::Unreadable>(&read.which()))
        return "unreadable " + std::to_string(unreadable->status);
    return read.token() ? "found " + *read.token() : "missing";
}

std::string carriedOut(vark::SecretStore& store, const std::string& operation, const std::string& argument) {
    const vark::FakeBundle bundle;
    const Keychain keychain(store, vark::AppIdentity(bundle));
    if (operation == "open") return std::to_string(store.open());
    if (operation == "add") return std::to_string(store.add({"a", "b"}, "c", argument));
    if (operation == "read")
        return told(argument.empty() ? keychain.readToken() : keychain.readToken(argument));
    if (operation == "remove") keychain.remove();
    try {
        if (operation == "write") keychain.write(argument);
    } catch (const Keychain::Failure& failure) {
        return std::to_string(failure.status());
    }
    return "0";
}

}  // namespace

int main(int count, char** arguments) {
    // Longer than any machine is slow, unless the test wants to see it run out.
    const char* patience = std::getenv("PATIENCE_MS");
    vark::SecretServiceStore store(
        std::chrono::milliseconds(patience != nullptr ? std::atoi(patience) : 60'000));
    std::cout << carriedOut(store, arguments[1], count > 2 ? arguments[2] : "");
}
