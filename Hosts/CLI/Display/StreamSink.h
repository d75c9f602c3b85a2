#pragma once

#include <stop_token>

#include "VarkCore/API/ContentSink.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark::cli {

/// The bytes of an item on their way to a reader who takes them as they come: a pipe, a terminal, a device.
/// What has gone cannot be taken back, so they are hashed on their way and judged at the end. A reader that
/// takes nothing holds the transfer up until the end is asked for. Fails with `FileError`.
class StreamSink final : public ContentSink {
  public:
    /// Writes to the descriptor, which outlives it, and ends with `CancellationError` when told to stop.
    StreamSink(int to, std::string name, std::stop_token cancelled);

    std::int64_t next() const override { return gone_; }
    void take(std::int64_t at, std::string_view bytes) override;
    /// Of all that has gone; the last thing to ask.
    std::string sha256() { return hash_.hexadecimal(); }

  private:
    void waitUntilItTakes();

    const int to_;
    const std::string name_;
    const std::stop_token cancelled_;
    const Descriptor bell_;
    const bool isFile_;
    std::int64_t gone_ = 0;
    RunningHash hash_;
};

}  // namespace vark::cli
