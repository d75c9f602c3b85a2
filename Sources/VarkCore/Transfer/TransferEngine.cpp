#include "VarkCore/Transfer/TransferEngine.h"

#include <fmt/format.h>

#include <array>
#include <cassert>

#include "VarkCore/Transfer/Format.h"

namespace vark {

namespace {

// In the order in which they are shown when several are in force.
constexpr std::array<std::string_view, 5> kindsOfHold = {"drive", "sleep", "network", "schedule",
                                                         "announcing"};
constexpr Duration tickLength = std::chrono::milliseconds(500);
constexpr Duration rateWindow = std::chrono::seconds(12);
constexpr int minutesOfADay = 24 * 60;

}  // namespace

TransferEngine::TransferEngine(std::shared_ptr<VarkAPI> api, QueueStore& store, TransferLog& log,
                               int chunkSlots, Host host)
    : host_(std::move(host)),
      api_(std::move(api)),
      store_(store),
      log_(log),
      chunkWidth_(static_cast<std::size_t>(std::max(chunkSlots, 1))),
      chunkRoom_(chunkSlots),
      scope_(host_.executor, host_.clock) {}

TransferEngine::~TransferEngine() {
    quitting_ = true;
}

void TransferEngine::assertOnExecutor() const {
    assert(host_.executor.isCurrent());
}

void TransferEngine::send(const Event& event) const {
    if (onEvent) onEvent(event);
}

void TransferEngine::setOfficeHours(const OfficeHours& hours) {
    std::function<OfficeHours(Date)> at;
    if (hours.onlyOutside) at = [hours](Date) { return hours; };
    setOfficeHours(std::move(at));
}

void TransferEngine::setOfficeHours(std::function<OfficeHours(Date)> at) {
    assertOnExecutor();
    hoursAt_ = std::move(at);
    keepHours(true);
}

void TransferEngine::open() {
    assertOnExecutor();
    if (!job_) {
        try {
            job_ = store_.load();
        } catch (const std::exception&) {
            // The file stands as it is until the next save, and the run begins with nothing.
        }
        if (job_) {
            rebuildIndex();
            log_.write(fmt::format("Picked up the saved queue: {} for {}",
                                   Format::count(static_cast<std::int64_t>(job_->items.size()), "file"),
                                   job_->destination.empty() ? "the vark root" : job_->destination));
        }
    }
    recompute();
}

void TransferEngine::start(bool watchNetwork) {
    quitting_ = false;
    mayStart_ = true;
    open();
    if (watchNetwork && !monitor_) {
        monitor_ = host_.makePathMonitor();
        monitor_->start([this](bool usable) { scope_.start(networkChanged(usable)); });
    }
    lookForTheDrive();
    keepHours(true);
    pump();
}

void TransferEngine::keepTicking() {
    if (ticker_.done()) ticker_ = scope_.start(ticking());
}

Task<void> TransferEngine::ticking() {
    // What is published last is of a queue in which nothing moves any more.
    do {
        co_await sleepFor(tickLength);
        recompute();
    } while (!tasks_.empty() || !samples_.empty());
}

Task<void> TransferEngine::networkChanged(bool usable) {
    if (quitting_) co_return;
    if (usable) {
        clearHold("network");
    } else {
        setHold("network", "Waiting for the network");
    }
    co_return;
}

void TransferEngine::setHold(const std::string& kind, const std::string& reason) {
    assertOnExecutor();
    bool isNew = holds_.insert_or_assign(kind, reason).second;
    if (isNew) {
        log_.write(reason);
        cancelAllTasks();
    }
    updateHold();
}

void TransferEngine::clearHold(const std::string& kind) {
    assertOnExecutor();
    if (holds_.erase(kind) == 0) return;
    updateHold();
    if (hold_) return;
    samples_.clear();
    pump();
}

void TransferEngine::updateHold() {
    const std::optional<std::string> before = std::exchange(hold_, std::nullopt);
    for (std::string_view kind : kindsOfHold) {
        auto found = holds_.find(std::string(kind));
        if (found == holds_.end()) continue;
        hold_ = found->second;
        break;
    }
    if (hold_ != before) send(StateChanged{});
}

void TransferEngine::cancelAllTasks() {
    for (const auto& [id, active] : tasks_)
        active.task.cancel();
}

void TransferEngine::returnInFlightToQueued() {
    for (const UUID& id : activeItemIDs()) {
        set(id, [](TransferItem& item) {
            if (isInFlight(item.state)) item.state = ItemState::queued;
        });
    }
}

void TransferEngine::keepHours(bool force) {
    reconsiderSchedule(force);
    hoursKeeper_.cancel();
    if (!hoursAt_) return;
    hoursKeeper_ = scope_.start(keepingHours());
    if (clockWatch_) return;
    clockWatch_ = host_.makeClockWatch();
    clockWatch_->start([this] { scope_.start(clockJumped()); });
}

Task<void> TransferEngine::keepingHours() {
    while (const std::optional<Date> next = nextBoundary()) {
        co_await sleepFor(seconds(*next - now()));
        reconsiderSchedule(false);
    }
}

std::optional<Date> TransferEngine::nextBoundary() const {
    if (!hoursAt_) return std::nullopt;
    const Date date = now();
    const std::optional<Date> boundary = hoursAt_(date).nextBoundary(date, host_.calendar);
    return boundary ? boundary : host_.calendar.startOfDay(date, minutesOfADay);
}

Task<void> TransferEngine::clockJumped() {
    if (!quitting_) keepHours(false);
    co_return;
}

void TransferEngine::reconsiderSchedule(bool force) {
    const Date date = now();
    const OfficeHours hours = hoursAt_ ? hoursAt_(date) : OfficeHours();
    if (hours.allows(date, host_.calendar)) {
        clearHold("schedule");
        return;
    }
    std::optional<Date> next = hours.nextAllowed(date, host_.calendar);
    if (!next) return;
    std::string sentence =
        fmt::format("Waiting until {}: outside office hours only", Format::time(*next, host_.calendar));
    auto inForce = holds_.find("schedule");
    if (!force && inForce != holds_.end() && inForce->second == sentence) return;
    setHold("schedule", sentence);
}

void TransferEngine::pump() {
    if (quitting_ || !mayStart_) return;
    if (!job_ || job_->isPaused || hold_) {
        finishIfIdle();
        return;
    }
    if (tasks_.size() >= maxConcurrentFiles) return;
    bool startedAny = false;
    while (tasks_.size() < maxConcurrentFiles) {
        std::optional<std::size_t> place = waiting_.first();
        if (!place) break;
        waiting_.erase(*place);
        const TransferItem& item = job_->items[*place];
        Active active;
        active.startedAs = ++started_;
        active.heldBytes = item.bytesDone();
        active.task = scope_.start(process(item.id));
        tasks_.emplace(item.id, std::move(active));
        if (observer != nullptr) observer->changed(*place);
        worked_ = true;
        startedAny = true;
    }
    if (!startedAny) {
        finishIfIdle();
        return;
    }
    if (samples_.empty()) samples_.emplace_back(host_.clock.now(), bytesMoved_);
    keepTicking();
}

void TransferEngine::finishIfIdle() {
    if (!tasks_.empty() || !worked_) return;
    if (totals_.count(ItemState::queued) > 0 && isRunning()) return;
    worked_ = false;
    recompute();
    if (!overall_.allSettled()) return;
    log_.write(fmt::format("Finished: {} landed and checked, {} failed, {} skipped, {} waiting on a decision",
                           Format::count(overall_.filesVerified, "file"), overall_.filesFailed,
                           overall_.filesSkipped, overall_.filesConflict));
    send(JobFinished{overall_.filesVerified, overall_.filesFailed, overall_.filesSkipped,
                     overall_.filesConflict});
}

void TransferEngine::pause() {
    assertOnExecutor();
    if (!job_ || job_->isPaused) return;
    job_->isPaused = true;
    job_->pausedByVark = false;
    cancelAllTasks();
    log_.write("Paused");
    recompute();
    flush();
    send(StateChanged{});
}

void TransferEngine::pauseBecauseTheVarkRefused(const std::string& reason) {
    assertOnExecutor();
    if (!job_) return;
    job_->isPaused = true;
    job_->pausedByVark = true;
    cancelAllTasks();
    log_.write(reason);
    send(StateChanged{});
}

void TransferEngine::resume() {
    assertOnExecutor();
    if (!isPaused()) return;
    job_->isPaused = false;
    job_->pausedByVark.reset();
    log_.write("Resumed");
    samples_.clear();
    recompute();
    flush();
    send(StateChanged{});
    pump();
}

bool TransferEngine::resumeIfTheVarkPausedIt() {
    assertOnExecutor();
    if (!pausedByVark()) return false;
    resume();
    return true;
}

void TransferEngine::pauseForQuit() {
    assertOnExecutor();
    quitting_ = true;
    cancelAllTasks();
    ticker_.cancel();
    ticker_ = {};
    hoursKeeper_.cancel();
    // The monitor stays: to end it may take as long as a name that does not resolve, and nobody is to wait
    // for that before the queue is saved.
    returnInFlightToQueued();
}

Task<bool> TransferEngine::driveIsGone() {
    if (!job_ || !job_->ingest) co_return false;
    const IngestInfo ingest = job_->ingest->place();
    co_return !co_await host_.pool.run([&] { return ingest.driveIsHere(host_.volumes); });
}

void TransferEngine::holdForTheDrive() {
    if (job_ && job_->ingest) setHold("drive", job_->ingest->waitingLine());
}

void TransferEngine::lookForTheDrive() {
    assertOnExecutor();
    const bool isHeld = holds_.contains("drive");
    if (!job_ || !job_->ingest) {
        clearHold("drive");
        return;
    }
    if (job_->ingest->reported && !isHeld) return;
    lookAgain_ = true;
    if (!driveLook_ || driveLook_->done()) driveLook_ = scope_.start(lookingForTheDrive());
}

Task<void> TransferEngine::lookingForTheDrive() {
    // A disk that does not answer may keep a look for long; what rings meanwhile makes one look more.
    while (lookAgain_ && job_ && job_->ingest && !quitting_) {
        lookAgain_ = false;
        const IngestInfo looked = *job_->ingest;
        const bool isGone = co_await driveIsGone();
        if (job_ && job_->ingest && job_->ingest->id == looked.id) driveIsThere(!isGone);
    }
    driveLook_.reset();
}

void TransferEngine::driveIsThere(bool isThere) {
    const bool isHeld = holds_.contains("drive");
    if (isThere) {
        if (!isHeld) return;
        log_.write(fmt::format("{} is back; carrying on", job_->ingest->drive));
        clearHold("drive");
        return;
    }
    const std::int64_t settled = totals_.count(ItemState::verified) + totals_.count(ItemState::skipped) +
                                 totals_.count(ItemState::failed);
    if (isHeld || job_->ingest->reported || settled == totals_.overall().filesTotal) return;
    holdForTheDrive();
    returnInFlightToQueued();
}

void TransferEngine::recompute() {
    assertOnExecutor();
    double rate = 0;
    overall_ = totals_.overall();
    if (!isRunning()) {
        samples_.clear();
        return;
    }
    Instant instant = host_.clock.now();
    // Without a task nothing is added, and the rate goes with the samples.
    if (!tasks_.empty()) samples_.emplace_back(instant, bytesMoved_);
    while (!samples_.empty() && instant - samples_.front().first > rateWindow)
        samples_.pop_front();
    if (samples_.size() < 3) return;
    double elapsed = inSeconds(instant - samples_.front().first);
    std::int64_t gain = bytesMoved_ - samples_.front().second;
    if (elapsed > 0.5 && gain >= 0) rate = static_cast<double>(gain) / elapsed;
    overall_.rate = rate;
    if (rate > 0) {
        overall_.secondsLeft = static_cast<double>(overall_.bytesTotal - overall_.bytesDone) / rate;
    }
}

const TransferItem* TransferEngine::item(const UUID& id) const {
    std::optional<std::size_t> place = position(id);
    return place ? &job_->items[*place] : nullptr;
}

std::vector<UUID> TransferEngine::activeItemIDs() const {
    std::vector<std::pair<std::uint64_t, UUID>> active;
    active.reserve(tasks_.size());
    for (const auto& [id, one] : tasks_)
        active.emplace_back(one.startedAs, id);
    std::ranges::sort(active);
    std::vector<UUID> ids;
    ids.reserve(active.size());
    for (const auto& [order, id] : active)
        ids.push_back(id);
    return ids;
}

std::int64_t TransferEngine::hashingBytes(const UUID& id) const {
    auto found = tasks_.find(id);
    return found == tasks_.end() ? 0 : found->second.hashingBytes;
}

std::int64_t TransferEngine::inFlightBytes(const UUID& id) const {
    auto found = tasks_.find(id);
    return found == tasks_.end() ? 0 : found->second.inFlightBytes;
}

}  // namespace vark
