// The road of one item: hash, begin, chunks, finish, check. What an error means is decided here.

#include <fmt/format.h>

#include <cmath>

#include "VarkCore/Transfer/Format.h"
#include "VarkCore/Transfer/TransferEngine.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark {

namespace {

constexpr int mostLosses = 3;
constexpr std::int64_t hashingStep = 8'388'608;
constexpr double longestBackOff = 60;
constexpr double longestPollWait = 5;
constexpr int quickPolls = 10;
constexpr std::int64_t mostChunks = 1'000'000;

}  // namespace

Task<void> TransferEngine::process(UUID id) {
    std::exception_ptr failure;
    try {
        co_await carry(id);
    } catch (...) {
        failure = std::current_exception();
    }
    bool cancelled = co_await isCancelled();
    if (failure) settleFailure(id, failure, cancelled);
    taskEnded(id);
}

Task<void> TransferEngine::carry(UUID id) {
    const TransferItem* queued = item(id);
    if (queued == nullptr) co_return;
    const bool hadUpload = queued->uploadID.has_value();
    const bool replace = queued->replace;
    const std::int64_t size = queued->size;
    const double mtime = queued->mtime;
    const std::string relativePath = queued->relativePath;
    const std::string serverPath = job_->serverPath(*queued);
    const std::filesystem::path file = queued->localPath;
    // The mere place is asked for, since this is done for each file. What comes and goes in that place is the
    // business of `watchIngestDrive`.
    if (job_->ingest && !job_->ingest->driveIsHere()) {
        set(id, [](TransferItem& item) {
            if (isInFlight(item.state)) item.state = ItemState::queued;
        });
        holdForTheDrive();
        co_return;
    }
    std::shared_ptr<VarkAPI> api = api_;
    if (!queued->sha256) co_await hash(id, file);

    for (int losses = 0; losses < mostLosses; ++losses) {
        co_await checkCancellation();
        const TransferItem* current = item(id);
        if (current == nullptr || !job_) co_return;
        std::optional<std::int64_t> ingestID;
        std::optional<std::string> source;
        if (job_->ingest) {
            ingestID = job_->ingest->id;
            source = job_->ingest->source(current->localPath);
        }
        const std::string sha256 = current->sha256->text();
        BeginResult begun = co_await retrying<BeginResult>("begin " + relativePath, [=] {
            return api->begin(serverPath, size, sha256, mtime, replace, ingestID, source);
        });
        if (begun.exists()) {
            found(id, serverPath, hadUpload);
            co_return;
        }
        if (begun.conflict() != nullptr) {
            blocked(id, serverPath);
            co_return;
        }
        std::optional<UploadStatus> status =
            co_await sendAndFinish(id, api, serverPath, file, *begun.start());
        if (!status) continue;
        if (status->state != "done") {
            throw EngineError::gaveUp(
                status->error.value_or("The vark could not check the file after it landed."));
        }
        set(id, [this](TransferItem& item) {
            item.state = ItemState::verified;
            item.finishedAt = now();
            item.error.reset();
        });
        log_.write("Landed and checked: " + serverPath);
        co_return;
    }
    throw EngineError::gaveUp("The vark kept losing this upload.");
}

Task<void> TransferEngine::hash(UUID id, std::filesystem::path file) {
    set(id, [](TransferItem& item) { item.state = ItemState::hashing; });
    if (!std::filesystem::exists(file)) throw EngineError::missing();
    std::stop_token token = co_await thisToken();
    std::int64_t published = 0;
    auto progress = [this, id, token, &published](std::int64_t hashed) {
        if (hashed - published >= hashingStep) {
            published = hashed;
            scope_.start(reportHashing(id, hashed));
        }
        return !token.stop_requested();
    };
    std::string hex =
        co_await host_.pool.run([&file, &progress] { return FileHasher::sha256Of(file, progress); });
    set(id, [&hex](TransferItem& item) { item.sha256 = ContentHash::parse(hex); });
    if (auto active = tasks_.find(id); active != tasks_.end()) active->second.hashingBytes = 0;
}

Task<void> TransferEngine::reportHashing(UUID id, std::int64_t bytes) {
    auto active = tasks_.find(id);
    const TransferItem* current = item(id);
    if (active == tasks_.end() || current == nullptr || current->state != ItemState::hashing) co_return;
    active->second.hashingBytes = bytes;
}

void TransferEngine::found(const UUID& id, const std::string& serverPath, bool hadUpload) {
    set(id, [this, hadUpload](TransferItem& item) {
        item.state = ItemState::verified;
        item.alreadyThere = !hadUpload;
        item.finishedAt = now();
        item.error.reset();
    });
    log_.write(
        (hadUpload ? "Landed and checked (finished while away): " : "Already in the vark, same hash: ") +
        serverPath);
}

void TransferEngine::blocked(const UUID& id, const std::string& serverPath) {
    std::string name;
    set(id, [&](TransferItem& item) {
        item.state = ItemState::conflict;
        item.error = fmt::format("A different file is already at {}.", serverPath);
        name = item.name();
    });
    log_.write(fmt::format("A different file is at {}; waiting for a decision", serverPath));
    send(DecisionNeeded{name});
}

void TransferEngine::opened(const UUID& id, const std::string& serverPath, const BeginResult::Start& start,
                            const ChunkPlan& plan, const std::vector<std::int64_t>& missing) {
    std::int64_t size = 0;
    set(id, [&](TransferItem& item) {
        item.state = ItemState::uploading;
        item.uploadID = start.uploadID;
        item.chunkSize = start.chunkSize;
        item.error.reset();
        item.doneChunks = start.have;
        if (missing.empty()) {
            item.doneChunks.resize(static_cast<std::size_t>(plan.count()));
            for (std::int64_t index = 0; index < plan.count(); ++index) {
                item.doneChunks[static_cast<std::size_t>(index)] = index;
            }
        }
        size = item.size;
    });
    scheduleSave();
    log_.write(fmt::format("{} {}: {}, {} of {} chunks to send", start.have.empty() ? "Sending" : "Resuming",
                           serverPath, Format::bytes(size), missing.size(), plan.count()));
}

