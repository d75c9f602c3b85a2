#include "Hosts/CLI/TokenKeeper.h"

#include <fmt/format.h>

#include "VarkCore/Policies/LocalCache.h"
#include "VarkCore/SignIn/SignInRecovery.h"

namespace vark::cli {

namespace {

using Place = KeptConnection::Place;
using Look = KeptConnection::Look;

constexpr std::string_view connectAgain = "Connect again with: vark connect URL";

KeptConnection::MakeStore storesOf(Surroundings& surroundings) {
    return [&surroundings](Place place) {
        if (place == Place::keychain) return surroundings.platform.makeKeychain();
        return surroundings.platform.makeSecretFile(surroundings.locations().secrets());
    };
}

/// What a person does about a store that would not take or give a token.
std::string_view remedy(Place place, std::int32_t status) {
    if (place == Place::file) {
        if (status == SecretStatus::notText)
            return "Connect again, which puts that file aside: vark connect URL --secret-store file";
        if (status == SecretStatus::full) return "Make room there and try again.";
        return "See that the file and its folder are yours to write, and try again.";
    }
    switch (status) {
        case SecretStatus::absent:
            return "Try again in a session that has one, or connect again with: vark connect URL "
                   "--secret-store file";
        case SecretStatus::noKeyring:
            return "Open your store of passwords and try again, or connect again, which makes a new "
                   "keyring: vark connect URL";
        case SecretStatus::notText:
            return connectAgain;
        default:
            return "Open the keychain and try again.";
    }
}

CommandError lostForGood() {
    return {ExitCode::notConnected, fmt::format("The token of this connection is lost. {}", connectAgain)};
}

}  // namespace

TokenKeeper::TokenKeeper(Surroundings& surroundings)
    : surroundings_(surroundings),
      kept_(surroundings.neededFolder(), surroundings.locations(), storesOf(surroundings)) {}

void TokenKeeper::open(Place place) {
    try {
        kept_.open(place);
    } catch (const FileError& error) {
        throw CommandError(ExitCode::somethingFailed,
                           fmt::format("The connection could not be kept on this machine. {}", error.what()));
    } catch (const Keychain::Failure& failure) {
        if (place == Place::file)
            throw CommandError(ExitCode::notConnected,
                               fmt::format("{} {}", failure.what(), remedy(place, failure.status())));
        throw CommandError(
            ExitCode::notConnected,
            fmt::format("{} {}To keep the token in a file that only you can read, add: "
                        "--secret-store file",
                        failure.what(),
                        failure.status() == SecretStatus::absent ? "" : "Open it and try again. "));
    }
}

void TokenKeeper::sweep() {
    // A file that somebody was killed in the making of may hold a token.
    LocalCache::sweep({surroundings_.neededFolder(), surroundings_.locations().storageFolder()});
}

void TokenKeeper::keep(const SharedConnection& connection, const std::optional<std::string>& authority) {
    const Place place = connection.tokenInFile.value_or(false) ? Place::file : Place::keychain;
    sweep();
    try {
        const KeptConnection::Replaced replaced = kept_.replace(connection, authority);
        if (replaced.damagedSecrets)
            surroundings_.console.say(
                fmt::format("The file of secrets made no sense. It is put aside as {}; \"vark disconnect\" "
                            "removes it.",
                            replaced.damagedSecrets->string()));
        if (replaced.oldTokenStays && replaced.oldTokenStays->status() != SecretStatus::absent)
            surroundings_.console.say(fmt::format(
                "{} So the token of the connection before may still be in it. It is used no more.",
                replaced.oldTokenStays->what()));
    } catch (const Keychain::Failure& failure) {
        throw CommandError(ExitCode::somethingFailed,
                           fmt::format("{} The token could not be kept. {}", failure.what(),
                                       remedy(place, failure.status())));
    } catch (const FileError& error) {
        throw CommandError(ExitCode::somethingFailed,
                           fmt::format("The connection could not be kept on this machine. {}", error.what()));
    } catch (const KeptConnection::NotWritten& failure) {
        throw CommandError(ExitCode::somethingFailed, failure.what());
    }
}

std::string TokenKeeper::whereItIs(Place place) const {
    if (place == Place::keychain) return "The token is in the keychain.";
    return fmt::format("The token is in the file {}, in the clear; only you can read it.",
                       surroundings_.locations().secrets().string());
}

SharedConnection TokenKeeper::require() {
    const Look kept = kept_.look();
    if (!kept.connection || !kept.connection->serverURL())
        throw CommandError(ExitCode::notConnected, "Not connected to a vark. Connect with: vark connect URL");
    if (const auto* unreadable = std::get_if<Keychain::TokenRead::Unreadable>(&kept.token.which()))
        throw CommandError(ExitCode::somethingFailed,
                           fmt::format("{} So the token cannot be read. The connection stays as it is. {}",
                                       Keychain::Failure(kept_.store(kept.place), unreadable->status).what(),
                                       remedy(kept.place, unreadable->status)));
    if (kept.belongsTogether()) return *kept.connection;
    // It may be the token of another vark, which this one must never see.
    if (kept.token.token())
        throw CommandError(
            ExitCode::notConnected,
            fmt::format("The token that is kept is not the one of this connection. {}", connectAgain));
    return takeBack(*kept.connection);
}

SharedConnection TokenKeeper::takeBack(const SharedConnection& lost) {
    if (lost.token.empty()) throw lostForGood();
    // This very token is proved, and no other one is kept, whatever the record says by then.
    const std::shared_ptr<VarkAPI> api = surroundings_.platform.makeAPI(
        surroundings_.addressOf(lost), [token = lost.token] { return token; }, surroundings_.apiHost());
    const WhoAmI who = surroundings_.await(api->whoami());
    const std::string client = who.client.empty() ? lost.clientName : who.client;
    const SignInRecovery::Step proved = SignInRecovery::VerifyThenAdopt{lost.token};
    const auto isStillLost = [&](const Look& now) {
        return SignInRecovery::next(now.token, now.connection, lost.server, client) == proved;
    };
    try {
        if (kept_.putBack(lost.token, isStillLost)) {
            surroundings_.console.say("The token had been lost from where it is kept; it has been put back.");
        } else {
            // Somebody has connected again in the meantime.
            const Look now = kept_.look();
            if (!now.belongsTogether()) throw lostForGood();
            return *now.connection;
        }
    } catch (const Keychain::Failure& failure) {
        surroundings_.console.say(fmt::format(
            "The token has been lost from where it is kept, and cannot be put back. {}", failure.what()));
    } catch (const FileError& error) {
        surroundings_.console.say(fmt::format(
            "The token has been lost from where it is kept, and cannot be put back. {}", error.what()));
    }
    surroundings_.learn(who);
    return lost;
}

KeptConnection::Removed TokenKeeper::forget() {
    sweep();
    try {
        KeptConnection::Removed removed = kept_.remove();
        if (removed.tokenStays)
            throw CommandError(
                ExitCode::somethingFailed,
                fmt::format("The connection to {} is given up. {} If the token is in one that this session "
                            "does not see, it is still there: remove \"Vark device token\" with your "
                            "manager of passwords.",
                            removed.connection->server, removed.tokenStays->what()));
        return removed;
    } catch (const Keychain::Failure& failure) {
        const Place place = kept_.look().place;
        throw CommandError(ExitCode::somethingFailed,
                           fmt::format("{} So the token in it cannot be removed, and this machine is still "
                                       "connected. {}",
                                       failure.what(), remedy(place, failure.status())));
    } catch (const FileError& error) {
        throw CommandError(
            ExitCode::somethingFailed,
            fmt::format("{} So not all of the connection could be removed. Try again when that is mended.",
                        error.what()));
    }
}

}  // namespace vark::cli
