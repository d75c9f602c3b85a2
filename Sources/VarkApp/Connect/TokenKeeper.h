#pragma once

#include "VarkApp/Surroundings.h"
#include "VarkCore/Connection/KeptConnection.h"

namespace vark::app {

/// The connection as it is kept, with what goes wrong about it in words that say what to do next. Stores of
/// secrets are asked on the pool, since one may take seconds. One task at a time uses it, and ends before it.
class TokenKeeper {
  public:
    using Place = KeptConnection::Place;

    /// Fails with a `Failure` when this program has no folder for a connection.
    explicit TokenKeeper(Surroundings& surroundings);

    /// Makes ready to keep a connection, which may ask the person to open the keychain. Fails with a
    /// `Failure`.
    Task<void> open(Place place);
    /// Instead of the one before. Gives what the person should know of it. Fails with a `Failure`.
    Task<std::vector<Said>> keep(SharedConnection connection, std::optional<std::string> authority);
    /// Where the token lies now, for the person.
    std::string whereItIs(Place place) const;

    struct Required {
        SharedConnection connection;
        /// What the person should know of it.
        std::vector<Said> notes{};
    };
    /// The connection, with its token at hand. One that was lost is taken back from the record, once the vark
    /// has accepted it. Fails with a `Failure`, and with `VarkAPIError` when the vark does not.
    Task<Required> require();
    /// Gives the connection up. Gives what there was, and fails with a `Failure` when something of it may
    /// still be there.
    Task<KeptConnection::Removed> forget();

  private:
    // On the pool.
    void openNow(Place place);
    std::vector<Said> keepNow(const SharedConnection& connection,
                              const std::optional<std::string>& authority);
    KeptConnection::Removed forgetNow();
    void sweep() const;
    /// Nothing when the token was lost.
    std::optional<SharedConnection> requireNow(SharedConnection& lost);
    Required putBack(const SharedConnection& lost, const std::string& client);

    Task<Required> takeBack(SharedConnection lost);

    Surroundings& surroundings_;
    const std::filesystem::path folder_;
    const Locations& locations_;
    KeptConnection kept_;
};

}  // namespace vark::app
