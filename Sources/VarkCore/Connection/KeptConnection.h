#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "VarkCore/Connection/Keychain.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedConnection.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {

/// The connection of this machine as it is kept: the record in the folder that our processes share, and the
/// device's token in the keychain or in a file of secrets.
///
/// It is the one writer of both, and writes them under one lock of all processes: whoever has the lock sees a
/// token and a record that belong together, or two that nobody is about to bring together. Without the lock a
/// reader may see one of them old and the other one new, so `look` looks again before it says that they
/// differ.
///
/// Used by one command at a time, on one thread. Its calls block, as those of the stores do and for the lock.
class KeptConnection {
  public:
    enum class Place { keychain, file };
    using MakeStore = std::function<std::shared_ptr<SecretStore>(Place)>;

    /// The record could not be written; with a finished sentence.
    class NotWritten : public std::runtime_error {
      public:
        explicit NotWritten(const std::filesystem::path& folder);
    };

    /// What lay there at one moment. Without a record no store is asked for a token.
    struct Look {
        std::optional<SharedConnection> connection{};
        Place place = Place::keychain;
        Keychain::TokenRead token = Keychain::TokenRead::Missing{};

        bool belongsTogether() const { return connection && token.token() == connection->token; }
    };

    /// `locations` outlives it. A store is made when it is first needed.
    KeptConnection(std::filesystem::path folder, const Locations& locations, MakeStore makeStore);

    SecretStore& store(Place place);

    /// What is kept. A token of an earlier version of this program is carried over on the way.
    Look look();

    /// Makes sure that a connection can be kept: the one call that may ask the person something. Fails with
    /// `FileError`, and with `Keychain::Failure` when the store is the reason.
    void open(Place place);

    struct Replaced {
        /// Where a file of secrets that made no sense lies now.
        std::optional<std::filesystem::path> damagedSecrets{};
        /// Why the token of the connection before may still lie where it was.
        std::optional<Keychain::Failure> oldTokenStays{};
    };
    /// Keeps this connection instead of the one before, its token where the record says. At no moment a token
    /// stands beside a vark that it is not for. Fails with `Keychain::Failure`, `FileError` and `NotWritten`;
    /// a connection to the same vark is then what it was.
    Replaced replace(const SharedConnection& connection, const std::optional<std::string>& authority);

    /// Writes a lost token to where it belongs, if `isStillLost` says yes to what lies there by now. Gives
    /// whether it did. Fails with `FileError` and `Keychain::Failure`.
    bool putBack(const std::string& token, const std::function<bool(const Look&)>& isStillLost);

    struct Removed {
        std::optional<SharedConnection> connection{};
        /// Why the token may still lie where it was: nothing that answers keeps it. It is used no more.
        std::optional<Keychain::Failure> tokenStays{};
        /// A file of secrets that belonged to no connection.
        bool hadLeftovers = false;
    };
    /// Removes record and token, the token first. Fails with `Keychain::Failure` when a store would not give
    /// the token up, and then nothing has changed, and with `FileError`.
    Removed remove();

  private:
    Look glance();
    Place placeOf(const SharedConnection& connection) const;
    Keychain keychain(Place place) { return {store(place), locations_.identity()}; }
    FileLock lock() const;
    std::optional<std::filesystem::path> putDamagedSecretsAside();
    void writeRecord(const SharedConnection& connection, const std::optional<std::string>& authority) const;
    std::optional<Keychain::Failure> forget(const Look& kept);

    const std::filesystem::path folder_;
    const Locations& locations_;
    const MakeStore makeStore_;
    std::map<Place, std::shared_ptr<SecretStore>> stores_;
};

}  // namespace vark
