#include "VarkApp/Queue/QueueDesk.h"

#include <fmt/format.h>

#include <charconv>

#include "VarkApp/Queue/IngestDesk.h"
#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::app {

namespace {

using Step = Next::Step;

/// For telling the vark of uploads that are given up; what it is not told it finds out by itself.
constexpr Duration longestWaitForTheVark = std::chrono::seconds(5);
/// Whoever follows an entry asks about it twice a second.
constexpr Duration goneIsKept = std::chrono::seconds(60);

Said nothingQueued() {
    return {"Nothing is in the queue.", {{Step::begin}}};
}

QueueAnswer saying(Said said, std::int64_t changed = 0) {
    QueueAnswer answer;
    answer.changed = changed;
    answer.results.push_back(std::move(said));
    return answer;
}

std::string shownDestination(const std::string& destination) {
    return destination.empty() ? "the top of the vark" : destination;
}

std::string_view doneBy(ConflictRule rule) {
    switch (rule) {
        case ConflictRule::replace:
            return "Will replace in the vark:";
        case ConflictRule::skip:
            return "Left as they are in the vark:";
        case ConflictRule::newer:
            return "Decided by their times:";
        case ConflictRule::keepBoth:
            return "Will be put beside those in the vark:";
    }
}

}  // namespace

Task<QueueAnswer> QueueDesk::carryOut(QueueRequest request) {
    using Command = QueueRequest::Command;
    if (request.command == Command::show) co_return show(request);
    const bool takesOut = request.command == Command::remove || request.command == Command::clear;
    QueueAnswer answer = co_await change(std::move(request));
    const bool isSaved = co_await engine_.saved();
    if (!isSaved)
        answer.refuse({fmt::format("{} What was asked for is not sure to last.",
                                   engine_.saveFailure().value_or("The queue could not be saved.")),
                       {{Step::makeRoom}}});
    if (!takesOut) co_return answer;
    try {
        co_await withTimeout(longestWaitForTheVark, engine_.serverCancelsDone());
    } catch (const TimeoutError&) {
        // The vark drops what nobody finishes by itself, in time.
    }
    co_return answer;
}

