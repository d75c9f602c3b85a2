#pragma once

#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "VarkCore/API/ContentSink.h"
#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkReplica/BlockMap.h"
#include "VarkReplica/ReplicaRecord.h"

namespace vark {

class ContentFetcher;

/// The vark has another version of the file, so what is missing of this one cannot be had any more.
class ContentReplaced : public std::runtime_error {
  public:
    ContentReplaced() : std::runtime_error("The file has been changed in the vark since it was opened.") {}
};

/// What the vark sends is not what it says that it has.
class ContentDamaged : public std::runtime_error {
  public:
    ContentDamaged()
        : std::runtime_error("What arrived of the file is not what the vark has. Try again later.") {}
};

/// One version of one file's bytes, as far as they are here. Made by `ContentFetcher::open` and shared by all
/// who read; what is not whole at its end goes. Any thread may ask what is here and read it.
class ContentFile : public std::enable_shared_from_this<ContentFile> {
  public:
    class Wait;

    Ino ino() const { return ino_; }
    std::int64_t number() const { return number_; }
    std::int64_t size() const { return size_; }
    /// To be read by position, as far as `has` says; good for as long as this object.
    int descriptor() const { return file_.get(); }
    bool has(ByteRange range) const;

    /// Returns when the bytes are here: the only wait for bytes. Runs on the fetcher's executor and keeps the
    /// content meanwhile. Cancelling it stops nothing. Fails with `ContentReplaced`, `ContentDamaged`,
    /// `VarkAPIError`, and `FileError` when the disk here takes no more.
    Task<void> need(ByteRange range);

    ~ContentFile();

  private:
    friend class ContentFetcher;
    class RunSink;

    ContentFile(ContentFetcher& fetcher, const Record& record, Descriptor file, std::filesystem::path path,
                bool isWhole);

    static Task<void> bring(std::shared_ptr<ContentFile> file, ByteRange range);
    bool hasLocked(ByteRange range) const VARK_REQUIRES(lock_);
    bool enqueue(Wait& wait);
    bool withdraw(Wait& wait) noexcept;
    void arrived(ByteRange range);
    void runEnded(ByteRange run, const std::exception_ptr& failure);
    void clear();
    /// All has arrived, and its checksum is still to be looked at.
    bool mayBeWhole() const;

    ContentFetcher& fetcher_;
    const Ino ino_;
    const std::int64_t number_;
    const std::int64_t id_;
    const std::int64_t size_;
    const std::string sha256_;
    const Descriptor file_;
    const std::filesystem::path path_;

    mutable Mutex lock_;
    BlockMap map_ VARK_GUARDED_BY(lock_);
    /// All is here and is what the vark says that it has.
    bool isWhole_ VARK_GUARDED_BY(lock_);
    std::vector<Wait*> waits_ VARK_GUARDED_BY(lock_);

    // On the fetcher's executor alone.
    std::vector<ByteRange> runs_;
    bool isConfirmed_ = false;
    bool isLookedAt_ = false;
    int timesDamaged_ = 0;
};

}  // namespace vark
