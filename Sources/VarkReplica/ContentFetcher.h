#pragma once

#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/Concurrency/AsyncSemaphore.h"
#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkReplica/ContentFile.h"
#include "VarkReplica/Replica.h"

namespace vark {

/// The contents that somebody reads, and the streams that fill them: each byte is fetched once however many
/// wait for it, and what a reader began goes on without them to the end of its run. Bytes lie in `incoming`
/// until all of them are there and their checksum is the vark's; then in `contents`. Owned by the host, and
/// outlives every `ContentFile`'s readers.
class ContentFetcher {
  public:
    using Tell = std::function<void(std::vector<KernelNews>)>;

    struct Host {
        Replica& replica;
        const ReplicaFiles& files;
        VarkAPI& vark;
        BlockingPool& hashing;
        /// Called on the executor.
        Tell tell;
        Executor& executor;
        Clock& clock;
    };

    /// What an earlier run left in `incoming` goes.
    explicit ContentFetcher(Host host);

    /// The bytes of the file's version of this moment. Does not wait; any thread. Fails with `NoSuchNode`,
    /// `FileError` and `DatabaseError`.
    std::shared_ptr<ContentFile> open(Ino ino);

  private:
    friend class ContentFile;
    using Key = std::pair<Ino, std::int64_t>;

    std::shared_ptr<ContentFile> make(const Record& record) VARK_REQUIRES(lock_);
    /// Begins a run for what is missing first, unless one brings it. On the executor, like the rest.
    void bring(const std::shared_ptr<ContentFile>& file, ByteRange range);
    Task<void> run(std::shared_ptr<ContentFile> file, ByteRange run);
    Task<void> fill(std::shared_ptr<ContentFile> file, ByteRange run);
    bool isCurrent(const ContentFile& file) const;
    /// Fails with `ContentReplaced` when the vark has another version by now.
    Task<void> confirm(std::shared_ptr<ContentFile> file);
    /// Bytes came that are not those of the file's checksum or size. What came goes, and is asked for once
    /// more.
    Task<void> distrust(std::shared_ptr<ContentFile> file);
    /// Looks at the bytes when all are there.
    Task<void> complete(std::shared_ptr<ContentFile> file);
    void takeIn(ContentFile& file);

    const Host host_;
    AsyncSemaphore places_;
    Mutex lock_;
    std::map<Key, std::weak_ptr<ContentFile>> files_ VARK_GUARDED_BY(lock_);
    /// Of files in `incoming`: what is on its way out must not take the next one's along.
    std::int64_t copies_ VARK_GUARDED_BY(lock_) = 0;
    TaskScope scope_;
};

}  // namespace vark
