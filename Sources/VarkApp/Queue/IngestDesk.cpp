#include "VarkApp/Queue/IngestDesk.h"

#include <fmt/ranges.h>

#include "VarkApp/Queue/QueueWords.h"
#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Transfer/Format.h"
#include "VarkCore/Transfer/Queue/PendingDrop.h"

namespace vark::app {

namespace {

using Step = Next::Step;

/// How often the vark is told of the end before a person is asked to try later, and the first of the waits
/// in between, each twice as long as the one before.
constexpr int mostReports = 4;
constexpr Duration firstWait = std::chrono::seconds(2);
/// For telling the vark that a card is given up: somebody waits for it.
constexpr Duration longestFarewell = std::chrono::seconds(4);

IngestDesk::Opening refusing(Said said, Outcome why = Outcome::failed) {
    IngestDesk::Opening opening;
    opening.answer.refuse(std::move(said), why);
    return opening;
}

IngestDesk::Opening namingNothing(const std::string& card, const std::vector<std::string>& paths) {
    return refusing(fmt::format("Nothing on {} is called {}. Give the names as they stand on it, like "
                                "DCIM/100EOS.",
                                card, fmt::join(paths, ", ")),
                    Outcome::misuse);
}

std::string summaryOf(const IngestWish& wish, const Walker::Result& card) {
    const DropSource source(DropSource::Volume{wish.volume.name, wish.isCard});
    PendingDrop drop(UUID::random(), {wish.volume.path}, source, wish.title);
    drop.fileCount = static_cast<std::int64_t>(card.files.size());
    drop.totalBytes = card.totalBytes();
    return fmt::format("{} {}", drop.summary(), drop.source.describe());
}

IngestInfo infoFor(const IngestWish& wish, const IngestStart& start, const Walker::Result& card, Date now) {
    IngestInfo info;
    info.id = start.id;
    info.drive = wish.volume.name;
    info.volumePath = wish.volume.path.string();
    info.volumeUUID = wish.volume.id;
    info.emailMe = wish.emailMe;
    info.leftOut = wish.leaveOut;
    info.unlisted = unlistedOf(card);
    info.startedAt = now;
    return info;
}

/// Keeps an engine from sending for as long as it lives.
class HeldBack {
  public:
    explicit HeldBack(TransferEngine& engine) : engine_(engine) {
        engine_.setHold(kind, "The card is being taken in.");
    }
    ~HeldBack() { engine_.clearHold(kind); }
    HeldBack(const HeldBack&) = delete;
    HeldBack& operator=(const HeldBack&) = delete;

