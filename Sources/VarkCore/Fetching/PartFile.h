#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/API/ContentSink.h"
#include "VarkCore/API/Messages/Items.h"
#include "VarkCore/Fetching/OpenFolder.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark {

enum class WhatStands { stays, isReplaced };

/// A file of the vark's on its way here: the part that has come lies beside its place, under a name made of
/// that place's name and the checksum of the whole. So the next run finds it again, and goes on where this
/// one ended, however it ended. Only one at a time is at work on a part (a lock on it). Without a checksum
/// nothing tells what a part belongs to, and none is left. Used by one task, for a step at a time on any
/// thread, in a folder that outlives it; all of it may block, and fails with `FileError`.
class PartFile final : public ContentSink {
  public:
    /// `name` is where the file is to stand. Fails with `std::runtime_error` when somebody else is at it.
    PartFile(const OpenFolder& folder, std::string name, const VarkItem& item);
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;
    /// An empty part goes, and one that nobody could go on with.
    ~PartFile() override;

    /// The bytes that are here. Any thread, as for those that this object took.
    std::int64_t next() const override { return size_; }
    std::int64_t taken() const { return taken_; }
    void take(std::int64_t at, std::string_view bytes) override;

    /// Whether some of it is from an earlier run.
    bool isContinued() const { return isContinued_; }
    void startOver();
    /// It is not worth going on with: it goes at the end.
    void discard() { isWorthless_ = true; }
    std::string sha256(const FileHasher::Progress& progress) const;
    /// With its bytes on the disk first; `mtime` in seconds since 1970. A file that it replaces hands on its
    /// permissions, a new one can be read by whom the person's umask lets. Anything but a file is never
    /// replaced (EEXIST).
    void moveIntoPlace(WhatStands whatStands, std::optional<double> mtime);

    /// The name of the part of these bytes.
    static std::string nameFor(const std::string& name, const std::string& sha256);
    /// Removes the parts in the folder that nobody will go on with: of other contents of a file that `wanted`
    /// (names of parts) now wants, and of files that nobody has wanted for a week. What somebody is at work
    /// on stays.
    static void sweep(const OpenFolder& folder, const std::vector<std::string>& wanted, Date now);

  private:
    void open();
    void empty();

    const OpenFolder& folder_;
    const std::string name_;
    const bool isRecognisable_;
    const std::string partName_;
    Descriptor file_;
    std::atomic<std::int64_t> size_ = 0;
    std::atomic<std::int64_t> taken_ = 0;
    bool isContinued_ = false;
    bool isWorthless_ = false;
    bool isInPlace_ = false;
};

}  // namespace vark
