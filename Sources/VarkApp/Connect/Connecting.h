#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "VarkApp/Connect/SigningIn.h"
#include "VarkApp/Connect/TokenKeeper.h"

namespace vark::app {

/// What a person chose for a connection. A value.
struct ConnectWish {
    URL address;
    /// A certificate in PEM, beside what this machine trusts.
    std::optional<std::filesystem::path> authority{};
    /// Without a token and a code the person signs in with the browser.
    std::optional<std::string> token{};
    std::optional<std::string> code{};
    KeptConnection::Place place = KeptConnection::Place::keychain;
    /// The folder of the vark to work below.
    std::string rootPath{};
    /// The folders at the top that alone are shown.
    std::optional<std::vector<std::string>> folders{};
};

struct Connected {
    SharedConnection connection;
    WhoAmI who;
    /// What the person should know of it.
    std::vector<Said> notes;
    std::string whereTheTokenIs;
};

/// Connects this machine: proves that the connection can be kept, signs in, looks at what was chosen, and
/// only then keeps token and record. Fails with a `Failure`, and with `VarkAPIError` of a vark that stopped
/// to answer on the way. `surroundings` and `page` outlive the task.
Task<Connected> connect(Surroundings& surroundings, ConnectWish wish, SignInPage& page);

/// Leaves: see `TokenKeeper::forget`.
Task<KeptConnection::Removed> leave(Surroundings& surroundings);

}  // namespace vark::app
