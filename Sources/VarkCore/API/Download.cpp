#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "VarkCore/API/HTTPVarkAPI.h"
#include "VarkCore/API/RedirectWatcher.h"
#include "VarkCore/API/SessionSettings.h"
#include "VarkCore/Foundation/Files.h"

// The three roads of a download: from a node that speaks the API, from a node that the vark redirects to, and
// over the internet. What fails on a node goes on over the internet, behind the same handle.

namespace vark {
namespace {

/// What a download counts for until its length is known, and a road that stands in for another.
constexpr std::int64_t wholeRoad = 100;
/// Without an answer's own limit for standing still.
constexpr std::chrono::seconds usualIdleLimit{90};
/// More than this is no error body.
constexpr std::uint64_t longestErrorBody = std::uint64_t{1} << 20;

/// A download that is not whole yet, beside its destination, so that one rename puts it in place. What has
/// come of it goes at its end.
class IncomingFile {
  public:
    explicit IncomingFile(std::filesystem::path destination)
        : destination_(std::move(destination)), path_(temporaryPathBeside(destination_)) {}
    IncomingFile(const IncomingFile&) = delete;
    IncomingFile& operator=(const IncomingFile&) = delete;
    ~IncomingFile() { remove(); }

    const std::filesystem::path& path() const { return path_; }
    bool exists() const {
        std::error_code ignored;
        return std::filesystem::exists(path_, ignored);
    }
    void remove() const {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }

    /// Both fail with `FileError`.
    void makeFolder() const {
        std::error_code failure;
        std::filesystem::create_directories(path_.parent_path(), failure);
        if (failure) throw FileError("Could not make the folder", path_.parent_path(), failure.value());
    }
    void moveIntoPlace() const {
        std::error_code failure;
        std::filesystem::rename(path_, destination_, failure);
        if (failure == std::errc::is_a_directory) {
            // One that holds something stays, and is why this fails.
            std::error_code ignored;
            std::filesystem::remove(destination_, ignored);
            std::filesystem::rename(path_, destination_, failure);
        }
        if (failure) throw FileError("Could not replace", destination_, failure.value());
    }

