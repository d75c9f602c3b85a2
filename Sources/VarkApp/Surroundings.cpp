#include "VarkApp/Surroundings.h"

#include <fmt/format.h>

#include "VarkApp/Connect/ConnectionToken.h"
#include "VarkCore/Connection/SharedLevel.h"

namespace vark::app {

namespace {

/// In seconds: a node that was seen earlier may be gone.
constexpr double oldestNode = 600;
constexpr std::int64_t largestLog = 5'242'880;
/// For hashing and walking, which wait for the disk more than for a processor.
constexpr std::size_t mostWorkers = 8;

}  // namespace

Surroundings::Surroundings(Platform& thePlatform, Executor& theExecutor, Clock& theClock, WallClock theDate)
    : platform(thePlatform), executor(theExecutor), clock(theClock), date(std::move(theDate)) {}

Surroundings::~Surroundings() = default;

const Calendar& Surroundings::calendar() {
    if (!calendar_) calendar_.emplace(Calendar::current());
    return *calendar_;
}

BlockingPool& Surroundings::pool() {
    if (!pool_) pool_.emplace(mostWorkers);
    return *pool_;
}

BlockingPool& Surroundings::savingPool() {
    if (!savingPool_) savingPool_.emplace(1);
    return *savingPool_;
}

const Locations& Surroundings::locations() {
    if (!locations_) locations_.emplace(platform.bundle(), platform.folders());
    return *locations_;
}

const SharedStore::Folder& Surroundings::sharedFolder() {
    if (!sharedFolder_) sharedFolder_.emplace(SharedStore::folder(platform.bundle(), platform.folders()));
    return *sharedFolder_;
}

const std::filesystem::path& Surroundings::neededFolder() {
    if (const SharedStore::Folder& folder = sharedFolder()) return *folder;
    const std::optional<std::string> group = SharedStore::groupID(platform.bundle());
    if (group && !group->empty())
        throw Failure(Outcome::failed,
                      fmt::format("The folder for the connection cannot be used. {}",
                                  platform.folders().groupContainerTrouble(*group).value_or("Try again.")));
    throw Failure(Outcome::failed,
                  "This program was copied out of its bundle, Vark.app, and so cannot tell whose "
                  "connection is meant. Run the vark in Vark.app/Contents/MacOS; a symbolic link to "
                  "it works from anywhere.");
}

std::optional<SharedConnection> Surroundings::connection() {
    if (!given_) return SharedStore::read(sharedFolder());
    SharedConnection connection;
    connection.server = given_->server.text();
    connection.token = given_->token;
    connection.clientName = given_->clientName;
    return connection;
}

VarkAddress Surroundings::addressOf(const SharedConnection& connection) {
    VarkAddress address{*connection.serverURL(), std::nullopt};
    if (given_) {
        address.authority = given_->authority;
        return address;
    }
    std::filesystem::path authority = SharedFiles::authority(neededFolder());
    if (std::filesystem::exists(authority)) address.authority = std::move(authority);
    return address;
}

std::shared_ptr<VarkAPI> Surroundings::api(const SharedConnection& connection, int chunksAtOnce) {
    if (given_)
        return platform.makeAPI(
            addressOf(connection), [token = given_->token] { return token; }, apiHost(chunksAtOnce));
    auto token = std::make_shared<ConnectionToken>(neededFolder(), connection.server);
    return platform.makeAPI(
        addressOf(connection), [token] { return token->current(); }, apiHost(chunksAtOnce));
}

LANRouter& Surroundings::lan() {
    if (!lan_) lan_.emplace(LANRouter::load(sharedFolder(), date(), oldestNode));
    return *lan_;
}

LANRouter& Surroundings::lanToBrowse() {
    lan().update({});
    return *lan_;
}

APIHost Surroundings::apiHost(int mostChunksAtOnce) {
    return {lan(), ways, executor, clock, mostChunksAtOnce};
}

void Surroundings::learn(const WhoAmI& who) {
    // What others of our processes may do depends on the connection that is kept.
    if (given_) return;
    SharedLevelStore::write({who.level, who.jobNumbers, date()}, sharedFolder());
}

QueueStore& Surroundings::store() {
    if (!store_) store_.emplace(locations().queue());
    return *store_;
}

TransferLog& Surroundings::log() {
    if (!log_) log_.emplace(TransferLog::defaultURL(locations()), largestLog, date, calendar());
    return *log_;
}

TransferEngine::Host Surroundings::engineHost() {
    return {executor,
            clock,
            date,
            calendar(),
            pool(),
            savingPool(),
            platform.volumes(),
            [this] {
                const std::optional<SharedConnection> connection = this->connection();
                const std::optional<URL> server = connection ? connection->serverURL() : std::nullopt;
                return platform.makePathMonitor(server ? server->host() : "");
            },
            [this] { return platform.makeClockWatch(); }};
}

}  // namespace vark::app