Task<QueueAnswer> QueueDesk::change(QueueRequest request) {
    using Command = QueueRequest::Command;
    switch (request.command) {
        case Command::show:
            break;
        case Command::ingest: {
            QueueAnswer answer;
            answer.refuse({"Vark is not connected just now, and a card needs the vark to be brought in.",
                           {{Next::Step::connectAgain}}},
                          Outcome::notConnected);
            co_return answer;
        }
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
    co_return QueueAnswer();
}

QueueAnswer QueueDesk::show(const QueueRequest& request) const {
    QueueAnswer answer;
    if (!request.named.empty()) {
        std::vector<UUID> entries;
        for (const QueueRequest::Named& named : request.named) {
            if (std::optional<UUID> id = UUID::parse(named.text)) entries.push_back(*id);
        }
        answer.queue = viewOf(entries);
        if (request.settledBehind)
            answer.settled = settled_.behind(*request.settledBehind, {entries.begin(), entries.end()});
    } else if (engine_.job()) {
        answer.queue = QueueView::of(engine_, surroundings_.date());
    }
    answer.settledUpTo = settled_.last();
    return answer;
}

QueueView QueueDesk::viewOf(const std::vector<UUID>& entries) const {
    QueueView view = QueueView::of(engine_, entries, surroundings_.date());
    for (const UUID& id : entries) {
        const auto found = gone_.find(id);
        if (found == gone_.end()) continue;
        const EntryProgress& last = found->second.view.progress;
        view.entries.push_back(found->second.view);
        view.overall.filesTotal += last.files;
        view.overall.filesVerified += last.verified;
        view.overall.filesSkipped += last.skipped;
        view.overall.filesChanged += last.changed;
        view.overall.bytesTotal += last.bytesTotal;
        view.overall.bytesDone += last.bytesDone;
    }
    return view;
}

template <class TakeOut>
void QueueDesk::takingOut(TakeOut takeOut) {
    const QueueView before = QueueView::of(engine_, surroundings_.date());
    takeOut();
    const Instant now = surroundings_.clock.now();
    std::erase_if(gone_, [&](const auto& one) { return now - one.second.since > goneIsKept; });
    for (EntryView view : before.entries) {
        const std::optional<UUID> id = UUID::parse(view.id);
        if (engine_.entryProgress().contains(*id)) continue;
        view.isGone = true;
        gone_.insert_or_assign(*id, Gone{std::move(view), now});
    }
    wishes_.keepOnly(engine_.job() ? engine_.job()->entries : std::vector<TransferEntry>());
}

bool QueueDesk::isSettledWhole() const {
    for (const auto& [id, progress] : engine_.entryProgress()) {
        if (!progress.isFinished()) return false;
    }
    return true;
}

std::optional<Said> QueueDesk::whyItMustNotGo() const {
    if (!engine_.job() || isSettledWhole() || isForThisVark()) return std::nullopt;
    const std::string& client = engine_.job()->clientName;
    return Said(fmt::format("The queue that is not finished is for {}, and this machine is connected to {}.",
                            client, clientName_),
                {{Step::connectAgain, fmt::format("Connect to {} again,", client)},
                 {Step::giveUp, "or give the queue up"}});
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
    takingOut([this] { engine_.clearFinished(); });
    engine_.setDestination(destination);
    engine_.setTitle(title);
    engine_.setClientName(clientName_);
}

bool QueueDesk::prepare(const QueueRequest& request, QueueAnswer& answer) {
    const std::string wanted = request.destination.value_or(rootPath_);
    if (engine_.job() && engine_.job()->ingest && !engine_.job()->ingest->reported) {
        answer.refuse(
            {fmt::format("The queue is bringing in {}, and that comes first.", engine_.job()->ingest->drive),
             {{Step::carryOn, "Let it finish"}, {Step::giveUp, "or give it up"}}},
            Outcome::misuse);
        return false;
    }
    if (isSettledWhole()) {
        beginAnew(wanted, request.title.value_or(""));
        return true;
    }
    if (std::optional<Said> reason = whyItMustNotGo()) {
        answer.refuse(*std::move(reason), Outcome::misuse);
        return false;
    }
    const std::string& inForce = engine_.job()->destination;
    if (wanted != inForce) {
        answer.refuse({fmt::format("The queue goes to {}, and this is to go to {}. The whole of a queue goes "
                                   "to one place.",
                                   shownDestination(inForce), shownDestination(wanted)),
                       {{Step::giveUp, "Let it finish first, send this to the same place, or give it up"}}},
                      Outcome::misuse);
        return false;
    }
    if (request.title) engine_.setTitle(*request.title);
    return true;
}

Task<QueueAnswer> QueueDesk::add(QueueRequest request) {
    QueueAnswer answer;
    answer.settledUpTo = settled_.last();
    if (!prepare(request, answer)) co_return answer;
    std::vector<std::filesystem::path> paths;
    for (const QueueRequest::Named& named : request.named)
        paths.emplace_back(named.path);
    const TransferEngine::Added added = co_await engine_.add(std::move(paths), request.walk);
    for (const TransferEngine::NotAdded& path : added.notAdded) {
        answer.problems.emplace_back(path.sentence);
        // To ask again for what is under way already is no mistake: so one carries on after an interruption.
        if (!path.isInQueue) answer.outcome = Outcome::failed;
    }
    for (const UUID& id : added.entries)
        answer.entries.push_back(id.text());
    wishes_.set(added.entries, request.wish);
    noteLeftOut(added.passedOver, answer);
    answer.changed = added.items + added.again;
    if (added.items > 0)
        answer.results.emplace_back(fmt::format("Added {}", Format::count(added.items, "file")));
    if (added.again > 0)
        answer.results.emplace_back(
            fmt::format("Added again {} that changed", Format::count(added.again, "file")));
    co_return answer;
}

void QueueDesk::noteLeftOut(const std::vector<Walker::PassedOver>& passedOver, QueueAnswer& answer) {
    answer.leftOut = LeftOut::of(passedOver);
    if (const std::optional<std::string> sentence = answer.leftOut.sentence())
        surroundings_.log().write(*sentence);
    for (std::string& sentence : unreadableSentences(passedOver)) {
        surroundings_.log().write(sentence);
        answer.refuse(std::move(sentence));
    }
}

std::optional<ConflictRule> QueueDesk::ruleFor(const UUID& entry) const {
    const std::optional<ConflictRule> wished = wishes_.of(entry).onConflict;
    return wished ? wished : usualRule_;
}

void QueueDesk::wish(const std::vector<std::string>& entries, const Wish& wish) {
    std::vector<UUID> ids;
    for (const std::string& text : entries) {
        if (std::optional<UUID> id = UUID::parse(text)) ids.push_back(*id);
    }
    wishes_.set(ids, wish);
}

bool QueueDesk::isDecidedAsWished(const TransferItem& item) const {
    const std::optional<ConflictRule> rule = ruleFor(item.entryID);
    return rule && (*rule != ConflictRule::newer || newerOf(item));
}

void QueueDesk::decideAsWished() {
    if (!engine_.job()) return;
    for (const TransferEntry& entry : engine_.job()->entries) {
        if (const std::optional<ConflictRule> rule = ruleFor(entry.id)) engine_.decideAll(entry.id, *rule);
    }
}

QueueAnswer QueueDesk::pause() {
    if (!engine_.job()) return saying(nothingQueued());
    if (engine_.isPaused() && !engine_.pausedByVark()) return saying("The queue is paused already.");
    // A pause of the vark's own becomes the person's, so that a good token does not lift it.
    if (engine_.pausedByVark()) engine_.resume();
    engine_.pause();
    return saying({"Paused.", {{Step::resume}}}, 1);
}

QueueAnswer QueueDesk::resume() {
    if (!engine_.job()) return saying(nothingQueued());
    if (!engine_.isPaused()) return saying("The queue is not paused.");
    engine_.resume();
    return saying("Resumed", 1);
}

QueueAnswer QueueDesk::retry() {
    engine_.recompute();
    const std::int64_t failed = engine_.overall().filesFailed;
    if (failed == 0) return saying("Nothing has failed.");
    engine_.retryFailed();
    return saying(fmt::format("Trying {} again", Format::count(failed, "file")), failed);
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
        answer.refuse(nothingQueued());
        return answer;
    }
    // All are found before the first goes: numbers count from what the person has seen.
    std::vector<std::pair<UUID, std::string>> found;
    for (const QueueRequest::Named& named : request.named) {
        std::optional<UUID> id = entry(named);
        if (!id) {
            answer.refuse({fmt::format("No single thing in the queue is meant by \"{}\".", named.text),
                           {{Step::watch, "the names and numbers"}}});
            continue;
        }
        found.emplace_back(*id, named.text);
    }
    std::unordered_set<UUID> all;
    for (const auto& [id, text] : found) {
        all.insert(id);
        answer.results.emplace_back(fmt::format("Removed {} from the queue", text));
        ++answer.changed;
    }
    takingOut([&] { engine_.remove(all); });
    return answer;
}

