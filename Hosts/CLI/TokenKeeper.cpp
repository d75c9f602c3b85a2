#include "Hosts/CLI/TokenKeeper.h"

#include <fmt/format.h>

#include "VarkCore/SignIn/SignInRecovery.h"

namespace vark::cli {

namespace {

constexpr std::string_view connectAgain = "Connect again with: vark connect URL";

std::shared_ptr<SecretStore> makeStore(Surroundings& surroundings, TokenKeeper::Place place) {
    if (place == TokenKeeper::Place::keychain) return surroundings.platform.makeKeychain();
    return surroundings.platform.makeSecretFile(surroundings.locations().secrets());
}

}  // namespace

TokenKeeper::TokenKeeper(Surroundings& surroundings, Place place)
    : surroundings_(surroundings),
      place_(place),
      store_(makeStore(surroundings, place)),
      keychain_(*store_, surroundings.locations().identity()) {}

TokenKeeper::Place TokenKeeper::placeInUse(Surroundings& surroundings) {
    return std::filesystem::exists(surroundings.locations().secrets()) ? Place::file : Place::keychain;
}

void TokenKeeper::open() {
    const std::int32_t status = store_->open();
    if (status == SecretStatus::done) return;
    throw CommandError(
        ExitCode::notConnected,
        fmt::format("{} {}To keep the token in a file that only you can read, add: "
                    "--secret-store file",
                    sentence(status), status == SecretStatus::absent ? "" : "Open it and try again. "));
}

void TokenKeeper::keep(const std::string& token) {
    try {
        keychain_.write(token);
    } catch (const Keychain::Failure& failure) {
        throw CommandError(ExitCode::somethingFailed,
                           fmt::format("{} The token could not be kept. Try again.", failure.what()));
    }
    // While the file is there, the token in it is the one that counts.
    if (place_ == Place::keychain) std::filesystem::remove(surroundings_.locations().secrets());
}

std::string TokenKeeper::whereItIs() const {
    if (place_ == Place::keychain) return "The token is in the keychain.";
    return fmt::format("The token is in the file {}, in the clear; only you can read it.",
                       surroundings_.locations().secrets().string());
}

void TokenKeeper::require(const SharedConnection& connection) {
    Keychain::TokenRead read = keychain_.readToken();
    if (read.isMissing() && keychain_.migrateFromLegacy()) read = keychain_.readToken();
    if (const auto* unreadable = std::get_if<Keychain::TokenRead::Unreadable>(&read.which())) {
        const bool isAbsent = unreadable->status == SecretStatus::absent;
        throw CommandError(
            ExitCode::somethingFailed,
            fmt::format("{} So the token cannot be read. The connection stays as it is. {}",
                        sentence(unreadable->status),
                        isAbsent ? "Try again in a session that has one, or connect again with: vark "
                                   "connect URL --secret-store file"
                                 : "Open the keychain and try again."));
    }
    const std::optional<std::string> token = read.token();
    if (token == connection.token) return;
    // It may be the token of another vark, which this one must never see.
    if (token)
        throw CommandError(
            ExitCode::notConnected,
            fmt::format("The token that is kept is not the one of this connection. {}", connectAgain));
    takeBack(read, connection);
}

void TokenKeeper::takeBack(const Keychain::TokenRead& read, const SharedConnection& connection) {
    const SignInRecovery::Step step =
        SignInRecovery::next(read, connection, connection.server, connection.clientName);
    const auto* lost = std::get_if<SignInRecovery::VerifyThenAdopt>(&step);
    if (lost == nullptr)
        throw CommandError(ExitCode::notConnected,
                           fmt::format("The token of this connection is lost. {}", connectAgain));
    surroundings_.learn(surroundings_.await(surroundings_.api(connection)->whoami()));
    try {
        keychain_.write(lost->token);
        surroundings_.console.say("The keychain had lost the token; it has been put back.");
    } catch (const Keychain::Failure& failure) {
        surroundings_.console.say(
            fmt::format("The keychain has lost the token, and does not take it back: {}", failure.what()));
    }
}

void TokenKeeper::forget(const SharedConnection& connection) {
    const Keychain::TokenRead read = keychain_.readToken();
    if (read.token() == connection.token) keychain_.remove();
    if (const auto* unreadable = std::get_if<Keychain::TokenRead::Unreadable>(&read.which());
        unreadable != nullptr && unreadable->status != SecretStatus::absent)
        surroundings_.console.say(
            fmt::format("{} So a token may still be in it.", sentence(unreadable->status)));
}

}  // namespace vark::cli
