// The chunks of one file: a few at a time, in ascending order, each tried again by itself.

#include <fmt/format.h>

#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/TransferEngine.h"

namespace vark {

Task<void> TransferEngine::sendChunks(UUID id, std::shared_ptr<VarkAPI> api, std::string uploadID,
                                      ChunkPlan plan, std::vector<std::int64_t> missing,
                                      std::filesystem::path file) {
    if (missing.empty()) co_return;
    // Children are made as slots come free: a file of a hundred thousand chunks costs a handful of them, and
    // files that run side by side share the slots evenly.
    auto body = [&](TaskGroup<std::int64_t>& group) -> Task<void> {
        std::size_t next = 0;
        while (true) {
            while (group.pending() < chunkWidth_ && next < missing.size()) {
                std::int64_t index = missing[next++];
                std::int64_t offset = plan.range(index).start;
                group.add(sendChunk(id, api, uploadID, index, offset, plan.length(index), file));
            }
            std::optional<std::int64_t> landed = co_await group.next();
            if (!landed) co_return;
            chunkLanded(id, *landed, plan.length(*landed));
        }
    };
    co_await withGroup<std::int64_t>(body);
}

Task<std::int64_t> TransferEngine::sendChunk(UUID id, std::shared_ptr<VarkAPI> api, std::string uploadID,
                                             std::int64_t index, std::int64_t offset, std::int64_t length,
                                             std::filesystem::path file) {
    std::stop_token token = co_await thisToken();
    chunkRoom_.followsTheRate = chunksFollowTheRate;
    chunkRoom_.limit = limiter.bytesPerSecond();
    co_await chunkRoom_.enter(length);
    ChunkPlace place(chunkRoom_, length);
    co_await checkCancellation();
    setProgress(id, [index](Active& active) { active.partial[index] = 0; });
    std::optional<Date> firstFailure;
    for (int attempt = 1;; ++attempt) {
        TokenBucket* pace = limiter.bytesPerSecond() >= 1 ? &limiter : nullptr;
        auto progress = [this, id, index](std::int64_t sent) {
            scope_.start(reportPartial(id, index, sent));
        };
        const Instant begun = host_.clock.now();
        std::optional<VarkAPIError> failure;
        try {
            co_await api->putChunk(uploadID, index, file, offset, length, pace, progress);
        } catch (const VarkAPIError& error) {
            if (token.stop_requested()) throw;
            failure = error;
        }
        if (!failure) {
            gotThrough();
            chunkRoom_.arrived(length, begun, host_.clock.now());
            co_return index;
        }
        notePartial(id, index, 0);
        // It may be the file, and then no waiting helps.
        if (failure->isRetryable()) co_await requireUnchanged(id, file);
        const double delay = backOff(attempt);
        didNotGetThrough(*failure, delay);
        if (!firstFailure) firstFailure = now();
        if (!isTriedAgain(*failure, attempt, *firstFailure)) throw *failure;
        tellOfTryAgain(
            {fmt::format("Chunk {} of {}", index, file.filename().string()), said(*failure), attempt, delay});
        place.rest();
        co_await sleepFor(seconds(delay));
        co_await checkCancellation();
        place.goOn();
    }
}

Task<void> TransferEngine::reportPartial(UUID id, std::int64_t chunk, std::int64_t bytes) {
    notePartial(id, chunk, bytes);
    co_return;
}

void TransferEngine::notePartial(const UUID& id, std::int64_t chunk, std::int64_t bytes) {
    setProgress(id, [this, chunk, bytes](Active& active) {
        // What comes late, of a chunk that has landed meanwhile, counts no more.
        auto noted = active.partial.find(chunk);
        if (noted == active.partial.end()) return;
        active.inFlightBytes += bytes - noted->second;
        bytesMoved_ += bytes - noted->second;
        noted->second = bytes;
    });
}

void TransferEngine::chunkLanded(const UUID& id, std::int64_t index, std::int64_t length) {
    setProgress(id, [&](Active& active) {
        auto noted = active.partial.find(index);
        if (noted != active.partial.end()) {
            active.inFlightBytes -= noted->second;
            bytesMoved_ += length - noted->second;
            active.partial.erase(noted);
        }
        // Only chunks that the vark lacks are sent, each once, so this one is not in the list yet.
        job_->items[*position(id)].doneChunks.push_back(index);
        active.heldBytes += length;
    });
    ++progress_;
    scheduleSave();
}

void TransferEngine::forgetPartial(const UUID& id) {
    setProgress(id, [](Active& active) {
        active.partial.clear();
        active.inFlightBytes = 0;
    });
}

}  // namespace vark
