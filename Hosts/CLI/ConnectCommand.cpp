#include <cstdlib>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/Identity.h"
#include "Hosts/CLI/SignIn.h"
#include "Hosts/CLI/TokenKeeper.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Sentence.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr std::uint64_t longestTokenFile = 64 << 10;
constexpr std::uint64_t longestAuthorityFile = 1 << 20;

struct ConnectOptions {
    std::string url;
    std::string code;
    std::string tokenFile;
    std::string secretStore;
    std::string authorityFile;
    std::string root;
    std::vector<std::string> only;
    bool json = false;
};

std::string readArgumentFile(const std::string& path, std::string_view what, std::uint64_t limit) {
    try {
        return readWholeFile(path, limit);
    } catch (const FileError& error) {
        throw CommandError(ExitCode::usage,
                           fmt::format("The file of {} cannot be read. {}", what, error.what()));
    }
}

std::string readToken(const std::string& path) {
    std::string content = readArgumentFile(path, "the token", longestTokenFile);
    std::string token(trimmed(std::string_view(content).substr(0, content.find('\n'))));
    if (token.empty())
        throw CommandError(
            ExitCode::usage,
            fmt::format("The file {} has no token in its first line. Put the token there that the "
                        "vark gave for this machine.",
                        path));
    if (!isToken(token))
        throw CommandError(ExitCode::usage,
                           fmt::format("The first line of {} is no token: a token has no blanks and plain "
                                       "characters only.",
                                       path));
    return token;
}

std::string readAuthority(const std::string& path) {
    std::string content = readArgumentFile(path, "the authority", longestAuthorityFile);
    if (!content.contains("-----BEGIN CERTIFICATE-----"))
        throw CommandError(
            ExitCode::usage,
            fmt::format("The file {} holds no certificate. Give the vark's authority in PEM form.", path));
    return content;
}

/// The address of a vark as a person gives it, without a slash at its end.
URL readAddress(const std::string& text) {
    // Never shown: a password may stand in it.
    if (text.contains('@'))
        throw CommandError(ExitCode::usage,
                           "The address holds a name or a password (there is an \"@\" in it). The vark knows "
                           "this machine by a token: give the address alone, like https://vark.example.com");
    std::string address = text.contains("://") ? text : "https://" + text;
    while (address.ends_with('/'))
        address.pop_back();
    std::optional<URL> url = URL::parse(address);
    if (!url || url->host().empty())
        throw CommandError(ExitCode::usage, fmt::format("{} is no address of a vark. Give one like "
                                                        "https://vark.example.com",
                                                        text));
    if (!isSafeAddress(*url))
        throw CommandError(ExitCode::usage,
                           "A token is sent through https only. Give an address that begins with "
                           "https://");
    if (!url->path().empty() || address.contains('?') || address.contains('#'))
        throw CommandError(ExitCode::usage,
                           fmt::format("{} is a page, and no address of a vark. Give what stands before the "
                                       "path, like https://vark.example.com; to work below one folder of the "
                                       "vark, add: --root FOLDER",
                                       text));
    return *url;
}

KeptConnection::Place readPlace(const std::string& chosen) {
    // The person's settings count for `connect` alone, so they are read here, and their mistake is named so.
    const char* setting = std::getenv("VARK_SECRET_STORE");
    const bool isSetting = chosen.empty() && setting != nullptr && *setting != '\0';
    const std::string place = isSetting ? setting : chosen;
    if (place.empty() || place == "keychain") return KeptConnection::Place::keychain;
    if (place == "file") return KeptConnection::Place::file;
    throw CommandError(ExitCode::usage,
                       fmt::format("VARK_SECRET_STORE in the environment is \"{}\". Set it to keychain or to "
                                   "file, or unset it.",
                                   place));
}

/// The top-level folders that alone are to be shown; nothing for all of them.
std::optional<std::vector<std::string>> readFolders(const std::vector<std::string>& only) {
    if (only.empty()) return std::nullopt;
    std::vector<std::string> names;
    for (const std::string& folder : only) {
        names.push_back(tidiedVarkPath(folder));
        if (names.back().empty() || names.back().contains('/'))
            throw CommandError(ExitCode::usage,
                               fmt::format("\"{}\" is no name of a folder at the top. Give names without "
                                           "slashes with --only, and what lies deeper with --root.",
                                           folder));
    }
    return names;
}

CommandError cannotConnect(const URL& url, const VarkAPIError& error, bool provesItself) {
    const std::string said = asSentence(error.errorDescription());
    if (error.isSignOut())
        return {
            ExitCode::notConnected,
            fmt::format("{} did not accept the token: {} Get a new one and try again.", url.text(), said)};
    if (!provesItself)
        return {
            ExitCode::notConnected,
            fmt::format("{} is not trusted by this machine: its certificate comes from an authority that is "
                        "not known here. If the vark has one of its own, give its file with --ca-file.",
                        url.text())};
    if (error.isRetryable() && std::holds_alternative<VarkAPIError::Server>(error.which()))
        return {
            ExitCode::notConnected,
            fmt::format("{} does not take this just now: {} Wait a moment and try again.", url.text(), said)};
    return {
        ExitCode::notConnected,
        fmt::format("{} could not be used as a vark: {} Check the address and the network, and try again.",
                    url.text(), said)};
}

