#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/BytePipe.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Upload/ByteCounter.h"
#include "VarkCore/Upload/FilePieces.h"

namespace vark {

/// A chunk of a file, and how it is to be sent.
struct ChunkSource {
    std::filesystem::path file;
    /// Both in bytes.
    std::int64_t offset = 0;
    std::int64_t length = 0;
    /// May be null.
    TokenBucket* limiter = nullptr;
    /// Told the bytes sent so far, on the writer's thread. Must not throw.
    std::function<void(std::int64_t)> progress;
};

/// Pumps one chunk from its file into a pipe, piece by piece, at the pace of its limiter. For one attempt:
/// `run` once, on a thread that may block; the rest from any thread.
class ChunkWriter {
  public:
    ChunkWriter(ChunkSource source, std::shared_ptr<BytePipe> output, WallClock now);

    /// Ends the stream on every way out, so the reader never waits for more.
    void run() noexcept;
    /// `run` returns soon after.
    void cancel();
    /// Bytes handed to the pipe.
    std::int64_t moved() const { return moved_.value(); }
    /// What is wrong with the file, as a finished sentence. That the reader has gone is no failure here: the
    /// transfer knows better why.
    std::optional<std::string> failure() const;

  private:
    void pump();
    /// Answers the bytes of the piece; 0 when there is no going on.
    std::size_t pumpPiece(FilePieces& file);
    /// Where the next piece goes; nothing when nobody wants it any more.
    std::optional<std::span<char>> waitForSpace(std::size_t wanted);
    void keepPace(std::size_t bytes);
    bool isCancelled() const;
    void fail(std::string sentence);
    std::string name() const;

    const ChunkSource source_;
    const std::shared_ptr<BytePipe> output_;
    const WallClock now_;
    ByteCounter moved_;

    mutable Mutex lock_;
    std::condition_variable_any cancelledNow_;
    bool cancelled_ VARK_GUARDED_BY(lock_) = false;
    std::optional<std::string> failure_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
