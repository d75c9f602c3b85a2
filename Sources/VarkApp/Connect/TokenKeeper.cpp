#include "VarkApp/Connect/TokenKeeper.h"

#include <fmt/format.h>

#include "VarkCore/Policies/LocalCache.h"
#include "VarkCore/SignIn/SignInRecovery.h"

namespace vark::app {

namespace {

using Place = KeptConnection::Place;
using Look = KeptConnection::Look;
using Step = Next::Step;

KeptConnection::MakeStore storesOf(Surroundings& surroundings) {
    return [&platform = surroundings.platform, secrets = surroundings.locations().secrets()](Place place) {
        return place == Place::keychain ? platform.makeKeychain() : platform.makeSecretFile(secrets);
    };
}

/// What went wrong, with what a person does about a store that would not take or give a token.
Said withRemedy(std::string text, Place place, std::int32_t status) {
    if (place == Place::file) {
        if (status == SecretStatus::notText)
            return {std::move(text), {{Step::useAFile, "Connect again, which puts that file aside:"}}};
        if (status == SecretStatus::full) return text + " Make room there and try again.";
        return text + " See that the file and its folder are yours to write, and try again.";
    }
    switch (status) {
        case SecretStatus::absent:
            return {std::move(text),
                    {{Step::useAFile, "Try again in a session that has one, or connect again"}}};
        case SecretStatus::noKeyring:
            return {std::move(text),
                    {{Step::openKeychain, "Open your store of passwords and try again,"},
                     {Step::connectAgain, "or connect again, which makes a new keyring:"}}};
        case SecretStatus::notText:
            return {std::move(text), {{Step::connectAgain}}};
        default:
            return {std::move(text), {{Step::openKeychain}}};
    }
}

Failure lostForGood() {
    return {Outcome::notConnected, {"The token of this connection is lost.", {{Step::connectAgain}}}};
}

Failure notKept(const FileError& error) {
    return {Outcome::failed,
            fmt::format("The connection could not be kept on this machine. {}", error.what())};
}

}  // namespace

TokenKeeper::TokenKeeper(Surroundings& surroundings)
    : surroundings_(surroundings),
      folder_(surroundings.neededFolder()),
      locations_(surroundings.locations()),
      kept_(folder_, locations_, storesOf(surroundings)) {}

Task<void> TokenKeeper::open(Place place) {
    co_await surroundings_.pool().run([this, place] { openNow(place); });
}

Task<std::vector<Said>> TokenKeeper::keep(SharedConnection connection, std::optional<std::string> authority) {
    co_return co_await surroundings_.pool().run([&] { return keepNow(connection, authority); });
}

Task<KeptConnection::Removed> TokenKeeper::forget() {
    co_return co_await surroundings_.pool().run([this] { return forgetNow(); });
}

Task<TokenKeeper::Required> TokenKeeper::require() {
    SharedConnection lost;
    std::optional<SharedConnection> kept =
        co_await surroundings_.pool().run([&] { return requireNow(lost); });
    if (kept) co_return Required{*std::move(kept)};
    co_return co_await takeBack(std::move(lost));
}

Task<TokenKeeper::Required> TokenKeeper::takeBack(SharedConnection lost) {
    // This very token is proved, and no other one is kept, whatever the record says by then.
    const std::shared_ptr<VarkAPI> api = surroundings_.platform.makeAPI(
        surroundings_.addressOf(lost), [token = lost.token] { return token; }, surroundings_.apiHost());
    const WhoAmI who = co_await api->whoami();
    const std::string client = who.client.empty() ? lost.clientName : who.client;
    Required required = co_await surroundings_.pool().run([&] { return putBack(lost, client); });
    if (required.connection.token == lost.token) surroundings_.learn(who);
    co_return required;
}

void TokenKeeper::openNow(Place place) {
    try {
        kept_.open(place);
    } catch (const FileError& error) {
        throw notKept(error);
    } catch (const Keychain::Failure& failure) {
        if (place == Place::file)
            throw Failure(Outcome::notConnected, withRemedy(failure.what(), place, failure.status()));
        std::vector<Next> next;
        if (failure.status() != SecretStatus::absent)
            next.push_back({Step::openKeychain, "Open it and try again."});
        next.push_back({Step::useAFile});
        throw Failure(Outcome::notConnected, Said(failure.what(), std::move(next)));
    }
}

void TokenKeeper::sweep() const {
    // A file that somebody was killed in the making of may hold a token.
    LocalCache::sweep({folder_, locations_.storageFolder()});
}

std::vector<Said> TokenKeeper::keepNow(const SharedConnection& connection,
                                       const std::optional<std::string>& authority) {
    const Place place = connection.tokenInFile.value_or(false) ? Place::file : Place::keychain;
    sweep();
    std::vector<Said> notes;
    try {
        const KeptConnection::Replaced replaced = kept_.replace(connection, authority);
        if (replaced.damagedSecrets)
            notes.emplace_back(
                fmt::format("The file of secrets made no sense. It is put aside as {}; disconnecting removes "
                            "it.",
                            replaced.damagedSecrets->string()));
        if (replaced.oldTokenStays && replaced.oldTokenStays->status() != SecretStatus::absent)
            notes.emplace_back(fmt::format(
                "{} So the token of the connection before may still be in it. It is used no more.",
                replaced.oldTokenStays->what()));
    } catch (const Keychain::Failure& failure) {
        throw Failure(Outcome::failed,
                      withRemedy(fmt::format("{} The token could not be kept.", failure.what()), place,
                                 failure.status()));
    } catch (const FileError& error) {
        throw notKept(error);
    } catch (const KeptConnection::NotWritten& failure) {
        throw Failure(Outcome::failed, failure.what());
    }
    return notes;
}

std::string TokenKeeper::whereItIs(Place place) const {
    if (place == Place::keychain) return "The token is in the keychain.";
    return fmt::format("The token is in the file {}, in the clear; only you can read it.",
                       locations_.secrets().string());
}

std::optional<SharedConnection> TokenKeeper::requireNow(SharedConnection& lost) {
    const Look kept = kept_.look();
    if (!kept.connection || !kept.connection->serverURL())
        throw Failure(Outcome::notConnected, {"Not connected to a vark.", {{Step::connectAgain, "Connect"}}});
    if (const auto* unreadable = std::get_if<Keychain::TokenRead::Unreadable>(&kept.token.which()))
        throw Failure(
            Outcome::failed,
            withRemedy(fmt::format("{} So the token cannot be read. The connection stays as it is.",
                                   Keychain::Failure(kept_.store(kept.place), unreadable->status).what()),
                       kept.place, unreadable->status));
    if (kept.belongsTogether()) return kept.connection;
    // It may be the token of another vark, which this one must never see.
    if (kept.token.token())
        throw Failure(Outcome::notConnected,
                      {"The token that is kept is not the one of this connection.", {{Step::connectAgain}}});
    lost = *kept.connection;
    if (lost.token.empty()) throw lostForGood();
    return std::nullopt;
}

TokenKeeper::Required TokenKeeper::putBack(const SharedConnection& lost, const std::string& client) {
    const SignInRecovery::Step proved = SignInRecovery::VerifyThenAdopt{lost.token};
    const auto isStillLost = [&](const Look& now) {
        return SignInRecovery::next(now.token, now.connection, lost.server, client) == proved;
    };
    std::string why;
    try {
        if (kept_.putBack(lost.token, isStillLost))
            return {lost, {"The token had been lost from where it is kept; it has been put back."}};
        // Somebody has connected again in the meantime.
        const Look now = kept_.look();
        if (!now.belongsTogether()) throw lostForGood();
        return {*now.connection};
    } catch (const Keychain::Failure& failure) {
        why = failure.what();
    } catch (const FileError& error) {
        why = error.what();
    }
    return {lost,
            {fmt::format("The token has been lost from where it is kept, and cannot be put back. {}", why)}};
}

KeptConnection::Removed TokenKeeper::forgetNow() {
    sweep();
    try {
        KeptConnection::Removed removed = kept_.remove();
        if (removed.tokenStays)
            throw Failure(
                Outcome::failed,
                fmt::format("The connection to {} is given up. {} If the token is in one that this session "
                            "does not see, it is still there: remove \"Vark device token\" with your "
                            "manager of passwords.",
                            removed.connection->server, removed.tokenStays->what()));
        return removed;
    } catch (const Keychain::Failure& failure) {
        const Place place = kept_.look().place;
        throw Failure(Outcome::failed,
                      withRemedy(fmt::format("{} So the token in it cannot be removed, and this machine is "
                                             "still connected.",
                                             failure.what()),
                                 place, failure.status()));
    } catch (const FileError& error) {
        throw Failure(
            Outcome::failed,
            fmt::format("{} So not all of the connection could be removed. Try again when that is mended.",
                        error.what()));
    }
}

}  // namespace vark::app