/// What the first calls to an address give, with failures told as the address's. Fails with a
/// `CommandError`.
template <class Calls>
auto reaching(Surroundings& surroundings, const VarkAddress& address, Calls calls) {
    try {
        return calls();
    } catch (const VarkAPIError& error) {
        static const VarkAPIError timedOut =
            VarkAPIError::transport(describeURLError(HTTPError(HTTPError::timedOut, "")));
        // Only a connection that failed can have failed for the certificate, and who has waited once for
        // nothing does not wait again.
        const bool mayBeUntrusted =
            std::holds_alternative<VarkAPIError::Transport>(error.which()) && error != timedOut;
        const bool provesItself =
            !mayBeUntrusted || surroundings.await(surroundings.platform.provesItself(address));
        throw cannotConnect(address.url, error, provesItself);
    }
}

/// The item of a folder that the person named with `option`; 0 for the whole of a vark that has none for
/// that.
std::int64_t findFolder(Surroundings& surroundings, VarkAPI& api, const std::string& path,
                        std::string_view option) {
    try {
        VarkItem item = surroundings.await(api.item(path));
        if (item.isDir || path.empty()) return item.id;
        throw CommandError(ExitCode::usage,
                           fmt::format("\"{}\" is a file on the vark. Give a folder with {}.", path, option));
    } catch (const VarkAPIError& error) {
        if (!error.isGone()) throw;
        if (path.empty()) return 0;
        throw CommandError(
            ExitCode::usage,
            fmt::format("There is no folder \"{}\" on the vark. Look at what there is with: vark "
                        "ls, after connecting without {}.",
                        path, option));
    }
}

std::shared_ptr<VarkAPI> apiWith(Surroundings& surroundings, const VarkAddress& address,
                                 std::optional<std::string> token) {
    return surroundings.platform.makeAPI(address, [token] { return token; }, surroundings.apiHost());
}

/// The token in the way that the person chose, and what came with it.
DeviceClaim signIn(Surroundings& surroundings, const VarkAddress& address, const ConnectOptions& options) {
    if (!options.tokenFile.empty()) return {.token = readToken(options.tokenFile)};
    const std::shared_ptr<VarkAPI> api = apiWith(surroundings, address, std::nullopt);
    DeviceClaim claim = reaching(surroundings, address, [&] {
        return options.code.empty() ? signInInBrowser(surroundings, *api, address.url)
                                    : signInWithCode(surroundings, *api, options.code);
    });
    if (isToken(claim.token)) return claim;
    throw CommandError(ExitCode::somethingFailed, "The vark gave this machine a token that cannot be used.");
}

ExitCode connect(Surroundings& surroundings, const ConnectOptions& options) {
    std::optional<std::string> authority;
    VarkAddress address{readAddress(options.url), std::nullopt};
    if (!options.authorityFile.empty()) {
        authority = readAuthority(options.authorityFile);
        address.authority = options.authorityFile;
    }
    const KeptConnection::Place place = readPlace(options.secretStore);
    SharedConnection connection;
    connection.folders = readFolders(options.only);
    TokenKeeper keeper(surroundings);
    // Before anybody signs in: a code is good for one time.
    keeper.open(place);

    const DeviceClaim claim = signIn(surroundings, address, options);
    const std::shared_ptr<VarkAPI> api = apiWith(surroundings, address, claim.token);
    const WhoAmI who = reaching(surroundings, address, [&] { return surroundings.await(api->whoami()); });
    connection.server = address.url.text();
    connection.token = claim.token;
    connection.clientName = who.client.empty() ? claim.clientName : who.client;
    connection.rootPath = tidiedVarkPath(options.root);
    connection.rootID = findFolder(surroundings, *api, connection.rootPath, "--root");
    for (const std::string& folder : connection.folders.value_or(std::vector<std::string>()))
        findFolder(surroundings, *api, joinedVarkPath(connection.rootPath, folder), "--only");
    connection.level = who.level;
    connection.tokenInFile = place == KeptConnection::Place::file;
    keeper.keep(connection, authority);
    surroundings.learn(who);
    if (!options.json) surroundings.console.print("Connected.");
    printIdentity(surroundings.console, connection, who, options.json);
    surroundings.console.say(keeper.whereItIs(place));
    return ExitCode::allLanded;
}

}  // namespace

void declareConnect(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<ConnectOptions>();
    CLI::App& command =
        addCommand(program, chosen, "connect", "Connect this machine to a vark", options, connect);
    command.add_option("URL", options->url, "Where the vark is, like https://vark.example.com")->required();
    CLI::Option* code =
        command
            .add_option("--code", options->code, "A code from Settings in the portal, instead of the browser")
            ->type_name("CODE");
    command
        .add_option("--token-file", options->tokenFile,
                    "A file whose first line is the device token, instead of the browser")
        ->type_name("FILE")
        ->excludes(code);
    command
        .add_option("--secret-store", options->secretStore,
                    "Where the token is kept: in the keychain, or in a file that only you can read "
                    "(environment: VARK_SECRET_STORE)")
        ->type_name("keychain|file")
        ->check(CLI::IsMember({"keychain", "file"}).description(""));
    command
        .add_option("--ca-file", options->authorityFile, "The authority of a vark that has one of its own")
        ->type_name("FILE");
    command.add_option("--root", options->root, "The folder of the vark to work below")->type_name("FOLDER");
    command
        .add_option("--only", options->only,
                    "The folders at the top that are to be shown; without it all are")
        ->type_name("FOLDER");
    addJSON(command, options->json);
}

}  // namespace vark::cli
