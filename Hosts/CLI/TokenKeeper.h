#pragma once

#include "Hosts/CLI/Surroundings.h"
#include "VarkCore/Connection/KeptConnection.h"

namespace vark::cli {

/// The connection as it is kept, with what goes wrong about it in words that say what to do next. Used by one
/// command at a time, on the main thread.
class TokenKeeper {
  public:
    using Place = KeptConnection::Place;

    /// Fails with a `CommandError` when this program has no folder for a connection.
    explicit TokenKeeper(Surroundings& surroundings);

    /// Makes ready to keep a connection, which may ask the person to open the keychain. Fails with a
    /// `CommandError`.
    void open(Place place);
    /// Instead of the one before. Fails with a `CommandError`.
    void keep(const SharedConnection& connection, const std::optional<std::string>& authority);
    /// Where the token lies now, for the person.
    std::string whereItIs(Place place) const;

    /// The connection, with its token at hand. One that was lost is taken back from the record, once the vark
    /// has accepted it. Fails with a `CommandError`, and with `VarkAPIError` when the vark does not.
    SharedConnection require();
    /// Gives the connection up. Gives what there was, and fails with a `CommandError` when something of it
    /// may still be there.
    KeptConnection::Removed forget();

  private:
    void sweep();
    SharedConnection takeBack(const SharedConnection& lost);

    Surroundings& surroundings_;
    KeptConnection kept_;
};

}  // namespace vark::cli