Task<QueueAnswer> QueueDesk::clear(QueueRequest request) {
    if (!engine_.job()) co_return saying("The queue is empty.");
    const auto before = static_cast<std::int64_t>(engine_.job()->entries.size());
    if (request.finishedOnly) {
        takingOut([this] { engine_.clearFinished(); });
        const std::int64_t gone = before - static_cast<std::int64_t>(engine_.job()->entries.size());
        co_return saying(fmt::format("Cleared {} that landed whole", Format::count(gone, "entry", "entries")),
                         gone);
    }
    std::optional<IngestInfo> ingest = engine_.job()->ingest;
    if (ingest && ingest->reported) ingest.reset();
    IngestReport report;
    if (ingest) report = IngestReport::of(*engine_.job(), CardVerdict::of(*engine_.job(), std::nullopt));
    const bool canBeTold = isForThisVark();
    const std::string client = engine_.job()->clientName;
    takingOut([this] { engine_.clearAll(); });
    QueueAnswer answer = saying("Cleared the queue. What has landed stays in the vark.", before);
    if (!ingest) co_return answer;
    if (!canBeTold) {
        answer.refuse(
            fmt::format("The vark of {} could not be told that {} will not come, since this machine "
                        "is connected to {}.",
                        client, ingest->drive, clientName_));
        co_return answer;
    }
    std::optional<Said> notTold = co_await IngestDesk::giveUp(api_, *std::move(ingest), std::move(report));
    if (notTold) answer.refuse(*std::move(notTold));
    co_return answer;
}

std::vector<UUID> QueueDesk::conflicts(const QueueRequest::Named& named) const {
    const std::optional<UUID> whole = entry(named);
    std::vector<UUID> meant;
    std::vector<UUID> ofThatName;
    for (const std::size_t place : engine_.conflicts()) {
        const TransferItem& item = engine_.job()->items[place];
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
    engine_.recompute();
    if (!engine_.job() || engine_.overall().filesConflict == 0) {
        answer.results.emplace_back("No decision is waiting.");
        return answer;
    }
    const ConflictRule rule = request.rule;
    const std::int64_t before = engine_.overall().filesConflict;
    if (request.named.empty()) engine_.decideAll(std::nullopt, rule);
    for (const QueueRequest::Named& named : request.named) {
        const std::vector<UUID> meant = conflicts(named);
        if (meant.empty())
            answer.refuse({fmt::format("No decision waits that is meant by \"{}\".", named.text),
                           {{Step::watch, "the paths of those that wait"}}});
        for (const UUID& id : meant)
            engine_.decide(id, rule);
    }
    const std::int64_t decided = before - engine_.overall().filesConflict;
    answer.changed = decided;
    if (decided > 0) {
        answer.results.emplace_back(fmt::format("{} {}", doneBy(rule), Format::count(decided, "file")));
    } else if (rule == ConflictRule::newer && answer.problems.empty()) {
        answer.refuse({"The vark has not said from when its files are.", {{Step::decide, ""}}});
    }
    return answer;
}

}  // namespace vark::app