Task<std::optional<UploadStatus>> TransferEngine::sendAndFinish(UUID id, std::shared_ptr<VarkAPI> api,
                                                                std::string serverPath,
                                                                std::filesystem::path file,
                                                                BeginResult::Start start) {
    const TransferItem* current = item(id);
    if (current == nullptr) throw CancellationError();
    ChunkPlan plan(current->size, start.chunkSize);
    if (plan.count() > mostChunks) {
        throw EngineError::gaveUp(
            fmt::format("The vark wants this file in {} pieces of {}, which is too many. Tell whoever looks "
                        "after the vark.",
                        Format::number(plan.count()), Format::bytes(plan.chunkSize())));
    }
    std::vector<std::int64_t> missing = plan.missing(start.have);
    opened(id, serverPath, start, plan, missing);

    std::string_view when;
    std::string why;
    try {
        co_await sendChunks(id, api, start.uploadID, plan, std::move(missing), std::move(file));
        set(id, [](TransferItem& item) { item.state = ItemState::checking; });
        forgetPartial(id);
        when = " at finish";
        co_return co_await finishAndWait(api, start.uploadID);
    } catch (const VarkAPIError& error) {
        if (!error.beginsAgain()) throw;
        why = error.what();
    }
    log_.write(fmt::format("Beginning upload {} for {} again{}: {}", start.uploadID, serverPath, when, why));
    set(id, [](TransferItem& item) {
        item.uploadID.reset();
        item.doneChunks.clear();
    });
    forgetPartial(id);
    co_await checkCancellation();
    co_return std::nullopt;
}

Task<UploadStatus> TransferEngine::finishAndWait(std::shared_ptr<VarkAPI> api, std::string uploadID) {
    co_await retrying<std::string>("finish " + uploadID, [=] { return api->finish(uploadID); });
    for (int polls = 1;; ++polls) {
        co_await checkCancellation();
        UploadStatus status =
            co_await retrying<UploadStatus>("status " + uploadID, [=] { return api->status(uploadID); });
        if (status.state == "done" || status.state == "failed") co_return status;
        double wait = polls > quickPolls ? pollInterval * 2 : pollInterval;
        co_await sleepFor(seconds(std::min(wait, longestPollWait)));
    }
}

double TransferEngine::backOff(int attempt) const {
    return std::min(std::ldexp(retryBase, attempt - 1), longestBackOff);
}

template <class T, class Operation>
Task<T> TransferEngine::retrying(std::string label, Operation operation) {
    for (int attempt = 1;; ++attempt) {
        std::stop_token token = co_await thisToken();
        std::string message;
        try {
            co_return co_await operation();
        } catch (const VarkAPIError& error) {
            if (!error.isRetryable() || attempt >= maxAttempts || token.stop_requested()) throw;
            message = error.what();
        }
        double delay = backOff(attempt);
        log_.write(
            fmt::format("{} did not get through ({}); trying again in {:.0f} s", label, message, delay));
        co_await sleepFor(seconds(delay));
        co_await checkCancellation();
    }
}

void TransferEngine::settleFailure(const UUID& id, const std::exception_ptr& failure, bool cancelled) {
    auto backToQueued = [this, &id] {
        set(id, [](TransferItem& item) {
            if (isInFlight(item.state)) item.state = ItemState::queued;
        });
    };
    try {
        std::rethrow_exception(failure);
    } catch (const CancellationError&) {
        backToQueued();
    } catch (const FileHasher::Cancelled&) {
        backToQueued();
    } catch (const VarkAPIError& error) {
        if (std::optional<RefusedToken> refused = RefusedToken::from(error)) {
            set(id, [](TransferItem& item) { item.state = ItemState::queued; });
            pauseBecauseTheVarkRefused(
                "The vark refused this Mac's token; the queue is paused while that is checked");
            send(SignedOut{*refused});
        } else if (std::holds_alternative<VarkAPIError::NotConnected>(error.which())) {
            set(id, [](TransferItem& item) { item.state = ItemState::queued; });
            pauseBecauseTheVarkRefused("No token to send with; the queue waits");
            send(NoToken{});
        } else if (cancelled) {
            backToQueued();
        } else {
            fail(id, error.what());
        }
    } catch (const std::exception& error) {
        if (cancelled) {
            backToQueued();
        } else {
            fail(id, error.what());
        }
    }
}

void TransferEngine::fail(const UUID& id, const std::string& message) {
    const TransferItem* current = item(id);
    if (current == nullptr) return;
    if (driveIsGone()) {
        set(id, [](TransferItem& item) {
            item.state = ItemState::queued;
            item.error.reset();
        });
        holdForTheDrive();
        return;
    }
    std::string name(current->name());
    std::string serverPath = job_->serverPath(*current);
    set(id, [&message](TransferItem& item) {
        item.state = ItemState::failed;
        item.error = message;
        item.attempts += 1;
    });
    log_.write(fmt::format("Failed: {}: {}", serverPath, message));
    send(ItemFailed{name, message});
}

void TransferEngine::taskEnded(const UUID& id) {
    forgetPartial(id);
    tasks_.erase(id);
    // Without its task the item may be taken up again.
    set(id, [](TransferItem&) {});
    scheduleSave();
    pump();
}

}  // namespace vark
