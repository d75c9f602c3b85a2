#include "VarkApp/Connect/Connecting.h"

#include <fmt/format.h>

#include "VarkApp/Connect/Addresses.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Sentence.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::app {

namespace {

constexpr std::uint64_t longestAuthorityFile = 1 << 20;

std::string readAuthority(const std::filesystem::path& path) {
    std::string content;
    try {
        content = readWholeFile(path, longestAuthorityFile);
    } catch (const FileError& error) {
        throw Failure(Outcome::misuse,
                      fmt::format("The file of the authority cannot be read. {}", error.what()));
    }
    if (!content.contains("-----BEGIN CERTIFICATE-----"))
        throw Failure(Outcome::misuse,
                      fmt::format("The file {} holds no certificate. Give the vark's authority in PEM form.",
                                  path.string()));
    return content;
}

Failure cannotConnect(const URL& url, const VarkAPIError& error, bool provesItself) {
    const std::string said = asSentence(error.errorDescription());
    if (error.isSignOut())
        return {
            Outcome::notConnected,
            fmt::format("{} did not accept the token: {} Get a new one and try again.", url.text(), said)};
    if (!provesItself)
        return {
            Outcome::notConnected,
            {fmt::format("{} is not trusted by this machine: its certificate comes from an authority that is "
                         "not known here.",
                         url.text()),
             {{Next::Step::trustAuthority}}}};
    if (error.isRetryable() && std::holds_alternative<VarkAPIError::Server>(error.which()))
        return {
            Outcome::notConnected,
            fmt::format("{} does not take this just now: {} Wait a moment and try again.", url.text(), said)};
    return {
        Outcome::notConnected,
        fmt::format("{} could not be used as a vark: {} Check the address and the network, and try again.",
                    url.text(), said)};
}

/// What the first calls to an address give, with failures told as the address's. Fails with a `Failure`.
template <class T>
Task<T> reaching(Surroundings& surroundings, VarkAddress address, Task<T> calls) {
    std::optional<VarkAPIError> failure;
    try {
        co_return co_await std::move(calls);
    } catch (const VarkAPIError& error) {
        failure = error;
    }
    static const VarkAPIError timedOut =
        VarkAPIError::transport(describeURLError(HTTPError(HTTPError::timedOut, "")));
    // Only a connection that failed can have failed for the certificate, and who has waited once for nothing
    // does not wait again.
    bool provesItself = true;
    if (std::holds_alternative<VarkAPIError::Transport>(failure->which()) && *failure != timedOut)
        provesItself = co_await surroundings.platform.provesItself(address);
    throw cannotConnect(address.url, *failure, provesItself);
}

/// The item of a folder that the person named; 0 for the whole of a vark that has none for that.
Task<std::int64_t> findFolder(VarkAPI& api, std::string path) {
    try {
        const VarkItem item = co_await api.item(path);
        if (item.isDir || path.empty()) co_return item.id;
        throw Failure(Outcome::misuse,
                      fmt::format("\"{}\" is a file on the vark. Give a folder instead.", path));
    } catch (const VarkAPIError& error) {
        if (!error.isGone()) throw;
        if (path.empty()) co_return 0;
        throw Failure(Outcome::misuse, {fmt::format("There is no folder \"{}\" on the vark.", path),
                                        {{Next::Step::lookAround}}});
    }
}

std::shared_ptr<VarkAPI> apiWith(Surroundings& surroundings, const VarkAddress& address,
                                 std::optional<std::string> token) {
    return surroundings.platform.makeAPI(address, [token] { return token; }, surroundings.apiHost());
}

/// The token in the way that the person chose, and what came with it.
Task<DeviceClaim> signIn(Surroundings& surroundings, VarkAddress address, ConnectWish wish,
                         SignInPage& page) {
    if (wish.token) co_return DeviceClaim{.token = *wish.token};
    const std::shared_ptr<VarkAPI> api = apiWith(surroundings, address, std::nullopt);
    Task<DeviceClaim> signing = wish.code ? signInWithCode(surroundings, *api, *wish.code)
                                          : signInInBrowser(surroundings, *api, address.url, page);
    DeviceClaim claim = co_await reaching(surroundings, address, std::move(signing));
    if (isToken(claim.token)) co_return claim;
    throw Failure(Outcome::failed, "The vark gave this machine a token that cannot be used.");
}

}  // namespace

Task<Connected> connect(Surroundings& surroundings, ConnectWish wish, SignInPage& page) {
    const VarkAddress address{wish.address, wish.authority};
    std::optional<std::string> authority;
    if (wish.authority) authority = readAuthority(*wish.authority);
    TokenKeeper keeper(surroundings);
    // Before anybody signs in: a code is good for one time.
    co_await keeper.open(wish.place);

    const DeviceClaim claim = co_await signIn(surroundings, address, wish, page);
    const std::shared_ptr<VarkAPI> api = apiWith(surroundings, address, claim.token);
    Connected made;
    made.who = co_await reaching(surroundings, address, api->whoami());
    SharedConnection& connection = made.connection;
    connection.server = address.url.text();
    connection.token = claim.token;
    connection.clientName = made.who.client.empty() ? claim.clientName : made.who.client;
    connection.rootPath = tidiedVarkPath(wish.rootPath);
    connection.rootID = co_await findFolder(*api, connection.rootPath);
    connection.folders = wish.folders;
    for (const std::string& folder : connection.folders.value_or(std::vector<std::string>()))
        co_await findFolder(*api, joinedVarkPath(connection.rootPath, folder));
    connection.level = made.who.level;
    connection.tokenInFile = wish.place == KeptConnection::Place::file;
    made.notes = co_await keeper.keep(connection, std::move(authority));
    surroundings.learn(made.who);
    made.whereTheTokenIs = keeper.whereItIs(wish.place);
    co_return made;
}

Task<KeptConnection::Removed> leave(Surroundings& surroundings) {
    TokenKeeper keeper(surroundings);
    co_return co_await keeper.forget();
}

}  // namespace vark::app
