#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "VarkCore/API/ContentSink.h"
#include "VarkCore/API/HTTPVarkAPI.h"
#include "VarkCore/API/ItemBody.h"
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

/// A download that is not whole yet, beside its destination, so that one rename puts it in place; gone again
/// unless it took that place. All of one piece: what one way brought is not gone on with by the next, since
/// nobody checks the whole. Fails with `FileError`.
class IncomingFile final : public ContentSink {
  public:
    /// Makes the folder too.
    explicit IncomingFile(std::filesystem::path destination)
        : destination_(std::move(destination)), file_(beside(destination_), 0600) {}

    std::int64_t next() const override { return 0; }
    void take(std::int64_t at, std::string_view bytes) override {
        if (at == 0) file_.startOver();
        file_.write(bytes);
    }
    void moveIntoPlace() {
        // An empty folder gives way. One that holds something stays, and is why this fails.
        if (std::filesystem::is_directory(std::filesystem::symlink_status(destination_))) {
            std::error_code ignored;
            std::filesystem::remove(destination_, ignored);
        }
        file_.renameTo(destination_);
    }

  private:
    static std::filesystem::path beside(const std::filesystem::path& destination) {
        std::error_code failure;
        std::filesystem::create_directories(destination.parent_path(), failure);
        if (failure) throw FileError("Could not make the folder", destination.parent_path(), failure.value());
        return temporaryPathBeside(destination);
    }

    const std::filesystem::path destination_;
    UnfinishedFile file_;
};

VarkAPIError notInPlace(const FileError& error) {
    return VarkAPIError::transport(
        fmt::format("Could not put the downloaded file in place: {}", error.what()));
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
    HTTPHeader token = authorization();
    // Nobody can stop a download before it is handed out below.
    const auto work = std::make_shared<TaskHandle<void>>();
    const auto download =
        std::make_shared<VarkDownload>(std::make_shared<Progress>(wholeRoad), [work] { work->cancel(); });
    Task<void> road = bringToFile(id, std::move(to), std::move(token), download->progress());
    *work = downloads_.start(finishing(download, std::move(road)));
    return download;
}

Task<void> HTTPVarkAPI::fetch(std::int64_t id, ContentSink& sink) {
    co_await bring({id, sink, std::make_shared<Progress>(wholeRoad)}, authorization());
}

URL HTTPVarkAPI::fileURL(std::int64_t id) const {
    return baseURL_.appendingPath(fmt::format("api/file/{}", id));
}

Task<void> HTTPVarkAPI::bringToFile(std::int64_t id, std::filesystem::path to, HTTPHeader token,
                                    std::shared_ptr<Progress> progress) {
    std::optional<IncomingFile> file;
    try {
        file.emplace(std::move(to));
    } catch (const FileError& error) {
        throw notInPlace(error);
    }
    co_await bring({id, *file, std::move(progress)}, std::move(token));
    co_await checkCancellation();
    try {
        file->moveIntoPlace();
    } catch (const FileError& error) {
        throw notInPlace(error);
    }
}

Task<void> HTTPVarkAPI::bring(Wanted wanted, HTTPHeader token) {
    // Only a call of the API proves a node: one that has not done so yet is not tried here.
    const std::optional<LANRoute> node = verifiedRoute(fileURL(wanted.id));
    if (!node) {
        co_await fetchBySession(std::move(wanted), std::move(token), Roads::all);
        co_return;
    }
    Task<void> road = fetchWhereNodeSays(wanted, *node, std::move(token));
    const bool arrived = co_await arrivesOverNode(node->host, std::move(road));
    if (!arrived) co_await fetchByInternet(std::move(wanted));
}

Task<void> HTTPVarkAPI::fetchWhereNodeSays(Wanted wanted, LANRoute node, HTTPHeader token) {
    LANTransfer::Headers headers{std::move(token)};
    const LANTransfer::Response answer = co_await nodes_.request("GET", std::move(node), std::move(headers));
    const std::optional<URL> location = redirectIn(answer);
    if (!location)
        throw LANTransfer::Failure::badAnswer(fmt::format("file {} answered {}", wanted.id, answer.status));
    std::optional<LANRoute> route = lan_.route(*location, now_());
    if (route) {
        co_await getFromNode(std::move(*route), std::move(wanted));
    } else {
        co_await plainFetch(*location, std::move(wanted));
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

Task<void> HTTPVarkAPI::getFromNode(LANRoute route, Wanted wanted) {
    ItemBody body(wanted.sink, wanted.progress);
    LANTransfer::Headers headers = body.headers();
    const LANTransfer::Response answer = co_await nodes_.get(std::move(route), std::move(headers), body);
    if (!isSuccess(answer.status)) throw LANTransfer::Failure::status(answer.status);
    complete(*wanted.progress);
}

Task<void> HTTPVarkAPI::fetchByInternet(Wanted wanted) {
    std::optional<HTTPHeader> token;
    try {
        token = authorization();
    } catch (const VarkAPIError& error) {
        throw VarkAPIError::transport(error.what());
    }
    // What the node brought counts no more.
    auto rest = std::make_shared<Progress>(wholeRoad);
    wanted.progress->setTotalUnitCount(wholeRoad);
    wanted.progress->setCompletedUnitCount(0);
    wanted.progress->addChild(rest, wholeRoad);
    wanted.progress = std::move(rest);
    co_await fetchBySession(std::move(wanted), *std::move(token), Roads::internetOnly);
}

Task<void> HTTPVarkAPI::plainFetch(URL url, Wanted wanted) {
    ItemBody body(wanted.sink, wanted.progress);
    // No token: the address itself is the authority.
    HTTPRequest request{
        .url = std::move(url), .headers = body.headers(), .body = {}, .idleLimit = usualIdleLimit};
    HTTPSession::FollowRedirect follow = [](auto&) { return true; };
    const HTTPResponse answer = co_await session_.receive(std::move(request), body, std::move(follow));
    if (!isSuccess(answer.status)) throw serverErrorFor(answer.status, "");
    complete(*wanted.progress);
}

Task<void> HTTPVarkAPI::fetchBySession(Wanted wanted, HTTPHeader token, Roads roads) {
    ItemBody body(wanted.sink, wanted.progress);
    HTTPRequest request{.url = fileURL(wanted.id), .headers = body.headers(), .body = {}};
    request.headers.insert(request.headers.begin(), std::move(token));
    // A large file must not be cut off by the limit of a call.
    request.idleLimit = resourceLimit;

    const auto watcher = std::make_shared<RedirectWatcher>(lan_, now_);
    HTTPSession::FollowRedirect follow = [](auto&) { return true; };
    if (roads == Roads::all) follow = [watcher](const auto& redirect) { return watcher->follows(redirect); };

    HTTPResponse answer;
    std::optional<std::string> failure;
    try {
        answer = co_await session_.receive(std::move(request), body, std::move(follow));
    } catch (const HTTPError& error) {
        failure = describeURLError(error);
    } catch (const FileError& error) {
        failure = error.what();
    }

    if (std::optional<LANRoute> route = watcher->takeRoute()) {
        const std::string host = route->host;
        Task<void> road = getFromNode(std::move(*route), wanted);
        const bool arrived = co_await arrivesOverNode(host, std::move(road));
        if (!arrived) co_await fetchByInternet(std::move(wanted));
        co_return;
    }
    if (failure) {
        co_await checkCancellation();
        throw VarkAPIError::transport(std::move(*failure));
    }
    if (!isSuccess(answer.status)) throw serverErrorFor(answer.status, answer.body);
    complete(*wanted.progress);
}

}  // namespace vark
