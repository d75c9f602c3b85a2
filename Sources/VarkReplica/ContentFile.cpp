#include "VarkReplica/ContentFile.h"

#include <unistd.h>

#include <algorithm>

#include "VarkCore/Concurrency/Clock.h"
#include "VarkReplica/ContentFetcher.h"

namespace vark {

/// A wait for bytes, which also ends when a run does: whoever waited looks again.
class ContentFile::Wait final : public StoppableWait {
  public:
    Wait(ContentFile& file, ByteRange range) : file_(file), range_(range) {}

    ByteRange range() const { return range_; }

    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
        return suspend(handle, [this](const TaskContext& context) {
            if (file_.enqueue(*this)) {
                watch(context.token);
            } else {
                complete();
            }
        });
    }
    void await_resume() {
        unwatch();
        if (isCancelled_) throw CancellationError();
        if (failure_) std::rethrow_exception(failure_);
    }
    void end(std::exception_ptr failure) noexcept {
        failure_ = std::move(failure);
        complete();
    }

  private:
    void onStop() noexcept override {
        if (!file_.withdraw(*this)) return;
        isCancelled_ = true;
        complete();
    }

    ContentFile& file_;
    const ByteRange range_;
    std::exception_ptr failure_;
    bool isCancelled_ = false;
};

ContentFile::ContentFile(ContentFetcher& fetcher, const Record& record, Descriptor file,
                         std::filesystem::path path, bool isWhole)
    : fetcher_(fetcher),
      ino_(record.ino),
      number_(record.content),
      id_(record.there.value().id),
      size_(record.there->size),
      sha256_(record.there->sha256),
      file_(std::move(file)),
      path_(std::move(path)),
      map_(size_),
      isWhole_(isWhole) {}

ContentFile::~ContentFile() {
    if (!isWhole_) ::unlink(path_.c_str());
}

bool ContentFile::hasLocked(ByteRange range) const {
    if (isWhole_ || range.begin >= std::min(range.end, size_)) return true;
    // A small file is read only once its checksum is right.
    return size_ > smallFile && map_.has(range);
}

bool ContentFile::has(ByteRange range) const {
    Locked locked(lock_);
    return hasLocked(range);
}

bool ContentFile::enqueue(Wait& wait) {
    Locked locked(lock_);
    if (hasLocked(wait.range())) return false;
    waits_.push_back(&wait);
    return true;
}

bool ContentFile::withdraw(Wait& wait) noexcept {
    Locked locked(lock_);
    return std::erase(waits_, &wait) > 0;
}

void ContentFile::arrived(ByteRange range) {
    std::vector<Wait*> ready;
    {
        Locked locked(lock_);
        map_.add(range);
        std::vector<Wait*> further;
        for (Wait* wait : waits_)
            (hasLocked(wait->range()) ? ready : further).push_back(wait);
        waits_ = std::move(further);
    }
    for (Wait* wait : ready)
        wait->end(nullptr);
}

void ContentFile::runEnded(ByteRange run, const std::exception_ptr& failure) {
    std::erase(runs_, run);
    std::vector<Wait*> all;
    {
        Locked locked(lock_);
        all = std::exchange(waits_, {});
    }
    for (Wait* wait : all)
        wait->end(failure);
}

void ContentFile::clear() {
    Locked locked(lock_);
    map_.clear();
}

bool ContentFile::mayBeWhole() const {
    Locked locked(lock_);
    return map_.isWhole() && !isWhole_;
}

Task<void> ContentFile::need(ByteRange range) {
    return bring(shared_from_this(), range);
}

Task<void> ContentFile::bring(std::shared_ptr<ContentFile> file, ByteRange range) {
    while (!file->has(range)) {
        file->fetcher_.bring(file, range);
        co_await Wait(*file, range);
    }
}

}  // namespace vark
