#include "Hosts/CLI/QueueDesk.h"

#include <charconv>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/IngestDesk.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr std::string_view nothingQueued =
    "Nothing is in the queue. Put something in with: vark send PATH...";

QueueAnswer saying(std::string sentence) {
    QueueAnswer answer;
    answer.results.push_back(std::move(sentence));
    return answer;
}

std::string shownDestination(const std::string& destination) {
    return destination.empty() ? "the top of the vark" : destination;
}

}  // namespace

Task<QueueAnswer> QueueDesk::carryOut(QueueRequest request) {
    using Command = QueueRequest::Command;
    switch (request.command) {
        case Command::show:
            co_return show();
        case Command::add:
            co_return co_await add(std::move(request));
        case Command::pause:
            co_return pause();
        case Command::resume:
            co_return resume();
        case Command::retry:
            co_return retry();
        case Command::remove:
            co_return remove(request);
        case Command::clear:
            co_return co_await clear(std::move(request));
        case Command::resolve:
            co_return resolve(request);
    }
}

QueueAnswer QueueDesk::show() const {
    QueueAnswer answer;
    if (engine_.job()) answer.queue = QueueView::of(engine_);
    return answer;
}

bool QueueDesk::isSettledWhole() const {
    for (const auto& [id, progress] : engine_.entryProgress()) {
        if (!progress.isFinished()) return false;
    }
    return true;
}

std::optional<std::string> QueueDesk::whyItMustNotGo() const {
    if (!engine_.job() || isSettledWhole() || isForThisVark()) return std::nullopt;
    return fmt::format(
        "The queue that is not finished is for {0}, and this machine is connected to {1}. Connect to "
        "{0} again, or give the queue up with: vark clear",
        engine_.job()->clientName, clientName_);
}

bool QueueDesk::isForThisVark() const {
    const std::string& client = engine_.job()->clientName;
    return client.empty() || client == clientName_;
}

void QueueDesk::beginAnew(const std::string& destination, const std::string& title) {
    if (!engine_.job()) {
        engine_.ensureJob(title, destination, clientName_);
        return;
    }
    engine_.setIngest(std::nullopt);
    engine_.clearFinished();
    engine_.setDestination(destination);
    engine_.setTitle(title);
    engine_.setClientName(clientName_);
}

bool QueueDesk::prepare(const QueueRequest& request, QueueAnswer& answer) {
    const std::string wanted = request.destination.value_or(rootPath_);
    if (engine_.job() && engine_.job()->ingest && !engine_.job()->ingest->reported) {
        answer.refuse(
            fmt::format("The queue is bringing in {}, and that comes first. Let it finish with: vark "
                        "send, or give it up with: vark clear",
                        engine_.job()->ingest->drive),
            ExitCode::usage);
        return false;
    }
    if (isSettledWhole()) {
        beginAnew(wanted, request.title.value_or(""));
        return true;
    }
    if (std::optional<std::string> reason = whyItMustNotGo()) {
        answer.refuse(*reason, ExitCode::usage);
        return false;
    }
    const TransferJob& job = *engine_.job();
    if (request.destination && *request.destination != job.destination) {
        answer.refuse(
            fmt::format("The queue goes to {0}, and the whole of it goes to one place. Let it finish "
                        "first, add to it with --to of that place, or give it up with: vark clear",
                        shownDestination(job.destination)),
            ExitCode::usage);
        return false;
    }
    if (!request.destination && job.destination != wanted)
        answer.problems.push_back(
            fmt::format("This goes to {}, as all that is in the queue.", shownDestination(job.destination)));
    if (request.title) engine_.setTitle(*request.title);
    return true;
}

Task<QueueAnswer> QueueDesk::add(QueueRequest request) {
    QueueAnswer answer;
    if (!prepare(request, answer)) co_return answer;
    std::vector<std::filesystem::path> paths;
    for (const QueueRequest::Named& named : request.named)
        paths.emplace_back(named.path);
    TransferEngine::Added added = co_await engine_.add(std::move(paths));
    for (TransferEngine::NotAdded& path : added.notAdded) {
        answer.problems.push_back(std::move(path.sentence));
        // To ask again for what is under way already is no mistake: so one carries on after an interruption.
        if (!path.isInQueue) answer.code = ExitCode::somethingFailed;
    }
    if (added.items > 0)
        answer.results.push_back(fmt::format("Added {}", Format::count(added.items, "file")));
    co_return answer;
}

QueueAnswer QueueDesk::pause() {
    if (!engine_.job()) return saying(std::string(nothingQueued));
    if (engine_.isPaused() && !engine_.pausedByVark()) return saying("The queue is paused already.");
    // A pause of the vark's own becomes the person's, so that a good token does not lift it.
    if (engine_.pausedByVark()) engine_.resume();
    engine_.pause();
    return saying("Paused. Carry on with: vark resume");
}

QueueAnswer QueueDesk::resume() {
    if (!engine_.job()) return saying(std::string(nothingQueued));
    if (!engine_.isPaused()) return saying("The queue is not paused.");
    engine_.resume();
    return saying("Resumed");
}

