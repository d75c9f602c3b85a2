#include "Hosts/CLI/Sending/Following.h"

#include <algorithm>

#include "Hosts/CLI/NextWords.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::cli {

namespace {

/// Costs whoever has the queue these entries alone.
constexpr Duration lookAgain = std::chrono::milliseconds(500);

QueueRequest about(const Followed& followed) {
    QueueRequest request;
    for (const std::string& id : followed.taken.entries)
        request.named.push_back({id, ""});
    request.settledBehind = followed.taken.settledUpTo;
    return request;
}

/// Nothing when it could not be asked just now, for lack of room.
Task<std::optional<Asked>> asked(Asking& asking, QueueRequest request) {
    try {
        co_return co_await asking.ask(std::move(request));
    } catch (const FileError&) {
        co_return std::nullopt;
    }
}

/// Whether the other run has still to decide about something.
bool isBeingDecided(const Followed& followed, const QueueView& view) {
    if (!followed.rule || view.overall.filesConflict == 0) return false;
    if (*followed.rule != ConflictRule::newer) return true;
    return std::ranges::any_of(view.files, [](const FileView& file) {
        return file.state == ItemState::conflict && file.standing && file.standing->mtime;
    });
}

/// Whether the card is still to be closed.
bool waitsForTheCard(const Followed& followed, const QueueAnswer& answer) {
    if (!followed.isCard || answer.card || answer.queue->overall.filesConflict > 0) return false;
    return std::ranges::none_of(answer.queue->entries, &EntryView::isGone);
}

ExitCode finish(const Followed& followed, const QueueView& view, SendDisplay& display,
                const std::optional<CardClosed>& card = std::nullopt) {
    bool wasLeftBehind =
        followed.taken.outcome != Outcome::done || view.entries.size() < followed.taken.entries.size();
    // A queue that holds this card no more tells of another one.
    const bool isInTheQueue = std::ranges::none_of(view.entries, &EntryView::isGone);
    if (followed.isCard && card && isInTheQueue) {
        display.cardClosed(card->verdict);
        if (card->notReported) display.say(inWords(*card->notReported));
        wasLeftBehind = wasLeftBehind || !card->endsWell();
    } else if (followed.isCard && view.overall.filesConflict == 0) {
        display.say(
            "The card was taken out of the queue before it was looked through again. Do not clear it yet; "
            "bring "
            "it in once more to be sure.");
        wasLeftBehind = true;
    }
    const ExitCode code = outcomeOf(view, wasLeftBehind);
    if (view.entries.size() < followed.taken.entries.size())
        display.say(
            "Some of it stands in the queue no more, and whether it has landed is not known. Send it again "
            "to "
            "be sure.");
    if (followed.taken.leftOut.hasAny()) display.leftOut(followed.taken.leftOut);
    display.finish(view, code);
    return code;
}

}  // namespace

std::vector<UUID> Followed::entries() const {
    std::vector<UUID> ids;
    for (const std::string& text : taken.entries) {
        if (std::optional<UUID> id = UUID::parse(text)) ids.push_back(*id);
    }
    return ids;
}

ExitCode outcomeOf(const QueueView& view, bool wasLeftBehind) {
    const Overall& overall = view.overall;
    if (wasLeftBehind || overall.filesFailed > 0 || overall.filesChanged > 0 || view.filesTakenAway() > 0)
        return ExitCode::somethingFailed;
    return overall.filesConflict > 0 ? ExitCode::decisionWaits : ExitCode::allLanded;
}

Task<std::optional<ExitCode>> follow(Surroundings& surroundings, SendDisplay& display, Followed followed,
                                     QueueLock& lock) {
    QueueRequest look = about(followed);
    Asking asking(surroundings);
    std::optional<Instant> pausedSince;
    bool wasSilent = false;
    while (true) {
        std::optional<Asked> answer = co_await asked(asking, look);
        if (answer && answer->lock) lock = std::move(answer->lock);
        if (lock) co_return std::nullopt;
        const bool isSilent = answer && !answer->answer.queue;
        if (isSilent && !wasSilent) display.say("The vark that has taken this on does not answer just now.");
        wasSilent = isSilent;
        if (answer && answer->answer.queue) {
            const QueueView& view = *answer->answer.queue;
            look.settledBehind = answer->answer.settledUpTo;
            for (const SettledFile& file : answer->answer.settled)
                display.fileSettled(file);
            display.show(view);
            if (view.isSettled() && !isBeingDecided(followed, view) &&
                !waitsForTheCard(followed, answer->answer))
                co_return finish(followed, view, display, answer->answer.card);
            if (!view.paused) pausedSince.reset();
            if (view.paused && !pausedSince) pausedSince = surroundings.clock.now();
            if (pausedSince && !followed.somebodyIsThere &&
                surroundings.clock.now() - *pausedSince >= longestPauseUnseen) {
                display.breakOff(
                    "The queue is paused, and nobody is here to resume it. What was handed over stays in it; "
                    "carry on with: vark resume");
                co_return ExitCode::notConnected;
            }
        }
        lock = co_await asking.waitForTheQueue(lookAgain);
        if (lock) co_return std::nullopt;
    }
}

std::optional<ExitCode> endOf(const Followed& followed, const std::optional<TransferJob>& saved,
                              SendDisplay& display) {
    const QueueView view = saved ? QueueView::of(*saved, followed.entries()) : QueueView();
    // A card is closed by whoever has the queue.
    if (!view.isSettled() || followed.isCard) return std::nullopt;
    return finish(followed, view, display);
}

}  // namespace vark::cli
