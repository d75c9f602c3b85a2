#pragma once

#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Tests/Support/Fakes/SilentVark.h"
#include "VarkCore/Concurrency/Clock.h"
#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Upload/ChunkPlan.h"

namespace vark::test {

/// A vark in memory, with the upload protocol's rules and failures on demand. Touched on the test's thread
/// alone.
class FakeVark : public SilentVark {
  public:
    struct Upload {
        std::string path;
        std::int64_t size = 0;
        std::string sha256;
        std::set<std::int64_t> have;
        bool finished = false;
    };

    std::int64_t chunkSize = 100;
    /// Paths and the hashes of what stands there.
    std::map<std::string, std::string> files;
    std::map<std::string, Upload> uploads;
    /// How long one chunk takes.
    Duration chunkTime = std::chrono::milliseconds(100);
    /// How many times `status` says "checking" before it says how it ended.
    int checkingPolls = 0;
    std::optional<UploadStatus> verdict;
    /// Failures that the next calls of a kind ("begin", "chunk", "finish", "status") end with, first come
    /// first.
    std::map<std::string, std::deque<VarkAPIError>> failures;
    /// As above, for ever.
    std::map<std::string, VarkAPIError> lasting;

    /// Every call in order: "begin a.mov", "chunk u1/0", "finish u1", "status u1", "cancel u1".
    std::vector<std::string> calls;
    std::vector<std::optional<std::int64_t>> ingestIDs;
    std::vector<std::optional<std::string>> sources;
    int chunksInFlight = 0;

    int count(const std::string& prefix) const {
        return static_cast<int>(
            std::ranges::count_if(calls, [&](const std::string& call) { return call.starts_with(prefix); }));
    }

    Task<BeginResult> begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                            bool replace) override {
        return begin(std::move(path), size, std::move(sha256), mtime, replace, std::nullopt, std::nullopt);
    }
    Task<BeginResult> begin(std::string path, std::int64_t size, std::string sha256, double /*mtime*/,
                            bool replace, std::optional<std::int64_t> ingestID,
                            std::optional<std::string> source) override {
        calls.push_back("begin " + path);
        ingestIDs.push_back(ingestID);
        sources.push_back(source);
        co_await yieldNow();
        co_await checkCancellation();
        failIfTold("begin");
        if (auto there = files.find(path); there != files.end()) {
            if (there->second == sha256) co_return BeginResult(BeginResult::Exists{});
            if (!replace) co_return BeginResult(BeginResult::Conflict{size, 0.0});
        }
        for (auto& [id, upload] : uploads) {
            if (upload.path == path && upload.sha256 == sha256 && !upload.finished) {
                co_return BeginResult(
                    BeginResult::Start{id, chunkSize, {upload.have.begin(), upload.have.end()}});
            }
        }
        std::string id = "u" + std::to_string(++opened_);
        uploads[id] = Upload{path, size, sha256, {}, false};
        co_return BeginResult(BeginResult::Start{id, chunkSize, {}});
    }

    Task<void> putChunk(std::string uploadID, std::int64_t index, std::filesystem::path /*file*/,
                        std::int64_t /*offset*/, std::int64_t length, TokenBucket* /*limiter*/,
                        ChunkProgress progress) override {
        calls.push_back("chunk " + uploadID + "/" + std::to_string(index));
        const std::unique_ptr<int, void (*)(int*)> counted(&++chunksInFlight, [](int* count) { --*count; });
        progress(length / 2);
        co_await sleepFor(chunkTime);
        failIfTold("chunk");
        auto upload = uploads.find(uploadID);
        if (upload == uploads.end()) throw VarkAPIError::uploadGone();
        progress(length);
        upload->second.have.insert(index);
    }

    Task<std::string> finish(std::string uploadID) override {
        calls.push_back("finish " + uploadID);
        co_await yieldNow();
        co_await checkCancellation();
        failIfTold("finish");
        auto upload = uploads.find(uploadID);
        if (upload == uploads.end()) throw VarkAPIError::uploadGone();
        upload->second.finished = true;
        co_return upload->second.path;
    }

    Task<UploadStatus> status(std::string uploadID) override {
        calls.push_back("status " + uploadID);
        co_await yieldNow();
        co_await checkCancellation();
        failIfTold("status");
        UploadStatus status;
        status.state = "checking";
        if (checkingPolls > 0) {
            --checkingPolls;
            co_return status;
        }
        if (verdict) co_return *verdict;
        const Upload& upload = uploads.at(uploadID);
        files[upload.path] = upload.sha256;
        status.state = "done";
        co_return status;
    }

    Task<void> cancel(std::string uploadID) override {
        calls.push_back("cancel " + uploadID);
        co_await yieldNow();
        uploads.erase(uploadID);
    }

  private:
    void failIfTold(const std::string& kind) {
        if (auto told = lasting.find(kind); told != lasting.end()) throw told->second;
        std::deque<VarkAPIError>& next = failures[kind];
        if (next.empty()) return;
        VarkAPIError failure = next.front();
        next.pop_front();
        throw failure;
    }

    int opened_ = 0;
};

}  // namespace vark::test
