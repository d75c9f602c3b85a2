#include "VarkCore/API/Download.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "VarkCore/API/ItemBody.h"
#include "VarkCore/API/RedirectWatcher.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Services/Limits.h"

namespace vark {
namespace {

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

std::optional<URL> redirectIn(const LANTransfer::Response& answer) {
    constexpr std::array redirects{301, 302, 303, 307, 308};
    const auto location = answer.headers.find("location");
    if (std::ranges::find(redirects, answer.status) == redirects.end() || location == answer.headers.end())
        return std::nullopt;
    return URL::parse(location->second);
}

}  // namespace

Download::Download(const VarkLine& line, const NodeCalls& calls, std::int64_t id, ContentSink& sink,
                   std::shared_ptr<Progress> progress)
    : line_(line),
      calls_(calls),
      id_(id),
      url_(line.baseURL.appendingPath(fmt::format("api/file/{}", id))),
      sink_(sink),
      progress_(std::move(progress)) {}

Task<void> Download::bringToFile(const VarkLine& line, const NodeCalls& calls, std::int64_t id,
                                 std::filesystem::path to, HTTPHeader token,
                                 std::shared_ptr<Progress> progress) {
    std::optional<IncomingFile> file;
    try {
        file.emplace(std::move(to));
    } catch (const FileError& error) {
        throw notInPlace(error);
    }
    Download download(line, calls, id, *file, std::move(progress));
    co_await download.bring(std::move(token));
    co_await checkCancellation();
    try {
        file->moveIntoPlace();
    } catch (const FileError& error) {
        throw notInPlace(error);
    }
}

Task<void> Download::bring(HTTPHeader token) {
    // Only a call of the API proves a node: one that has not done so yet is not tried here.
    const std::optional<LANRoute> node = calls_.provenRoute(url_);
    if (!node) {
        co_await fetchBySession(std::move(token), Roads::all);
        co_return;
    }
    Task<void> road = fetchWhereNodeSays(*node, std::move(token));
    const bool arrived = co_await arrivesOverNode(node->host, std::move(road));
    if (!arrived) co_await fetchByInternet();
}

Task<void> Download::fetchWhereNodeSays(LANRoute node, HTTPHeader token) {
    LANTransfer::Headers headers{std::move(token)};
    const LANTransfer::Response answer =
        co_await line_.nodes.request("GET", std::move(node), std::move(headers));
    const std::optional<URL> location = redirectIn(answer);
    if (!location)
        throw LANTransfer::Failure::badAnswer(fmt::format("file {} answered {}", id_, answer.status));
    std::optional<LANRoute> route = line_.lan.route(*location, line_.now());
    if (route) {
        co_await getFromNode(std::move(*route));
    } else {
        co_await plainFetch(*location);
    }
}

Task<bool> Download::arrivesOverNode(std::string host, Task<void> road) {
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
    line_.lan.markBad(host, line_.now());
    co_return false;
}

Task<void> Download::getFromNode(LANRoute route) {
    ItemBody body(sink_, progress_);
    LANTransfer::Headers headers = body.headers();
    const LANTransfer::Response answer = co_await line_.nodes.get(std::move(route), std::move(headers), body);
    if (!isSuccess(answer.status)) throw LANTransfer::Failure::status(answer.status);
    complete();
}

Task<void> Download::fetchByInternet() {
    std::optional<HTTPHeader> token;
    try {
        token = line_.authorization();
    } catch (const VarkAPIError& error) {
        throw VarkAPIError::transport(error.what());
    }
    // What the node brought counts no more.
    auto rest = std::make_shared<Progress>(wholeRoad);
    progress_->setTotalUnitCount(wholeRoad);
    progress_->setCompletedUnitCount(0);
    progress_->addChild(rest, wholeRoad);
    progress_ = std::move(rest);
    co_await fetchBySession(*std::move(token), Roads::internetOnly);
}

Task<void> Download::plainFetch(URL url) {
    ItemBody body(sink_, progress_);
    // No token: the address itself is the authority.
    HTTPRequest request{.url = std::move(url),
                        .headers = body.headers(),
                        .body = {},
                        .idleLimit = limits::standingStillElsewhere};
    HTTPSession::FollowRedirect follow = [](auto&) { return true; };
    const HTTPResponse answer = co_await line_.session.receive(std::move(request), body, std::move(follow));
    if (!isSuccess(answer.status)) throw serverErrorFor(answer.status, "");
    complete();
}

Task<void> Download::fetchBySession(HTTPHeader token, Roads roads) {
    ItemBody body(sink_, progress_);
    HTTPRequest request{.url = url_, .headers = body.headers(), .body = {}};
    request.headers.insert(request.headers.begin(), std::move(token));
    // A large file must not be cut off by the limit of a call.
    request.idleLimit = limits::wholeTransfer;

    const auto watcher = std::make_shared<RedirectWatcher>(line_.lan, line_.now);
    HTTPSession::FollowRedirect follow = [](auto&) { return true; };
    if (roads == Roads::all) follow = [watcher](const auto& redirect) { return watcher->follows(redirect); };

    HTTPResponse answer;
    std::optional<std::string> failure;
    try {
        answer = co_await line_.session.receive(std::move(request), body, std::move(follow));
    } catch (const HTTPError& error) {
        failure = describeURLError(error);
    } catch (const FileError& error) {
        failure = error.what();
    }

    if (std::optional<LANRoute> route = watcher->takeRoute()) {
        const std::string host = route->host;
        Task<void> road = getFromNode(std::move(*route));
        const bool arrived = co_await arrivesOverNode(host, std::move(road));
        if (!arrived) co_await fetchByInternet();
        co_return;
    }
    if (failure) {
        co_await checkCancellation();
        throw VarkAPIError::transport(std::move(*failure));
    }
    if (!isSuccess(answer.status)) throw serverErrorFor(answer.status, answer.body);
    complete();
}

void Download::complete() {
    progress_->setCompletedUnitCount(progress_->totalUnitCount());
}

}  // namespace vark
