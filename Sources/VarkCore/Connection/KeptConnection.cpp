#include "VarkCore/Connection/KeptConnection.h"

#include <fmt/format.h>

#include "VarkCore/Connection/SharedFile.h"
#include "VarkCore/Connection/SharedLevel.h"
#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Foundation/WriteProbe.h"

namespace vark {
namespace {

/// Gives whether there was one.
bool removeFile(const std::filesystem::path& path) {
    std::error_code failure;
    const bool wasThere = std::filesystem::remove(path, failure);
    if (failure) throw FileError("Could not remove", path, failure.value());
    return wasThere;
}

/// Nobody can open it from here, however often they try.
bool isOutOfReach(const Keychain::Failure& failure) {
    return failure.status() == SecretStatus::absent || failure.status() == SecretStatus::noKeyring;
}

}  // namespace

KeptConnection::NotWritten::NotWritten(const std::filesystem::path& folder)
    : std::runtime_error(fmt::format("The connection could not be written to {}. See that there is room and "
                                     "that the folder is yours, and try again.",
                                     folder.string())) {}

KeptConnection::KeptConnection(std::filesystem::path folder, const Locations& locations, MakeStore makeStore)
    : folder_(std::move(folder)), locations_(locations), makeStore_(std::move(makeStore)) {}

SecretStore& KeptConnection::store(Place place) {
    std::shared_ptr<SecretStore>& store = stores_[place];
    if (!store) store = makeStore_(place);
    return *store;
}

FileLock KeptConnection::lock() const {
    std::error_code failure;
    std::filesystem::create_directories(folder_, failure);
    if (failure) throw FileError("Could not make", folder_, failure.value());
    return FileLock::exclusive(SharedFiles::connectionLock(folder_));
}

KeptConnection::Place KeptConnection::placeOf(const SharedConnection& connection) const {
    std::error_code unreadable;
    // A record of an earlier version does not say it: there the file counted for as long as it was there.
    const bool isInFile =
        connection.tokenInFile.value_or(std::filesystem::exists(locations_.secrets(), unreadable));
    return isInFile ? Place::file : Place::keychain;
}

KeptConnection::Look KeptConnection::glance() {
    Look seen;
    seen.connection = SharedStore::read(folder_);
    if (!seen.connection) return seen;
    seen.place = placeOf(*seen.connection);
    seen.token = keychain(seen.place).readToken();
    return seen;
}

KeptConnection::Look KeptConnection::look() {
    const Look first = glance();
    if (first.belongsTogether() || first.token.isUnreadable()) return first;
    // Somebody may be in the middle of writing. Where no lock can be had, nobody writes either.
    const std::optional<FileLock> hold = SharedFile::lock(SharedFiles::connectionLock(folder_));
    const Look settled = glance();
    const bool mayBeOfEarlierVersion =
        settled.connection && settled.place == Place::keychain && settled.token.isMissing();
    if (mayBeOfEarlierVersion && keychain(Place::keychain).migrateFromLegacy()) return glance();
    return settled;
}

void KeptConnection::open(Place place) {
    proveWritable(folder_);
    const std::int32_t status = store(place).open();
    if (status != SecretStatus::done) throw Keychain::Failure(store(place), status);
}

std::optional<std::filesystem::path> KeptConnection::putDamagedSecretsAside() {
    const Keychain::TokenRead read = keychain(Place::file).readToken();
    if (read != Keychain::TokenRead(Keychain::TokenRead::Unreadable{SecretStatus::notText}))
        return std::nullopt;
    std::filesystem::path aside = locations_.damagedSecrets();
    std::error_code failure;
    std::filesystem::rename(locations_.secrets(), aside, failure);
    if (failure) throw FileError("Could not move", locations_.secrets(), failure.value());
    return aside;
}

void KeptConnection::writeRecord(const SharedConnection& connection,
                                 const std::optional<std::string>& authority) const {
    // The authority first: a connection without it would be of no use.
    if (authority) {
        writeAtomically(SharedFiles::authority(folder_), *authority, 0600);
    } else {
        removeFile(SharedFiles::authority(folder_));
    }
    if (!SharedStore::write(connection, folder_)) throw NotWritten(folder_);
}

KeptConnection::Replaced KeptConnection::replace(const SharedConnection& connection,
                                                 const std::optional<std::string>& authority) {
    const FileLock hold = lock();
    Replaced replaced;
    replaced.damagedSecrets = putDamagedSecretsAside();
    const Look before = glance();
    const bool isSameVark = before.connection && before.connection->server == connection.server;
    if (!isSameVark) removeFile(SharedFiles::connection(folder_));
    const Place place = placeOf(connection);
    const Keychain tokens = keychain(place);
    tokens.write(connection.token);
    try {
        writeRecord(connection, authority);
    } catch (const std::exception&) {
        // The old record stands, and needs the token that belongs to it.
        const bool hasTokenOfBefore = isSameVark && before.place == place && before.belongsTogether();
        if (hasTokenOfBefore) tokens.write(before.connection->token);
        throw;
    }
    if (before.connection && before.place != place) replaced.oldTokenStays = forget(before);
    return replaced;
}

bool KeptConnection::putBack(const std::string& token, const std::function<bool(const Look&)>& isStillLost) {
    const FileLock hold = lock();
    const Look now = glance();
    if (!isStillLost(now)) return false;
    keychain(now.place).write(token);
    return true;
}

/// Gives why the token may still be there. One in the keychain goes only with the connection that it is for:
/// the keychain is the person's, and the file is ours alone.
std::optional<Keychain::Failure> KeptConnection::forget(const Look& kept) {
    std::int32_t status = SecretStatus::done;
    if (kept.place == Place::file || kept.belongsTogether()) {
        status = keychain(kept.place).remove();
    } else if (const auto* unreadable = std::get_if<Keychain::TokenRead::Unreadable>(&kept.token.which())) {
        status = unreadable->status;
    }
    if (status == SecretStatus::done || status == SecretStatus::notFound) return std::nullopt;
    return Keychain::Failure(store(kept.place), status);
}

KeptConnection::Removed KeptConnection::remove() {
    const FileLock hold = lock();
    // What makes no sense may hold a token all the same.
    putDamagedSecretsAside();
    const Look before = glance();
    Removed removed;
    removed.connection = before.connection;
    if (before.connection) removed.tokenStays = forget(before);
    if (removed.tokenStays && !isOutOfReach(*removed.tokenStays)) throw *removed.tokenStays;
    // And one whose record has gone.
    const bool hadSecrets = removeFile(locations_.secrets());
    removed.hadLeftovers = removeFile(locations_.damagedSecrets()) || hadSecrets;
    removeFile(SharedFiles::connection(folder_));
    removeFile(SharedFiles::authority(folder_));
    SharedLevelStore::clear(folder_);
    return removed;
}

}  // namespace vark
