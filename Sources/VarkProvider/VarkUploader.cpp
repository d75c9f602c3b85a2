#include "VarkProvider/VarkUploader.h"

#include <fmt/format.h>

#include <algorithm>

#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/Clock.h"
#include "VarkCore/Services/Limits.h"
#include "VarkCore/Upload/MacWideGate.h"
#include "VarkCore/Upload/UploadGate.h"

namespace vark {
namespace {

/// How often a file is begun anew because the vark has lost its upload.
constexpr int mostTimesAgain = 2;
constexpr double longestPause = 5;

/// A file without bytes is one unit of work too.
std::int64_t unitsOf(const FileStamp& stamp) {
    return std::max<std::int64_t>(stamp.size, 1);
}

std::string somethingElse(const std::string& path) {
    return fmt::format("Something else is already at {}.", path);
}

}  // namespace

Task<void> VarkUploader::send(std::filesystem::path file, std::string to, bool replace,
                              std::shared_ptr<Progress> progress) const {
    const FileHasher::Look look = co_await lookAt(file);
    const FileStamp& stamp = look.stamp;
    if (progress) progress->setTotalUnitCount(unitsOf(stamp));
    BeginResult begun = co_await api.begin(to, stamp.size, look.sha256, stamp.mtime, replace);
    if (begun.conflict() != nullptr) {
        if (!replace) throw VarkAPIError::nameTaken(somethingElse(to));
        begun = co_await api.begin(to, stamp.size, look.sha256, stamp.mtime, replace);
    }
    for (int again = 0;; ++again) {
        if (begun.exists()) {
            if (progress) progress->setCompletedUnitCount(unitsOf(stamp));
            co_return;
        }
        const BeginResult::Start* const start = begun.start();
        if (start == nullptr) throw VarkAPIError::server(409, somethingElse(to));
        try {
            co_await sendChunks(file, *start, stamp, progress);
            co_await land(start->uploadID, to);
            co_return;
        } catch (const VarkAPIError& error) {
            if (!error.beginsAgain() || again == mostTimesAgain) throw;
        }
        begun = co_await api.begin(to, stamp.size, look.sha256, stamp.mtime, replace);
    }
}

Task<FileHasher::Look> VarkUploader::lookAt(std::filesystem::path file) const {
    const std::stop_token token = co_await thisToken();
    try {
        co_return co_await pool.run([file, token] {
            return FileHasher::lookAt(file, [token](std::int64_t) { return !token.stop_requested(); });
        });
    } catch (const FileHasher::Cancelled&) {
        throw CancellationError();
    }
}

Task<void> VarkUploader::sendChunks(std::filesystem::path file, BeginResult::Start start, FileStamp stamp,
                                    std::shared_ptr<Progress> progress) const {
    const ChunkPlan plan(stamp.size, start.chunkSize);
    if (plan.count() > limits::chunksOfAFile) {
        throw ChunkPlan::BadPlan(
            fmt::format("The vark wants this file in {} pieces, which is too many.", plan.count()));
    }
    std::int64_t done = plan.bytesDone(start.have);
    if (progress) progress->setCompletedUnitCount(done);
    for (const std::int64_t index : plan.missing(start.have)) {
        co_await checkCancellation();
        co_await sendChunk(file, start.uploadID, index, plan.range(index));
        done += plan.length(index);
        if (progress) progress->setCompletedUnitCount(std::min(done, unitsOf(stamp)));
    }
}

Task<void> VarkUploader::sendChunk(std::filesystem::path file, std::string uploadID, std::int64_t index,
                                   ChunkPlan::Range range) const {
    for (int attempt = 1;; ++attempt) {
        std::exception_ptr failure;
        try {
            // A try that waits for the next one must keep no slot from another file.
            Task<void> sending = api.putChunk(uploadID, index, file, range.start, range.end - range.start,
                                              nullptr, [](std::int64_t) {});
            Task<void> inTheProcess = gate->run(std::move(sending));
            co_await macWide->run(std::move(inTheProcess));
            co_return;
        } catch (...) {
            failure = std::current_exception();
        }
        if (attempt >= triesPerChunk || !ChunkRetry::worthAnotherGo(failure)) std::rethrow_exception(failure);
        const double wait = std::max(retryPause(attempt), 0.0);
        co_await sleepFor(seconds(wait));
    }
}

Task<void> VarkUploader::land(std::string uploadID, std::string path) const {
    co_await api.finish(uploadID);
    Clock* const clock = co_await thisClock();
    const Instant deadline = clock->now() + seconds(landingTimeout);
    const double longest = std::max(longestPause, pollInterval);
    for (double pause = pollInterval; clock->now() < deadline; pause = std::min(pause * 1.5, longest)) {
        co_await checkCancellation();
        const UploadStatus status = co_await api.status(uploadID);
        if (status.state == "done") co_return;
        if (status.state == "failed")
            throw VarkAPIError::server(500, status.error.value_or("The file did not land in the vark."));
        co_await sleepFor(seconds(pause));
    }
    throw VarkAPIError::server(504, fmt::format("The vark is still checking {}. It will finish on its own; "
                                                "the Finder will show it when it has.",
                                                path));
}

}  // namespace vark
