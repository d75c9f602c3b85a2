// The road of one item: hash, begin, chunks, finish, check. What an error means is decided here.

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdlib>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Services/Limits.h"
#include "VarkCore/Transfer/Format.h"
#include "VarkCore/Transfer/TransferEngine.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark {

namespace {

constexpr int mostTimesAgain = 3;
constexpr std::int64_t hashingStep = 8'388'608;
constexpr double longestBackOff = 60;
constexpr double longestPollWait = 5;
constexpr int quickPolls = 10;

}  // namespace

bool TransferEngine::meansOutOfReach(const VarkAPIError& error) {
    const auto* server = std::get_if<VarkAPIError::Server>(&error.which());
    if (server == nullptr) return std::holds_alternative<VarkAPIError::Transport>(error.which());
    return server->status == 502 || server->status == 503 || server->status == 504;
}

std::string TransferEngine::said(const VarkAPIError& error) {
    const auto* server = std::get_if<VarkAPIError::Server>(&error.which());
    const bool hidesItsStatus = server != nullptr && server->message && !server->message->empty();
    if (!hidesItsStatus || !error.isRetryable()) return error.what();
    return fmt::format("{} (The vark answered {}.)", error.what(), server->status);
}

Task<void> TransferEngine::process(UUID id) {
    std::exception_ptr failure;
    try {
        co_await carry(id);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) co_await settleFailure(id, failure);
    taskEnded(id);
}

Task<void> TransferEngine::carry(UUID id) {
    std::shared_ptr<VarkAPI> api = api_;
    const TransferItem* queued = item(id);
    if (queued == nullptr) co_return;
    const bool hadUpload = queued->uploadID.has_value();
    const std::string serverPath = job_->serverPath(*queued);
    const std::filesystem::path file = queued->localPath;

    std::array<int, 2> begunAgain{};
    while (true) {
        co_await checkCancellation();
        co_await lookAt(id, file);
        co_await checkCancellation();
        const TransferItem* current = item(id);
        if (current == nullptr || !job_) co_return;
        std::optional<std::int64_t> ingestID;
        std::optional<std::string> source;
        if (job_->ingest) {
            ingestID = job_->ingest->id;
            source = job_->ingest->source(current->localPath);
        }
        const std::int64_t size = current->size;
        const double mtime = current->mtime;
        const bool replace = current->replace;
        const std::string sha256 = current->sha256->text();
        BeginResult begun = co_await retrying<BeginResult>("begin " + current->relativePath, [=] {
            return api->begin(serverPath, size, sha256, mtime, replace, ingestID, source);
        });
        if (begun.exists()) {
            found(id, serverPath, hadUpload);
            co_return;
        }
        if (const BeginResult::Conflict* standing = begun.conflict()) {
            blocked(id, serverPath, *standing);
            co_return;
        }
        std::variant<UploadStatus, Again> sent =
            co_await sendAndFinish(id, api, serverPath, file, *begun.start());
        if (const Again* again = std::get_if<Again>(&sent)) {
            if (++begunAgain[static_cast<std::size_t>(*again)] < mostTimesAgain) continue;
            throw EngineError::gaveUp(
                *again == Again::lost ? "The vark kept losing this upload."
                                      : "The file keeps changing while it is sent. Try again when nothing "
                                        "writes to it any more.");
        }
        const UploadStatus& status = std::get<UploadStatus>(sent);
        if (status.state != "done") {
            // The bytes that the vark has, or their hash, are not what they should be: neither is used again.
            set(id, [](TransferItem& item) { item.forgetContent(); });
            throw EngineError::gaveUp(
                status.error.value_or("The vark could not check the file after it landed."));
        }
        const bool isOutdated = co_await hasChanged(id, file);
        landed(id, serverPath, isOutdated);
        co_return;
    }
}

Task<void> TransferEngine::lookAt(UUID id, std::filesystem::path file) {
    const TransferItem* known = item(id);
    if (known == nullptr) co_return;
    if (known->sha256) {
        // A file that has gone may have landed in an earlier run, which the vark will say.
        if (!co_await hasChanged(id, file)) co_return;
        log_.write("Changed since it was read, and read again: " + file.string());
        set(id, [](TransferItem& item) { item.forgetContent(); });
    }
    co_await hash(id, file);
}

Task<bool> TransferEngine::hasChanged(UUID id, std::filesystem::path file) {
    std::optional<FileStamp> there;
    try {
        there = co_await host_.pool.run([&file] { return stampOf(file); });
    } catch (const FileError&) {
        // What cannot be looked at is not said to be another.
    }
    const TransferItem* known = item(id);
    if (known == nullptr || !there) co_return false;
    co_return *there != FileStamp{known->size, known->mtime};
}

