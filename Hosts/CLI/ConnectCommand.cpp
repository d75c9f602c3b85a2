#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/Identity.h"
#include "Hosts/CLI/SignIn.h"
#include "Hosts/CLI/TokenKeeper.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr std::uint64_t longestTokenFile = 64 << 10;
constexpr std::uint64_t longestAuthorityFile = 1 << 20;

struct ConnectOptions {
    std::string url;
    std::string code;
    std::string tokenFile;
    std::string secretStore = "keychain";
    std::string authorityFile;
    std::string root;
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
    return *url;
}

CommandError cannotConnect(const URL& url, const VarkAPIError& error, bool provesItself) {
    if (error.isSignOut())
        return {ExitCode::notConnected,
                fmt::format("{} did not accept the token: {} Get a new one and try again.", url.text(),
                            error.errorDescription())};
    if (!provesItself)
        return {
            ExitCode::notConnected,
            fmt::format("{} is not trusted by this machine: its certificate comes from an authority that is "
                        "not known here. If the vark has one of its own, give its file with --ca-file.",
                        url.text())};
    return {
        ExitCode::notConnected,
        fmt::format("{} could not be used as a vark: {} Check the address and the network, and try again.",
                    url.text(), error.errorDescription())};
}

/// What the first calls to an address give, with failures told as the address's. Fails with a
/// `CommandError`.
template <class Calls>
auto reaching(Surroundings& surroundings, const VarkAddress& address, Calls calls) {
    try {
        return calls();
    } catch (const VarkAPIError& error) {
        const bool provesItself =
            error.isSignOut() || surroundings.await(surroundings.platform.provesItself(address));
        throw cannotConnect(address.url, error, provesItself);
    }
}

/// The item at which the connection is to be rooted; 0 for the whole of a vark that has none for that.
std::int64_t findRoot(Surroundings& surroundings, VarkAPI& api, const std::string& rootPath) {
    try {
        VarkItem item = surroundings.await(api.item(rootPath));
        if (item.isDir || rootPath.empty()) return item.id;
        throw CommandError(ExitCode::usage,
                           fmt::format("\"{}\" is a file on the vark. Give a folder with --root.", rootPath));
    } catch (const VarkAPIError& error) {
        if (!error.isGone()) throw;
        if (rootPath.empty()) return 0;
        throw CommandError(
            ExitCode::usage,
            fmt::format("There is no folder \"{}\" on the vark. Look at what there is with: vark "
                        "ls, after connecting without --root.",
                        rootPath));
    }
}

/// The folder for the connection. Fails with a `CommandError` when this program has none.
const std::filesystem::path& neededFolder(Surroundings& surroundings) {
    const SharedStore::Folder& folder = surroundings.sharedFolder();
    if (folder) return *folder;
    throw CommandError(ExitCode::somethingFailed,
                       "This program has no shared folder, since no bundle is around it. Run the vark in "
                       "Vark.app.");
}

/// Both files, the authority first: a connection without it would be of no use.
void writeConnection(const std::filesystem::path& folder, const SharedConnection& connection,
                     const std::optional<std::string>& authority) {
    std::filesystem::create_directories(folder);
    const std::filesystem::path authorityFile = SharedFiles::authority(folder);
    if (authority) {
        writeAtomically(authorityFile, *authority, 0600);
    } else {
        std::filesystem::remove(authorityFile);
    }
    if (!SharedStore::write(connection, folder))
        throw CommandError(
            ExitCode::somethingFailed,
            fmt::format("The connection could not be written to {}. See that there is room and that "
                        "the folder is yours, and try again.",
                        folder.string()));
}

std::shared_ptr<VarkAPI> apiWith(Surroundings& surroundings, const VarkAddress& address,
                                 std::optional<std::string> token) {
    return surroundings.platform.makeAPI(address, [token] { return token; }, surroundings.apiHost());
}

/// The token in the way that the person chose.
std::string signIn(Surroundings& surroundings, const VarkAddress& address, const ConnectOptions& options) {
    if (!options.tokenFile.empty()) return readToken(options.tokenFile);
    const std::shared_ptr<VarkAPI> api = apiWith(surroundings, address, std::nullopt);
    std::string token = reaching(surroundings, address, [&] {
        return options.code.empty() ? signInInBrowser(surroundings, *api, address.url)
                                    : signInWithCode(surroundings, *api, options.code);
    });
    if (isToken(token)) return token;
    throw CommandError(ExitCode::somethingFailed, "The vark gave this machine a token that cannot be used.");
}

/// Everything that was learnt, so that at no moment a token stands beside a vark that it is not for.
void keep(Surroundings& surroundings, TokenKeeper& keeper, const SharedConnection& connection,
          const std::optional<std::string>& authority) {
    const std::filesystem::path& folder = neededFolder(surroundings);
    const std::optional<SharedConnection> before = surroundings.connection();
    const TokenKeeper::Place placeBefore = TokenKeeper::placeInUse(surroundings);
    if (before && before->server != connection.server) SharedStore::clear(folder);
    keeper.keep(connection.token);
    writeConnection(folder, connection, authority);
    if (before && placeBefore != keeper.place()) TokenKeeper(surroundings, placeBefore).forget(*before);
}

ExitCode connect(Surroundings& surroundings, const ConnectOptions& options) {
    neededFolder(surroundings);
    std::optional<std::string> authority;
    VarkAddress address{readAddress(options.url), std::nullopt};
    if (!options.authorityFile.empty()) {
        authority = readAuthority(options.authorityFile);
        address.authority = options.authorityFile;
    }
    TokenKeeper keeper(surroundings, options.secretStore == "file" ? TokenKeeper::Place::file
                                                                   : TokenKeeper::Place::keychain);
    // Before anybody signs in: a code is good for one time.
    keeper.open();

    SharedConnection connection;
    connection.server = address.url.text();
    connection.token = signIn(surroundings, address, options);
    const std::shared_ptr<VarkAPI> api = apiWith(surroundings, address, connection.token);
    const WhoAmI who = reaching(surroundings, address, [&] { return surroundings.await(api->whoami()); });
    connection.clientName = who.client;
    connection.rootPath = tidiedVarkPath(options.root);
    connection.rootID = findRoot(surroundings, *api, connection.rootPath);
    connection.level = who.level;
    keep(surroundings, keeper, connection, authority);
    surroundings.learn(who);
    if (!options.json) surroundings.console.print("Connected.");
    printIdentity(surroundings.console, connection, who, options.json);
    surroundings.console.say(keeper.whereItIs());
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
        ->check(CLI::IsMember({"keychain", "file"}).description(""))
        ->envname("VARK_SECRET_STORE");
    command
        .add_option("--ca-file", options->authorityFile, "The authority of a vark that has one of its own")
        ->type_name("FILE");
    command.add_option("--root", options->root, "The folder of the vark to work below")->type_name("FOLDER");
    addJSON(command, options->json);
}

}  // namespace vark::cli