QueueAnswer QueueDesk::retry() {
    const std::int64_t failed = engine_.overall().filesFailed;
    if (failed == 0) return saying("Nothing has failed.");
    engine_.retryFailed();
    return saying(fmt::format("Trying {} again", Format::count(failed, "file")));
}

std::optional<UUID> QueueDesk::entry(const QueueRequest::Named& named) const {
    const std::vector<TransferEntry>& entries = engine_.job()->entries;
    for (const TransferEntry& entry : entries) {
        if (entry.localPath == named.path || entry.id.text() == named.text) return entry.id;
    }
    std::vector<UUID> ofThatName;
    for (const TransferEntry& entry : entries) {
        if (entry.name == named.text) ofThatName.push_back(entry.id);
    }
    if (ofThatName.size() == 1) return ofThatName.front();
    if (!ofThatName.empty()) return std::nullopt;
    std::size_t number = 0;
    const char* end = named.text.data() + named.text.size();
    auto [stopped, failure] = std::from_chars(named.text.data(), end, number);
    if (failure != std::errc() || stopped != end || number < 1 || number > entries.size())
        return std::nullopt;
    return entries[number - 1].id;
}

QueueAnswer QueueDesk::remove(const QueueRequest& request) {
    QueueAnswer answer;
    if (!engine_.job()) {
        answer.refuse(std::string(nothingQueued));
        return answer;
    }
    // All are found before the first goes: numbers count from what the person has seen.
    std::vector<std::pair<UUID, std::string>> found;
    for (const QueueRequest::Named& named : request.named) {
        std::optional<UUID> id = entry(named);
        if (!id) {
            answer.refuse(
                fmt::format("No single thing in the queue is meant by \"{}\". \"vark queue\" shows the "
                            "names and numbers.",
                            named.text));
            continue;
        }
        found.emplace_back(*id, named.text);
    }
    for (const auto& [id, text] : found) {
        engine_.remove(id);
        answer.results.push_back(fmt::format("Removed {} from the queue", text));
    }
    return answer;
}

Task<QueueAnswer> QueueDesk::clear(QueueRequest request) {
    if (!engine_.job()) co_return saying("The queue is empty.");
    if (request.finishedOnly) {
        const std::size_t before = engine_.job()->entries.size();
        engine_.clearFinished();
        const std::size_t gone = before - engine_.job()->entries.size();
        co_return saying(fmt::format("Cleared {} that landed whole",
                                     Format::count(static_cast<std::int64_t>(gone), "entry", "entries")));
    }
    std::optional<IngestInfo> ingest = engine_.job()->ingest;
    if (ingest && ingest->reported) ingest.reset();
    IngestReport report;
    if (ingest) report = IngestReport::of(*engine_.job(), CardVerdict::of(*engine_.job(), std::nullopt));
    const bool canBeTold = isForThisVark();
    const std::string client = engine_.job()->clientName;
    engine_.clearAll();
    QueueAnswer answer = saying("Cleared the queue. What has landed stays in the vark.");
    if (!ingest) co_return answer;
    if (!canBeTold) {
        answer.refuse(
            fmt::format("The vark of {} could not be told that {} will not come, since this machine "
                        "is connected to {}.",
                        client, ingest->drive, clientName_));
        co_return answer;
    }
    std::optional<std::string> notTold =
        co_await IngestDesk::giveUp(api_, *std::move(ingest), std::move(report));
    if (notTold) answer.refuse(*std::move(notTold));
    co_return answer;
}

std::vector<UUID> QueueDesk::conflicts(const QueueRequest::Named& named) const {
    const std::optional<UUID> whole = entry(named);
    std::vector<UUID> meant;
    std::vector<UUID> ofThatName;
    for (const TransferItem& item : engine_.job()->items) {
        if (item.state != ItemState::conflict) continue;
        const bool isMeant =
            whole ? item.entryID == *whole : item.localPath == named.path || item.relativePath == named.text;
        if (isMeant) meant.push_back(item.id);
        if (item.name() == named.text) ofThatName.push_back(item.id);
    }
    // A bare name decides for one file only: which of several is meant, nobody can tell.
    if (meant.empty() && ofThatName.size() == 1) return ofThatName;
    return meant;
}

QueueAnswer QueueDesk::resolve(const QueueRequest& request) {
    QueueAnswer answer;
    if (!engine_.job() || engine_.overall().filesConflict == 0) {
        answer.results.emplace_back("No decision is waiting.");
        return answer;
    }
    const std::int64_t before = engine_.overall().filesConflict;
    if (request.named.empty()) engine_.resolveAllConflicts(std::nullopt, request.replace);
    for (const QueueRequest::Named& named : request.named) {
        const std::vector<UUID> meant = conflicts(named);
        if (meant.empty())
            answer.refuse(
                fmt::format("No decision waits that is meant by \"{}\". \"vark queue\" shows the "
                            "paths of those that wait.",
                            named.text));
        for (const UUID& id : meant)
            engine_.resolveConflict(id, request.replace);
    }
    const std::int64_t decided = before - engine_.overall().filesConflict;
    if (decided > 0) {
        answer.results.push_back(fmt::format(
            "{} {}", request.replace ? "Will replace in the vark:" : "Left as they are in the vark:",
            Format::count(decided, "file")));
    }
    return answer;
}

}  // namespace vark::cli
