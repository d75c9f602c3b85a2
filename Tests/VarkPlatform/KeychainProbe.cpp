#include <fmt/format.h>

#include <cstdlib>

#include "Tests/Support/FakeSystem.h"
#include "VarkCore/Connection/Keychain.h"
#include "VarkPlatform/Linux/SecretServiceStore.h"

// One operation on the keychain of the session around it, told on the output. A process of its own, as every
// program has: to which bus it talks is settled with its first call.

namespace vark {
namespace {

std::string tell(const Keychain::TokenRead& read) {
    if (const auto* unreadable = std::get_if<Keychain::TokenRead::Unreadable>(&read.which()))
        return fmt::format("unreadable {}", unreadable->status);
    const std::optional<std::string> token = read.token();
    return token ? "found " + *token : "missing";
}

std::string carryOut(SecretStore& store, const std::string& operation, const std::string& argument) {
    FakeBundle bundle;
    const Keychain keychain(store, AppIdentity(bundle));
    if (operation == "open") return fmt::format("{}", store.open());
    if (operation == "add") return fmt::format("{}", store.add({"a", "b"}, "c", argument));
    if (operation == "read")
        return tell(argument.empty() ? keychain.readToken() : keychain.readToken(argument));
    if (operation == "migrate") return keychain.migrateFromLegacy() ? "moved" : "left";
    if (operation == "remove") keychain.remove();
    if (operation == "write") {
        try {
            keychain.write(argument);
        } catch (const Keychain::Failure& failure) {
            return fmt::format("{}", failure.status());
        }
    }
    return "0";
}

}  // namespace
}  // namespace vark

int main(int count, char** arguments) {
    // Longer than any machine is slow, unless the test wants to see it run out.
    const char* patience = std::getenv("PATIENCE_MS");
    vark::SecretServiceStore store(
        std::chrono::milliseconds(patience != nullptr ? std::atoi(patience) : 60'000));
    fmt::print("{}", vark::carryOut(store, arguments[1], count > 2 ? arguments[2] : ""));
    return 0;
}
