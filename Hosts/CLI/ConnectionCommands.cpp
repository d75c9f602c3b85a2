#include <sys/stat.h>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr std::uint64_t longestTokenFile = 64 << 10;
constexpr std::uint64_t longestAuthorityFile = 1 << 20;

struct ConnectOptions {
    std::string url;
    std::string tokenFile;
    std::string authorityFile;
    std::string root;
    bool json = false;
};

struct PlainOptions {
    bool json = false;
};

std::string trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

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
    std::string token = trimmed(std::string_view(content).substr(0, content.find('\n')));
    if (token.empty())
        throw CommandError(
            ExitCode::usage,
            fmt::format("The file {} has no token in its first line. Put the token there that the "
                        "vark gave for this machine.",
                        path));
    const bool isPlain =
        std::ranges::all_of(token, [](char character) { return character > 0x20 && character < 0x7f; });
    if (!isPlain)
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

bool isLoopback(const std::string& host) {
    return host == "localhost" || host == "::1" || host.starts_with("127.");
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
    const bool isSafe = url->scheme() == "https" || (url->scheme() == "http" && isLoopback(url->host()));
    if (!isSafe)
        throw CommandError(ExitCode::usage,
                           "A token is sent through https only. Give an address that begins with "
                           "https://");
    return *url;
}

CommandError cannotConnect(const URL& url, const VarkAPIError& error, bool provesItself) {
    if (error.isSignOut())
        return {ExitCode::notConnected,
                fmt::format("{} did not accept the token: {} Ask for a new token, put it "
                            "into the file and try again.",
                            url.text(), error.errorDescription())};
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

/// Who the vark takes this machine for. Fails with a `CommandError`.
WhoAmI proveToken(Surroundings& surroundings, VarkAPI& api, const VarkAddress& address) {
    try {
        return surroundings.await(api.whoami());
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

/// Both files, the authority first: a connection without it would be of no use.
void writeConnection(Surroundings& surroundings, const SharedConnection& connection,
                     const std::optional<std::string>& authority) {
    const SharedStore::Folder& folder = surroundings.sharedFolder();
    if (!folder)
        throw CommandError(ExitCode::somethingFailed,
                           "This program has no shared folder, since no bundle is around it. Run the vark in "
                           "Vark.app.");
    std::filesystem::create_directories(*folder);
    const std::filesystem::path authorityFile = SharedFiles::authority(*folder);
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
                        folder->string()));
}

void printIdentity(Console& console, const SharedConnection& connection, const WhoAmI& who, bool json) {
    if (json) {
        JSONWriter record;
        record.beginObject().field("server", connection.server).field("client", who.client);
        record.field("rootPath", connection.rootPath).field("email", who.email);
        record.field("device", who.deviceName).field("level", who.level).field("levelLabel", who.levelLabel);
        record.field("jobNumbers", who.jobNumbers);
        record.field("spaceUsed", who.spaceUsed).field("spacePlan", who.spacePlan).endObject();
        console.printJSON(record.text());
        return;
    }
    std::string name = connection.displayName();
    console.print(fmt::format("{} at {}", name.empty() ? "A vark" : name, connection.server));
    console.print(fmt::format("{}{}, {} (level {})", who.email,
                              who.deviceName.empty() ? "" : " on " + who.deviceName,
                              who.levelLabel.empty() ? "no label" : who.levelLabel, who.level));
    if (who.spaceUsed && who.spacePlan)
        console.print(
            fmt::format("{} of {} used", Format::bytes(*who.spaceUsed), Format::bytes(*who.spacePlan)));
}

ExitCode connect(Surroundings& surroundings, const ConnectOptions& options) {
    const std::string token = readToken(options.tokenFile);
    std::optional<std::string> authority;
    VarkAddress address{readAddress(options.url), std::nullopt};
    if (!options.authorityFile.empty()) {
        authority = readAuthority(options.authorityFile);
        address.authority = options.authorityFile;
    }
    std::shared_ptr<VarkAPI> api = surroundings.platform.makeAPI(
        address, [token] { return std::optional(token); }, surroundings.apiHost());
    const WhoAmI who = proveToken(surroundings, *api, address);

    SharedConnection connection;
    connection.server = address.url.text();
    connection.token = token;
    connection.clientName = who.client;
    connection.rootPath = tidiedVarkPath(options.root);
    connection.rootID = findRoot(surroundings, *api, connection.rootPath);
    connection.level = who.level;
    writeConnection(surroundings, connection, authority);
    if (!options.json) surroundings.console.print("Connected.");
    printIdentity(surroundings.console, connection, who, options.json);
    return ExitCode::allLanded;
}

ExitCode disconnect(Surroundings& surroundings, const PlainOptions& options) {
    std::optional<SharedConnection> connection = surroundings.connection();
    if (!connection) {
        surroundings.console.say("This machine is not connected to a vark.");
        return ExitCode::allLanded;
    }
    SharedStore::clear(surroundings.sharedFolder());
    std::error_code ignored;
    std::filesystem::remove(SharedFiles::authority(*surroundings.sharedFolder()), ignored);
    if (options.json) {
        JSONWriter record;
        record.beginObject().field("disconnected", connection->server).endObject();
        surroundings.console.printJSON(record.text());
    } else {
        surroundings.console.print(
            fmt::format("Disconnected from {}. A saved queue stays.", connection->server));
    }
    return ExitCode::allLanded;
}

ExitCode whoami(Surroundings& surroundings, const PlainOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const WhoAmI who = surroundings.await(surroundings.api(connection)->whoami());
    printIdentity(surroundings.console, connection, who, options.json);
    return ExitCode::allLanded;
}

}  // namespace

void declareConnectionCommands(CLI::App& program, Chosen& chosen) {
    auto connecting = std::make_shared<ConnectOptions>();
    CLI::App& connectCommand =
        addCommand(program, chosen, "connect", "Connect this machine to a vark", connecting, connect);
    connectCommand.add_option("URL", connecting->url, "Where the vark is, like https://vark.example.com")
        ->required();
    connectCommand
        .add_option("--token-file", connecting->tokenFile, "A file whose first line is the device token")
        ->required()
        ->type_name("FILE");
    connectCommand
        .add_option("--ca-file", connecting->authorityFile, "The authority of a vark that has one of its own")
        ->type_name("FILE");
    connectCommand.add_option("--root", connecting->root, "The folder of the vark to work below")
        ->type_name("FOLDER");
    addJSON(connectCommand, connecting->json);

    auto leaving = std::make_shared<PlainOptions>();
    addJSON(addCommand(program, chosen, "disconnect", "Forget the connection; the queue stays", leaving,
                       disconnect),
            leaving->json);
    auto asking = std::make_shared<PlainOptions>();
    addJSON(addCommand(program, chosen, "whoami", "Say who is connected to which vark", asking, whoami),
            asking->json);
}

}  // namespace vark::cli
