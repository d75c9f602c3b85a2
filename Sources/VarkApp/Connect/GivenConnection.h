#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "VarkCore/Foundation/URL.h"

namespace vark::app {

/// A connection that somebody gives to one run of a program, in place of the one that this machine keeps: for
/// scripts. A value.
struct GivenConnection {
    URL server;
    std::string token;
    std::optional<std::filesystem::path> authority{};
    /// As the vark says it: a queue is for one client. Empty until it has been asked.
    std::string clientName{};

    /// What the environment says with VARK_URL, VARK_TOKEN_FILE and, for a vark with an authority of its own,
    /// VARK_CA_FILE. Nothing without them. Fails with a `Failure` when one of the first two is missing, or
    /// the file of the token is not the person's own and private.
    static std::optional<GivenConnection> fromEnvironment();
};

/// The token in the first line of a file. Fails with a `Failure`.
std::string tokenIn(const std::filesystem::path& file);

}  // namespace vark::app
