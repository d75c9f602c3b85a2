#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Upload/TokenBucket.h"

namespace vark {

/// A part of a person's file, read piece by piece on its way out. Used by one thread at a time; all of it may
/// block, and fails with `FileError`.
class FilePieces {
  public:
    FilePieces(std::filesystem::path path, std::int64_t offset, std::int64_t length);

    bool isAtEnd() const { return read_ == length_; }
    /// Of one piece at most, which is also what is paced at once.
    std::size_t sizeOfNext() const;
    /// Fills as much of `room` as the next piece has. 0: the file is shorter than it was.
    std::size_t read(std::span<char> room);

  private:
    std::filesystem::path path_;
    Descriptor file_;
    std::int64_t offset_;
    std::int64_t length_;
    std::int64_t read_ = 0;
};

/// How many seconds to wait before so many bytes may go out; `limiter` may be null. A rate so low that a
/// piece takes longer than 2 s goes out faster than it should.
double pauseBefore(TokenBucket* limiter, std::size_t bytes, Date now);

}  // namespace vark