  private:
    static constexpr const char* kind = "announcing";
    TransferEngine& engine_;
};

/// The announcement, or why it was not taken.
struct Announced {
    std::optional<IngestStart> start;
    std::string failure;
    Outcome outcome = Outcome::failed;
};

Task<Announced> announce(std::shared_ptr<VarkAPI> api, std::string drive, std::string destination,
                         std::int64_t files, std::int64_t bytes, bool emailMe) {
    Announced announced;
    try {
        announced.start = co_await api->ingestBegin(drive, destination, files, bytes, emailMe);
    } catch (const VarkAPIError& error) {
        announced.failure = error.errorDescription();
        if (error.isSignOut()) announced.outcome = Outcome::notConnected;
    }
    co_return announced;
}

}  // namespace

const IngestInfo* IngestDesk::ingest() const {
    return engine_.job() && engine_.job()->ingest ? &*engine_.job()->ingest : nullptr;
}

bool IngestDesk::owesReport() const {
    return isOpen() && engine_.overall().allSettled() && engine_.overall().filesConflict == 0;
}

Task<std::optional<Walker::Result>> IngestDesk::walkCard(std::filesystem::path path) {
    const std::stop_token stop = co_await thisToken();
    const auto walk = [&] {
        return Walker::walk(path, surroundings_.platform.volumes(), Walker::Options(), stop);
    };
    try {
        co_return co_await surroundings_.pool().run(walk);
    } catch (const std::exception& error) {
        surroundings_.log().write(fmt::format("Could not look through {}: {}", path.string(), error.what()));
    }
    co_return std::nullopt;
}

std::optional<Said> IngestDesk::whyItMustWait() const {
    if (!isOpen() && queue_.isSettledWhole()) return std::nullopt;
    const std::string why = isOpen() ? "The queue is still bringing in another card, " + ingest()->drive
                                     : "The queue is not finished";
    Said said(why + ", and a card needs the queue for itself.", {{Step::carryOn, "Finish it"}});
    if (engine_.overall().filesFailed > 0) said.next.push_back({Step::retry, "for what has failed"});
    said.next.push_back({Step::giveUp, "or give it up"});
    return said;
}

bool IngestDesk::bringsIn(const Volume& card) const {
    if (ingest() == nullptr || (ingest()->reported && queue_.isSettledWhole())) return false;
    return ingest()->volumePath == card.path && ingest()->volumeUUID == card.id;
}

std::string IngestDesk::notSaved() const {
    return fmt::format("{} Until it can be saved, what is done now is not sure to last.",
                       engine_.saveFailure().value_or("The queue could not be saved."));
}

Task<IngestDesk::Opening> IngestDesk::carryOn(IngestWish wish) {
    const TransferJob& job = *engine_.job();
    const std::string drive = ingest()->drive;
    if (std::optional<Said> reason = queue_.whyItMustNotGo())
        co_return refusing(*std::move(reason), Outcome::misuse);
    if (wish.asksForDestination && wish.destination != job.destination) {
        co_return refusing(
            {fmt::format("{} is being brought into {}, and the whole of it goes to one place.", drive,
                         job.destination.empty() ? "the top of the vark" : job.destination),
             {{Step::carryOn, "Carry on without another place,"}, {Step::giveUp, "or give it up"}}},
            Outcome::misuse);
    }
    if (wish.emailMe && !ingest()->emailMe) {
        co_return refusing(
            {fmt::format("The vark was told that nobody wants a mail about {} when it was begun.", drive),
             {{Step::carryOn, "Carry on without a mail,"}, {Step::giveUp, "or give it up"}}},
            Outcome::misuse);
    }
    std::vector<std::string> unknown;
    for (const std::string& path : wish.leaveOut) {
        const auto isMeant = [&](std::string_view source) { return IngestInfo::isAtOrBelow(source, path); };
        const auto isMeantItem = [&](const TransferItem& item) {
            return isMeant(ingest()->source(item.localPath));
        };
        if (!ingest()->leavesOut(path) && std::ranges::none_of(job.items, isMeantItem) &&
            std::ranges::none_of(ingest()->unlisted, isMeant, &IngestInfo::Unlisted::source))
            unknown.push_back(path);
    }
    if (!unknown.empty()) co_return namingNothing(drive, unknown);
    Opening opening;
    opening.goesOn = true;
    opening.answer.results.push_back(fmt::format("Carrying on with {}.", drive));
    if (!wish.leaveOut.empty()) engine_.leaveOut(wish.leaveOut);
    const auto landed = std::ranges::count_if(job.items, [&](const TransferItem& item) {
        return item.state == ItemState::verified &&
               std::ranges::any_of(wish.leaveOut, [&](const std::string& path) {
                   return IngestInfo::isAtOrBelow(ingest()->source(item.localPath), path);
               });
    });
    if (landed > 0)
        opening.answer.problems.push_back(
            fmt::format("{} of what is to be left out landed before, and {} in the vark.",
                        Format::count(landed, "file"), landed == 1 ? "stays" : "stay"));
    engine_.retryFailed();
    if (!co_await engine_.saved()) opening.answer.problems.push_back(notSaved());
    co_return opening;
}

Task<IngestDesk::Opening> IngestDesk::open(IngestWish wish) {
    if (bringsIn(wish.volume)) co_return co_await carryOn(std::move(wish));
    if (owesReport()) {
        const Closing before = co_await close();
        if (before.notReported) co_return refusing(*before.notReported);
    }
    if (std::optional<Said> reason = whyItMustWait()) co_return refusing(*std::move(reason), Outcome::misuse);
    const std::string name = wish.volume.name;
    std::optional<Walker::Result> card = co_await walkCard(wish.volume.path);
    if (!card) {
        co_return refusing(
            {fmt::format("{} could not be read.", wish.volume.path.string()), {{Step::seeDiary}}});
    }
    const std::vector<std::string> unknown = leaveOut(*card, wish.leaveOut);
    if (!unknown.empty()) co_return namingNothing(name, unknown);
    Opening opening;
    opening.answer.results.push_back(summaryOf(wish, *card));
    if (card->files.empty()) {
        TransferJob nothing;
        nothing.ingest = infoFor(wish, {}, *card, surroundings_.date());
        const CardVerdict verdict = CardVerdict::of(nothing, card);
        if (verdict.isSafe()) co_return opening;
        for (std::string& line : verdictLines(verdict))
            opening.answer.refuse(std::move(line));
        co_return opening;
    }
    for (const Walker::PassedOver& passed : card->passedOver) {
        if (passed.kind != Walker::PassedOver::Kind::unreadable) continue;
        opening.answer.problems.push_back(
            fmt::format("This folder cannot be read and is not sent: {}", passed.relativePath));
    }

    const auto files = static_cast<std::int64_t>(card->files.size());
    const std::int64_t bytes = card->totalBytes();
    const Announced announced = co_await announce(api_, name, wish.destination, files, bytes, wish.emailMe);
    if (!announced.start) {
        co_return refusing(
            {fmt::format("The vark did not take the announcement of {}: {} Nothing has been sent.", name,
                         announced.failure),
             {{Step::bringIn, "Try again"}}},
            announced.outcome);
    }
    if (!announced.start->fits) {
        const std::string room = announced.start->free ? fmt::format(", and {} are free there",
                                                                     Format::bytes(*announced.start->free))
                                                       : "";
        co_await turnAway(wish, *announced.start, *card);
        co_return refusing(
            fmt::format("{} does not fit into the vark: it takes {}{}. Nothing has been sent. "
                        "Make room there, or leave something out.",
                        name, Format::bytes(bytes), room));
    }
    // Nothing of it is sent before the queue that says so is on the disk: a run that is killed would leave
    // the announcement without a report, and announce the card again.
    const HeldBack whileItIsSaved(engine_);
    queue_.beginAnew(wish.destination, wish.title);
    engine_.setIngest(infoFor(wish, *announced.start, *card, surroundings_.date()));
    if (!engine_.addWalked(wish.volume.path, *card)) {
        engine_.setIngest(std::nullopt);
        co_return refusing(
            fmt::format("{} was not taken in, since this run is ending. Nothing of it has been sent.", name));
    }
    // From here on a run that is killed carries on, and does not announce the card again.
    if (!co_await engine_.saved()) opening.answer.problems.push_back(notSaved());
    opening.goesOn = true;
    co_return opening;
}

Task<void> IngestDesk::turnAway(IngestWish wish, IngestStart start, const Walker::Result& card) {
    TransferJob job;
    job.destination = wish.destination;
    job.ingest = infoFor(wish, start, card, surroundings_.date());
    for (const Walker::Found& file : card.files) {
        TransferItem item;
        item.relativePath = file.relativePath;
        item.localPath = (wish.volume.path.parent_path() / file.relativePath).string();
        item.size = file.size;
        item.error = "There is no room for the card in the vark.";
        job.items.push_back(std::move(item));
    }
    IngestReport report = IngestReport::of(job, CardVerdict::of(job, std::nullopt));
    try {
        co_await api_->ingestFinish(start.id, std::move(report.skipped), std::move(report.leftOut),
                                    std::move(report.notSent));
    } catch (const VarkAPIError& error) {
        surroundings_.log().write(
            fmt::format("The end of an ingest was not told: {}", error.errorDescription()));
    }
}

Task<std::optional<Walker::Result>> IngestDesk::lookThroughCard(IngestInfo ingest) {
    const Volumes& volumes = surroundings_.platform.volumes();
    const std::filesystem::path path = ingest.volumePath;
    const auto isHere = [&] { return ingest.driveIsHere(volumes); };
    if (!co_await surroundings_.pool().run(isHere)) co_return std::nullopt;
    std::optional<Walker::Result> card = co_await walkCard(path);
    // What was seen counts only if the card was there to the end.
    if (!co_await surroundings_.pool().run(isHere)) co_return std::nullopt;
    co_return card;
}

Task<IngestDesk::Closing> IngestDesk::close() {
    const std::optional<Walker::Result> card = co_await lookThroughCard(ingest()->place());
    // Meanwhile the queue may have been cleared.
    if (ingest() == nullptr) co_return Closing{};
    Closing closing{CardVerdict::of(*engine_.job(), card), std::nullopt};
    if (owesReport() && !queue_.isForThisVark()) {
        const std::string& client = engine_.job()->clientName;
        closing.notReported.emplace(
            fmt::format("{} was brought into the vark of {}, which waits to be told that it is over.",
                        ingest()->drive, client),
            std::vector<Next>{{Step::connectAgain, fmt::format("Connect to {} again,", client)},
                              {Step::carryOn, "then tell it"}});
    } else if (owesReport()) {
        closing.notReported = co_await report(IngestReport::of(*engine_.job(), closing.verdict));
    }
    co_return closing;
}

Task<std::optional<Said>> IngestDesk::giveUp(std::shared_ptr<VarkAPI> api, IngestInfo ingest,
                                             IngestReport report) {
    std::string why = "it did not answer in time.";
    try {
        co_await withTimeout(longestFarewell,
                             api->ingestFinish(ingest.id, std::move(report.skipped),
                                               std::move(report.leftOut), std::move(report.notSent)));
        co_return std::nullopt;
    } catch (const VarkAPIError& error) {
        why = error.errorDescription();
    } catch (const TimeoutError&) {
        // As it stands.
    }
    co_return fmt::format(
        "The vark could not be told that {} will not come, and goes on showing it as being "
        "brought in: {}",
        ingest.drive, why);
}

Task<std::optional<Said>> IngestDesk::report(IngestReport report) {
    const std::int64_t id = ingest()->id;
    const std::string drive = ingest()->drive;
    const std::string summary = report.summary();
    for (int attempt = 1;; ++attempt) {
        std::optional<VarkAPIError> failure;
        try {
            co_await api_->ingestFinish(id, report.skipped, report.leftOut, report.notSent);
        } catch (const VarkAPIError& error) {
            failure = error;
        }
        if (!failure) break;
        if (!failure->isRetryable() || attempt >= mostReports) {
            co_return Said(fmt::format("The vark could not be told that the ingest of {} is over: {}", drive,
                                       failure->errorDescription()),
                           {{Step::carryOn, "Tell it again"}});
        }
        co_await sleepFor(firstWait * (1 << (attempt - 1)));
    }
    if (ingest() != nullptr && ingest()->id == id) engine_.ingestReported();
    surroundings_.log().write(fmt::format("Reported the ingest of {}: {}", drive, summary));
    co_return std::nullopt;
}

}  // namespace vark::app
