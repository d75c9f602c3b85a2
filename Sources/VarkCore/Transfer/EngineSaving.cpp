// How the queue reaches the disk: one save under way at a time, on a lane of its own.

#include "VarkCore/Transfer/TransferEngine.h"

namespace vark {

namespace {

/// What changes in that time rides along.
constexpr Duration saveDelay = std::chrono::seconds(1);
constexpr Duration longestSaveDelay = std::chrono::seconds(60);

}  // namespace

void TransferEngine::scheduleSave() {
    ++changes_;
    keepSaving();
}

void TransferEngine::keepSaving() {
    const bool isAtIt = saving_ && !saving_->done();
    if (!isAtIt && !quitting_) saving_ = scope_.start(savingWhatChanges());
}

Task<void> TransferEngine::savingWhatChanges() {
    while (changesOnDisk_ < changes_) {
        co_await sleepFor(saveFailure_ ? saveRetryDelay_ : saveDelay);
        if (quitting_) break;
        if (changesOnDisk_ < changes_) co_await savingOnce();
    }
    saving_.reset();
}

Task<void> TransferEngine::savingOnce() {
    // Whoever comes while a save is under way waits for its end: a second one would hold as much memory
    // again, for as long as the disk is slow.
    if (!saveUnderWay_ || saveUnderWay_->done()) saveUnderWay_ = scope_.start(save());
    TaskHandle<void> save = *saveUnderWay_;
    co_await save.value();
}

Task<void> TransferEngine::save() {
    const std::uint64_t includes = changes_;
    // Encoded here, where the queue stands still, and written elsewhere.
    const QueueStore::Snapshot snapshot = store_.encode(job_ ? &*job_ : nullptr);
    std::optional<std::string> failure;
    try {
        co_await host_.savingPool.run([this, &snapshot] { store_.write(snapshot); });
    } catch (const FileError& error) {
        failure = error.what();
    }
    saveEnded(includes, std::move(failure));
}

void TransferEngine::saveEnded(std::uint64_t includes, std::optional<std::string> failure) {
    // What a later save has made void says nothing.
    if (includes < changesTried_) return;
    changesTried_ = includes;
    if (!failure) {
        changesOnDisk_ = includes;
        saveRetryDelay_ = {};
        if (!saveFailure_) return;
        log_.write("The queue can be saved again");
        saveFailure_.reset();
        send(StateChanged{});
        return;
    }
    saveRetryDelay_ = std::clamp(saveRetryDelay_ * 2, saveDelay * 2, longestSaveDelay);
    const bool isNew = !saveFailure_;
    if (isNew) log_.write(*failure);
    saveFailure_ = std::move(failure);
    keepSaving();
    if (isNew) send(StateChanged{});
}

bool TransferEngine::flush() {
    assertOnExecutor();
    const std::uint64_t includes = ++changes_;
    std::optional<std::string> failure;
    try {
        store_.save(job_ ? &*job_ : nullptr);
    } catch (const FileError& error) {
        failure = error.what();
    }
    saveEnded(includes, std::move(failure));
    return !saveFailure_;
}

Task<bool> TransferEngine::saved() {
    assertOnExecutor();
    const std::uint64_t wanted = changes_;
    if (changesOnDisk_ >= wanted) co_return true;
    do {
        co_await savingOnce();
    } while (changesTried_ < wanted);
    co_return changesOnDisk_ >= wanted;
}

}  // namespace vark
