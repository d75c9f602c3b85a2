#pragma once

#include <memory>

#include "Hosts/CLI/Surroundings.h"
#include "VarkCore/Connection/Keychain.h"

namespace vark::cli {

/// The device's token where it is kept: in the desktop's keychain, or in a file of the storage folder for
/// whom that was chosen. Used by one command at a time, on the main thread.
class TokenKeeper {
  public:
    enum class Place { keychain, file };

    TokenKeeper(Surroundings& surroundings, Place place);
    /// Where the token of the connection lies.
    static Place placeInUse(Surroundings& surroundings);
    Place place() const { return place_; }

    /// Makes ready to keep a token, which may ask the person to open the keychain. Fails with a
    /// `CommandError`.
    void open();
    /// Fails with a `CommandError`.
    void keep(const std::string& token);
    /// Where the token lies now, for the person.
    std::string whereItIs() const;

    /// Whether the token of the connection is at hand. One that was lost is taken back from the record, once
    /// the vark has accepted it. Fails with a `CommandError`, and with `VarkAPIError` when the vark does not.
    void require(const SharedConnection& connection);
    /// Forgets the token of a connection that is given up, and no other one.
    void forget(const SharedConnection& connection);

  private:
    std::string sentence(std::int32_t status) const { return Keychain::Failure(*store_, status).what(); }
    void takeBack(const Keychain::TokenRead& read, const SharedConnection& connection);

    Surroundings& surroundings_;
    const Place place_;
    const std::shared_ptr<SecretStore> store_;
    const Keychain keychain_;
};

}  // namespace vark::cli
