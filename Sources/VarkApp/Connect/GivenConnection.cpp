#include "VarkApp/Connect/GivenConnection.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "VarkApp/Connect/Addresses.h"
#include "VarkApp/Failure.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::app {

namespace {

constexpr std::uint64_t longestTokenFile = 64 << 10;

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// Of a file that whole processes of others could read or put there.
void requirePrivate(const std::filesystem::path& file) {
    struct stat values{};
    if (stat(file.c_str(), &values) != 0)
        throw Failure(Outcome::misuse, FileError("Could not read", file, errno).what());
    if (values.st_uid != geteuid())
        throw Failure(
            Outcome::misuse,
            fmt::format("The file {} belongs to somebody else, so its token is not used.", file.string()));
    if ((values.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        throw Failure(Outcome::misuse,
                      fmt::format("Others may read the file {}. Make it yours alone with: chmod 600 {}",
                                  file.string(), file.string()));
}

}  // namespace

std::optional<GivenConnection> GivenConnection::fromEnvironment() {
    const std::string url = variable("VARK_URL");
    const std::string file = variable("VARK_TOKEN_FILE");
    if (url.empty() && file.empty()) return std::nullopt;
    if (url.empty() || file.empty())
        throw Failure(Outcome::misuse, fmt::format("The environment has {} and no {}. Set both, or neither.",
                                                   url.empty() ? "VARK_TOKEN_FILE" : "VARK_URL",
                                                   url.empty() ? "VARK_URL" : "VARK_TOKEN_FILE"));
    requirePrivate(file);
    GivenConnection given{varkAddress(url), tokenIn(file)};
    if (const std::string authority = variable("VARK_CA_FILE"); !authority.empty())
        given.authority = authority;
    return given;
}

std::string tokenIn(const std::filesystem::path& file) {
    std::string content;
    try {
        content = readWholeFile(file, longestTokenFile);
    } catch (const FileError& error) {
        throw Failure(Outcome::misuse, fmt::format("The file of the token cannot be read. {}", error.what()));
    }
    std::string token(trimmed(std::string_view(content).substr(0, content.find('\n'))));
    if (token.empty())
        throw Failure(Outcome::misuse,
                      fmt::format("The file {} has no token in its first line. Put the token there that the "
                                  "vark gave for this machine.",
                                  file.string()));
    if (!isToken(token))
        throw Failure(Outcome::misuse,
                      fmt::format("The first line of {} is no token: a token has no blanks and plain "
                                  "characters only.",
                                  file.string()));
    return token;
}

}  // namespace vark::app
