#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// A bounded stream of bytes between a thread that may block and a reader that may not: the two ends of the
/// body of an upload. One writer, one reader, each on whatever thread; shared by both.
class BytePipe {
  public:
    explicit BytePipe(std::size_t capacity);

    // The writing end.

    bool hasSpace() const;
    /// Returns when there is space, when the reader has gone, or after `limit`.
    void waitForSpace(std::chrono::milliseconds limit);
    /// Space in one run, no more than `most`, to be filled in place and handed over by `commit`; empty when
    /// there is none just now, and nothing when the reader has gone.
    std::optional<std::span<char>> space(std::size_t most);
    /// Hands over so many bytes of the space that was given last.
    void commit(std::size_t count);
    /// Takes as much as there is space for and answers how much that was; -1 when the reader has gone.
    std::ptrdiff_t write(std::span<const char> bytes);
    /// The end of the stream: the reader sees it after the last byte.
    void closeWriting();

    // The reading end. Never blocks.

    enum class ReadState { bytes, nothingYet, end };
    struct Read {
        ReadState state;
        std::size_t count;
    };
    Read read(std::span<char> to);
    /// `readable` is called, on the writer's thread and without a lock, each time there is something to read
    /// after a `read` that found `nothingYet`. Set before the first read.
    void setReadable(std::function<void()> readable);
    /// The reader is done, with or without having read everything. `readable` is not called after this
    /// returns.
    void closeReading();

  private:
    void tellReader();

    const std::size_t capacity_;
    /// A ring. What is filled is the reader's, what is not the writer's: neither copies under the lock.
    const std::unique_ptr<char[]> buffer_;
    mutable Mutex lock_;
    std::condition_variable_any spaceCame_;
    std::size_t start_ VARK_GUARDED_BY(lock_) = 0;
    std::size_t filled_ VARK_GUARDED_BY(lock_) = 0;
    bool writingClosed_ VARK_GUARDED_BY(lock_) = false;
    bool readingClosed_ VARK_GUARDED_BY(lock_) = false;
    bool readerWaits_ VARK_GUARDED_BY(lock_) = false;
    bool writerWaits_ VARK_GUARDED_BY(lock_) = false;

    Mutex readableLock_;  // Held while `readable_` runs, so that `closeReading` can wait for it.
    std::function<void()> readable_ VARK_GUARDED_BY(readableLock_);
};

}  // namespace vark