Task<void> TransferEngine::requireUnchanged(UUID id, std::filesystem::path file) {
    auto look = [&file] { return stampOf(openRegularFile(file), file); };
    FileStamp there;
    try {
        there = co_await host_.pool.run(look);
    } catch (const FileError& error) {
        if (error.isGone()) throw EngineError::missing();
        throw;
    }
    const TransferItem* known = item(id);
    if (known != nullptr && there != FileStamp{known->size, known->mtime}) throw ContentChanged();
}

Task<void> TransferEngine::hash(UUID id, std::filesystem::path file) {
    set(id, [](TransferItem& item) { item.state = ItemState::hashing; });
    std::stop_token token = co_await thisToken();
    std::int64_t published = 0;
    auto progress = [this, id, token, &published](std::int64_t hashed) {
        if (std::abs(hashed - published) >= hashingStep) {
            published = hashed;
            scope_.start(reportHashing(id, hashed));
        }
        return !token.stop_requested();
    };
    FileHasher::Look look;
    try {
        look = co_await host_.pool.run([&file, &progress] { return FileHasher::lookAt(file, progress); });
    } catch (const FileError& error) {
        if (error.isGone()) throw EngineError::missing();
        throw;
    }
    set(id, [&look](TransferItem& item) {
        item.sha256 = ContentHash::parse(look.sha256);
        item.size = look.stamp.size;
        item.mtime = look.stamp.mtime;
    });
    if (auto active = tasks_.find(id); active != tasks_.end()) active->second.hashingBytes = 0;
}

