#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Time/Calendar.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

class Locations;

/// A plain diary for people: one line for each sentence, with the time in front. A file above `maxBytes` is
/// moved aside to "{name}.previous.log" before the next line; there is only ever one such. Any thread, and
/// several processes may write into one file. Failures are swallowed: the diary must never stop the work.
class TransferLog {
  public:
    TransferLog(std::filesystem::path url, std::int64_t maxBytes, WallClock now, Calendar calendar);

    static std::filesystem::path defaultURL(const Locations& locations);

    const std::filesystem::path& url() const { return url_; }
    void write(std::string_view message);
    /// The last `count` pieces of the file between line ends. The piece behind the last line end is empty and
    /// counts.
    std::string tail(std::size_t count) const;

  private:
    std::string line(std::string_view message) const;
    void rollIfTooLarge() VARK_REQUIRES(lock_);

    const std::filesystem::path url_;
    const std::int64_t maxBytes_;
    const WallClock now_;
    const Calendar calendar_;
    /// Guards the file against this process's other threads.
    mutable Mutex lock_;
};

}  // namespace vark
