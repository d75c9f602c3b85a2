#include "Hosts/CLI/IngestDesk.h"

#include <fmt/ranges.h>

#include "VarkCore/API/VarkAPIError.h"
#include "VarkCore/Transfer/Format.h"
#include "VarkCore/Transfer/PendingDrop.h"

namespace vark::cli {

namespace {

/// How often the vark is told of the end before a person is asked to try later, and the first of the waits
/// in between, each twice as long as the one before.
constexpr int mostReports = 4;
constexpr Duration firstWait = std::chrono::seconds(2);

QueueAnswer refusing(std::string sentence, ExitCode code = ExitCode::somethingFailed) {
    QueueAnswer answer;
    answer.refuse(std::move(sentence), code);
    return answer;
}

std::string summaryOf(const IngestWish& wish, const Walker::Result& card) {
    const DropSource source(DropSource::Volume{wish.volume.name, wish.isCard});
    PendingDrop drop(UUID::random(), {wish.volume.path}, source, wish.title);
    drop.fileCount = static_cast<std::int64_t>(card.files.size());
    drop.totalBytes = card.totalBytes();
    return fmt::format("{} {}", drop.summary(), drop.source.describe());
}

IngestInfo infoFor(const IngestWish& wish, const IngestStart& start, Date now) {
    IngestInfo info;
    info.id = start.id;
    info.drive = wish.volume.name;
    info.volumePath = wish.volume.path.string();
    info.volumeUUID = wish.volume.id;
    info.emailMe = wish.emailMe;
    info.leftOut = wish.leaveOut;
    info.startedAt = now;
    return info;
}

/// The announcement, or why it was not taken.
struct Announced {
    std::optional<IngestStart> start;
    std::string failure;
    ExitCode code = ExitCode::somethingFailed;
};

Task<Announced> announce(std::shared_ptr<VarkAPI> api, std::string drive, std::string destination,
                         std::int64_t files, std::int64_t bytes, bool emailMe) {
    Announced announced;
    try {
        announced.start = co_await api->ingestBegin(drive, destination, files, bytes, emailMe);
    } catch (const VarkAPIError& error) {
        announced.failure = error.errorDescription();
        if (error.isSignOut()) announced.code = ExitCode::notConnected;
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
    try {
        co_return co_await surroundings_.pool().run(
            [this, &path] { return Walker::walk(path, surroundings_.platform.volumes()); });
    } catch (const std::exception& error) {
        surroundings_.log().write(fmt::format("Could not look through {}: {}", path.string(), error.what()));
    }
    co_return std::nullopt;
}

std::optional<std::string> IngestDesk::whyItMustWait() const {
    if (!isOpen() && queue_.isSettledWhole()) return std::nullopt;
    return fmt::format(
        "{}, and a card needs the queue for itself. Finish it with: vark send, or give it up with: "
        "vark clear",
        isOpen() ? "The queue is still bringing in another card, " + ingest()->drive
                 : "The queue is not finished");
}

Task<QueueAnswer> IngestDesk::open(IngestWish wish) {
    if (std::optional<std::string> reason = whyItMustWait())
        co_return refusing(*std::move(reason), ExitCode::usage);
    const std::string name = wish.volume.name;
    std::optional<Walker::Result> card = co_await walkCard(wish.volume.path);
    if (!card) {
        co_return refusing(fmt::format("{} could not be read. Look at why with: vark log, and try again.",
                                       wish.volume.path.string()));
    }
    const std::vector<std::string> namingNothing = leaveOut(*card, wish.leaveOut);
    if (!namingNothing.empty()) {
        co_return refusing(
            fmt::format("Nothing that is sent from {} is called {}. Give --leave-out the names "
                        "as they stand on it, like DCIM/100EOS.",
                        name, fmt::join(namingNothing, ", ")),
            ExitCode::usage);
    }
    QueueAnswer answer;
    answer.results.push_back(summaryOf(wish, *card));
    for (const Walker::PassedOver& passed : card->passedOver) {
        if (passed.kind != Walker::PassedOver::Kind::unreadable) continue;
        answer.problems.push_back(
            fmt::format("This folder cannot be read and is not sent: {}", passed.relativePath));
    }
    if (card->files.empty()) co_return answer;

    const auto files = static_cast<std::int64_t>(card->files.size());
    const std::int64_t bytes = card->totalBytes();
    const Announced announced = co_await announce(api_, name, wish.destination, files, bytes, wish.emailMe);
    if (!announced.start) {
        co_return refusing(fmt::format("The vark did not take the announcement of {}: {} Nothing has been "
                                       "sent. Try again with: vark ingest",
                                       name, announced.failure),
                           announced.code);
    }
    if (!announced.start->fits) {
        const std::string room = announced.start->free ? fmt::format(", and {} are free there",
                                                                     Format::bytes(*announced.start->free))
                                                       : "";
        co_await turnAway(wish, *announced.start, *std::move(card));
        co_return refusing(
            fmt::format("{} does not fit into the vark: it takes {}{}. Nothing has been sent. "
                        "Make room there, or leave something out with --leave-out.",
                        name, Format::bytes(bytes), room));
    }
    queue_.beginAnew(wish.destination, wish.title);
    engine_.setIngest(infoFor(wish, *announced.start, surroundings_.date()));
    engine_.addWalked(wish.volume.path, *card);
    // From here on a run that is killed carries on, and does not announce the card again.
    engine_.flush();
    co_return answer;
}

Task<void> IngestDesk::turnAway(IngestWish wish, IngestStart start, Walker::Result card) {
    TransferJob job;
    job.destination = wish.destination;
    job.ingest = infoFor(wish, start, surroundings_.date());
    for (const Walker::Found& file : card.files) {
        TransferItem item;
        item.relativePath = file.relativePath;
        item.localPath = (wish.volume.path.parent_path() / file.relativePath).string();
        item.size = file.size;
        item.error = "There is no room for the card in the vark.";
        job.items.push_back(std::move(item));
    }
    try {
        co_await api_->ingestFinish(start.id, {}, job.ingest->leftOut,
                                    IngestReport::of(job, std::nullopt).notSent);
    } catch (const VarkAPIError& error) {
        surroundings_.log().write(
            fmt::format("The end of an ingest was not told: {}", error.errorDescription()));
    }
}

Task<IngestDesk::Closing> IngestDesk::close() {
    std::optional<Walker::Result> card;
    if (ingest()->driveIsHere(surroundings_.platform.volumes())) {
        const std::filesystem::path path = ingest()->volumePath;
        card = co_await walkCard(path);
    }
    // Meanwhile the queue may have been cleared, or the card pulled out in the middle of the look.
    if (ingest() == nullptr) co_return Closing{};
    if (!ingest()->driveIsHere(surroundings_.platform.volumes())) card.reset();
    if (card) leaveOut(*card, ingest()->leftOut);
    Closing closing{CardVerdict::of(*engine_.job(), card), std::nullopt};
    if (owesReport()) closing.notReported = co_await report(IngestReport::of(*engine_.job(), card));
    co_return closing;
}

Task<std::optional<std::string>> IngestDesk::report(IngestReport report) {
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
            co_return fmt::format(
                "The vark could not be told that the ingest of {} is over: {} Tell it again "
                "with: vark send",
                drive, failure->errorDescription());
        }
        co_await sleepFor(firstWait * (1 << (attempt - 1)));
    }
    if (ingest() != nullptr && ingest()->id == id) engine_.ingestReported();
    surroundings_.log().write(fmt::format("Reported the ingest of {}: {}", drive, summary));
    co_return std::nullopt;
}

}  // namespace vark::cli