  private:
    const std::filesystem::path destination_;
    const std::filesystem::path path_;
};

VarkAPIError notInPlace(const FileError& error) {
    return VarkAPIError::transport(
        fmt::format("Could not put the downloaded file in place: {}", error.what()));
}

/// An unreadable body says nothing.
std::string errorBody(const std::filesystem::path& path) {
    try {
        return readWholeFile(path, longestErrorBody);
    } catch (const FileError&) {
        return "";
    }
}

HTTPSession::DownloadProgress tellingTo(std::shared_ptr<Progress> progress) {
    return [progress = std::move(progress)](std::int64_t received, std::optional<std::int64_t> expected) {
        if (!expected) return;
        progress->setTotalUnitCount(std::max<std::int64_t>(*expected, 1));
        progress->setCompletedUnitCount(received);
    };
}

void complete(Progress& progress) {
    progress.setCompletedUnitCount(progress.totalUnitCount());
}

std::optional<URL> redirectIn(const LANTransfer::Response& answer) {
    constexpr std::array redirects{301, 302, 303, 307, 308};
    const auto location = answer.headers.find("location");
    if (std::ranges::find(redirects, answer.status) == redirects.end() || location == answer.headers.end())
        return std::nullopt;
    return URL::parse(location->second);
}

Task<void> finishing(std::shared_ptr<VarkDownload> download, Task<void> road) {
    std::exception_ptr failure;
    try {
        co_await std::move(road);
    } catch (...) {
        failure = std::current_exception();
    }
    download->finish(std::move(failure));
}

}  // namespace

std::shared_ptr<VarkDownload> HTTPVarkAPI::download(std::int64_t id, std::filesystem::path to) {
    return download(Wanted{id, std::move(to)}, Roads::all);
}

std::shared_ptr<VarkDownload> HTTPVarkAPI::download(Wanted wanted, Roads roads) {
    HTTPHeader token = authorization();
    URL url = baseURL_.appendingPath(fmt::format("api/file/{}", wanted.id));
    // Only a call of the API proves a node: one that has not done so yet is not tried here.
    std::optional<LANRoute> node = roads == Roads::all ? verifiedRoute(url) : std::nullopt;

    auto progress = std::make_shared<Progress>(wholeRoad);
    Task<void> road =
        node ? fetchOverNode(std::move(wanted), std::move(*node), std::move(token), progress)
             : fetchBySession(std::move(wanted), std::move(url), std::move(token), roads, progress);
    // Nobody can stop a download before it is handed out below.
    const auto work = std::make_shared<TaskHandle<void>>();
    const auto download = std::make_shared<VarkDownload>(progress, [work] { work->cancel(); });
    *work = downloads_.start(finishing(download, std::move(road)));
    return download;
}

Task<void> HTTPVarkAPI::fetchOverNode(Wanted wanted, LANRoute node, HTTPHeader token,
                                      std::shared_ptr<Progress> progress) {
    Task<void> road = fetchWhereNodeSays(wanted, node, std::move(token), progress);
    const bool arrived = co_await arrivesOverNode(node.host, std::move(road));
    if (!arrived) co_await fetchByInternet(std::move(wanted), std::move(progress));
}

Task<void> HTTPVarkAPI::fetchWhereNodeSays(Wanted wanted, LANRoute node, HTTPHeader token,
                                           std::shared_ptr<Progress> progress) {
    LANTransfer::Headers headers{std::move(token)};
    const LANTransfer::Response answer = co_await nodes_.request("GET", std::move(node), std::move(headers));
    const std::optional<URL> location = redirectIn(answer);
    if (!location)
        throw LANTransfer::Failure::badAnswer(fmt::format("file {} answered {}", wanted.id, answer.status));
    std::optional<LANRoute> route = lan_.route(*location, now_());
    if (route) {
        co_await getFromNode(std::move(*route), std::move(wanted.to), std::move(progress));
    } else {
        co_await plainFetch(*location, std::move(wanted.to), std::move(progress));
    }
}

Task<bool> HTTPVarkAPI::arrivesOverNode(std::string host, Task<void> road) {
    bool isCancelled = false;
    try {
        co_await std::move(road);
        co_return true;
    } catch (const LANTransfer::Failure& failure) {
        isCancelled = failure.kind() == LANTransfer::Failure::cancelledKind;
    } catch (const std::exception&) {
        // Whatever it was, the internet has its own try and its own word for it.
    }
    co_await checkCancellation();
    if (isCancelled) throw CancellationError();
    lan_.markBad(host, now_());
    co_return false;
}

Task<void> HTTPVarkAPI::getFromNode(LANRoute route, std::filesystem::path to,
                                    std::shared_ptr<Progress> progress) {
    const LANTransfer::Response answer = co_await nodes_.get(std::move(route), std::move(to), progress);
    if (!isSuccess(answer.status)) throw LANTransfer::Failure::status(answer.status);
    complete(*progress);
}

Task<void> HTTPVarkAPI::fetchByInternet(Wanted wanted, std::shared_ptr<Progress> progress) {
    std::shared_ptr<VarkDownload> retry;
    try {
        retry = download(std::move(wanted), Roads::internetOnly);
    } catch (const VarkAPIError& error) {
        throw VarkAPIError::transport(error.what());
    }
    // What the node brought counts no more.
    progress->setTotalUnitCount(wholeRoad);
    progress->setCompletedUnitCount(0);
    progress->addChild(retry->progress(), wholeRoad);
    co_await retry->value();
}

Task<void> HTTPVarkAPI::plainFetch(URL url, std::filesystem::path to, std::shared_ptr<Progress> progress) {
    // No token: the address itself is the authority.
    const IncomingFile file(std::move(to));
    file.makeFolder();
    HTTPRequest request{.url = std::move(url), .headers = {}, .body = {}, .idleLimit = usualIdleLimit};
    const HTTPResponse answer = co_await session_.download(
        std::move(request), file.path(), [](auto, auto) {}, [](auto&) { return true; });
    if (!isSuccess(answer.status)) throw serverErrorFor(answer.status, "");
    file.moveIntoPlace();
    complete(*progress);
}

Task<void> HTTPVarkAPI::fetchBySession(Wanted wanted, URL url, HTTPHeader token, Roads roads,
                                       std::shared_ptr<Progress> progress) {
    const IncomingFile file(wanted.to);
    try {
        file.makeFolder();
    } catch (const FileError& error) {
        throw notInPlace(error);
    }
    HTTPRequest request{.url = std::move(url), .headers = {std::move(token)}, .body = {}};
    // A large file must not be cut off by the limit of a call.
    request.idleLimit = resourceLimit;

    const auto watcher = std::make_shared<RedirectWatcher>(lan_, now_);
    HTTPSession::FollowRedirect follow = [](auto&) { return true; };
    if (roads == Roads::all) follow = [watcher](const auto& redirect) { return watcher->follows(redirect); };

    HTTPResponse answer;
    std::optional<std::string> failure;
    try {
        answer = co_await session_.download(std::move(request), file.path(), tellingTo(progress),
                                            std::move(follow));
    } catch (const HTTPError& error) {
        failure = describeURLError(error);
    } catch (const FileError& error) {
        failure = error.what();
    }

    if (std::optional<LANRoute> route = watcher->takeRoute()) {
        file.remove();
        const std::string host = route->host;
        Task<void> road = getFromNode(std::move(*route), wanted.to, progress);
        const bool arrived = co_await arrivesOverNode(host, std::move(road));
        if (!arrived) co_await fetchByInternet(std::move(wanted), std::move(progress));
        co_return;
    }
    if (failure) {
        co_await checkCancellation();
        throw VarkAPIError::transport(std::move(*failure));
    }
    if (!file.exists())
        throw VarkAPIError::badResponse(fmt::format("the vark sent no file for {}", wanted.id));
    if (!isSuccess(answer.status)) throw serverErrorFor(answer.status, errorBody(file.path()));
    try {
        file.moveIntoPlace();
    } catch (const FileError& error) {
        throw notInPlace(error);
    }
    complete(*progress);
}

}  // namespace vark