Task<void> TransferEngine::reportHashing(UUID id, std::int64_t bytes) {
    const TransferItem* current = item(id);
    if (current == nullptr || current->state != ItemState::hashing) co_return;
    setProgress(id, [bytes](Active& active) { active.hashingBytes = bytes; });
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

void TransferEngine::blocked(const UUID& id, const std::string& serverPath,
                             const BeginResult::Conflict& standing) {
    std::string name;
    set(id, [&](TransferItem& item) {
        item.state = ItemState::conflict;
        item.error = fmt::format("A different file is already at {}.", serverPath);
        item.standing = TransferItem::Standing{standing.existingSize, standing.existingMtime};
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

void TransferEngine::landed(const UUID& id, const std::string& serverPath, bool hasChanged) {
    set(id, [this, hasChanged](TransferItem& item) {
        item.state = ItemState::verified;
        item.changedWhileSent = hasChanged;
        item.finishedAt = now();
        item.error.reset();
    });
    ++progress_;
    log_.write("Landed and checked: " + serverPath);
    if (hasChanged)
        log_.write("Changed while it was sent, so what landed is not what lies here now: " + serverPath);
}

Task<std::variant<UploadStatus, TransferEngine::Again>> TransferEngine::sendAndFinish(
    UUID id, std::shared_ptr<VarkAPI> api, std::string serverPath, std::filesystem::path file,
    BeginResult::Start start) {
    const TransferItem* current = item(id);
    if (current == nullptr) throw CancellationError();
    ChunkPlan plan(current->size, start.chunkSize);
    if (plan.count() > limits::chunksOfAFile) {
        throw EngineError::gaveUp(
            fmt::format("The vark wants this file in {} pieces of {}, which is too many. Tell whoever looks "
                        "after the vark.",
                        Format::number(plan.count()), Format::bytes(plan.chunkSize())));
    }
    std::vector<std::int64_t> missing = plan.missing(start.have);
    opened(id, serverPath, start, plan, missing);

    std::string_view when;
    std::optional<std::string> lost;
    try {
        co_await sendChunks(id, api, start.uploadID, plan, std::move(missing), std::move(file));
        set(id, [](TransferItem& item) { item.state = ItemState::checking; });
        forgetPartial(id);
        when = " at finish";
        co_return co_await finishAndWait(api, start.uploadID);
    } catch (const VarkAPIError& error) {
        if (!error.beginsAgain()) throw;
        lost = error.what();
    } catch (const ContentChanged&) {
        // Everything that was known of it is of another file.
    }
    forgetPartial(id);
    if (lost) {
        log_.write(
            fmt::format("Beginning upload {} for {} again{}: {}", start.uploadID, serverPath, when, *lost));
        set(id, [](TransferItem& item) {
            item.uploadID.reset();
            item.doneChunks.clear();
        });
    } else {
        log_.write("Changed while it was sent, and read again: " + serverPath);
        set(id, [](TransferItem& item) { item.forgetContent(); });
    }
    co_await checkCancellation();
    co_return lost ? Again::lost : Again::changed;
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

void TransferEngine::tellOfTryAgain(const TriedAgain& again) const {
    log_.write(fmt::format("{} did not get through ({}); trying again in {:.0f} s", again.what, again.why,
                           again.after));
    send(again);
}

bool TransferEngine::isTriedAgain(const VarkAPIError& error, int attempt, Date firstFailure) const {
    if (!error.isRetryable()) return false;
    if (attempt < maxAttempts) return true;
    // A file must not fail for a vark that takes none. Where something else got through in the meantime, it
    // is this call that the vark does not take.
    return meansOutOfReach(error) && outage_ && outage_->since <= firstFailure &&
           now() - outage_->since < inSeconds(patience);
}

void TransferEngine::didNotGetThrough(const VarkAPIError& error, double delay) {
    if (!meansOutOfReach(error)) {
        gotThrough();
        return;
    }
    const Date nextTry = now() + delay;
    const bool isNew = !outage_;
    if (isNew) outage_ = Outage{now(), said(error), nextTry};
    outage_->why = said(error);
    if (outage_->nextTry <= now() || nextTry < outage_->nextTry) outage_->nextTry = nextTry;
    if (isNew) send(StateChanged{});
}

template <class T, class Operation>
Task<T> TransferEngine::retrying(std::string label, Operation operation) {
    std::optional<Date> firstFailure;
    for (int attempt = 1;; ++attempt) {
        std::stop_token token = co_await thisToken();
        const double delay = backOff(attempt);
        std::string message;
        try {
            T answer = co_await operation();
            gotThrough();
            co_return answer;
        } catch (const VarkAPIError& error) {
            if (token.stop_requested()) throw;
            didNotGetThrough(error, delay);
            if (!firstFailure) firstFailure = now();
            if (!isTriedAgain(error, attempt, *firstFailure)) throw;
            message = said(error);
        }
        tellOfTryAgain({label, message, attempt, delay});
        co_await sleepFor(seconds(delay));
        co_await checkCancellation();
    }
}

void TransferEngine::backToQueued(const UUID& id) {
    set(id, [](TransferItem& item) {
        if (isInFlight(item.state)) item.state = ItemState::queued;
    });
}

std::optional<std::string> TransferEngine::judge(const UUID& id, const std::exception_ptr& failure,
                                                 bool cancelled) {
    try {
        std::rethrow_exception(failure);
    } catch (const CancellationError&) {
        backToQueued(id);
        return std::nullopt;
    } catch (const FileHasher::Cancelled&) {
        backToQueued(id);
        return std::nullopt;
    } catch (const VarkAPIError& error) {
        if (std::optional<RefusedToken> refused = RefusedToken::from(error)) {
            set(id, [](TransferItem& item) { item.state = ItemState::queued; });
            pauseBecauseTheVarkRefused(
                "The vark refused this Mac's token; the queue is paused while that is checked");
            const bool hadProgress = progressAtRefusal_ != progress_;
            progressAtRefusal_ = progress_;
            send(SignedOut{*refused, hadProgress});
            return std::nullopt;
        }
        if (std::holds_alternative<VarkAPIError::NotConnected>(error.which())) {
            set(id, [](TransferItem& item) { item.state = ItemState::queued; });
            pauseBecauseTheVarkRefused("No token to send with; the queue waits");
            send(NoToken{});
            return std::nullopt;
        }
        if (!cancelled) return said(error);
    } catch (const std::exception& error) {
        if (!cancelled) return error.what();
    }
    backToQueued(id);
    return std::nullopt;
}

Task<void> TransferEngine::settleFailure(UUID id, std::exception_ptr failure) {
    const bool wasCancelled = co_await isCancelled();
    const std::optional<std::string> message = judge(id, failure, wasCancelled);
    if (!message) co_return;
    const bool isWithoutItsCard = co_await driveIsGone();
    if (co_await isCancelled()) {
        backToQueued(id);
    } else if (isWithoutItsCard) {
        set(id, [](TransferItem& item) {
            item.state = ItemState::queued;
            item.error.reset();
        });
        holdForTheDrive();
    } else {
        fail(id, *message);
    }
}

void TransferEngine::fail(const UUID& id, const std::string& message) {
    const TransferItem* current = item(id);
    if (current == nullptr) return;
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
    if (tasks_.empty()) outage_.reset();
}

}  // namespace vark
