#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "VarkCore/API/VarkAPI.h"

namespace vark::cli {

/// Bytes that came from standard input and cannot be had again: each lies in a folder of its own, under the
/// name that it is sent by, until the vark vouches for it. The main thread only; its calls wait for the disk.
class Spool {
  public:
    /// `folder` is `Locations::spool`.
    explicit Spool(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// Reads the descriptor to its end, into a file called `name` that is to come to `varkPath`. Fails with
    /// `FileError`, and then nothing is kept.
    std::filesystem::path take(int from, const std::string& name, const std::string& varkPath) const;

    /// Whether anything lies there.
    bool isEmpty() const;
    /// Removes what the vark has at its place with the same checksum, and what somebody was killed in the
    /// middle of taking. What cannot be proved stays; nothing here fails.
    Task<void> sweep(std::shared_ptr<VarkAPI> api) const;

  private:
    const std::filesystem::path folder_;
};

}  // namespace vark::cli
