#include "VarkReplica/ContentFetcher.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "VarkCore/Upload/FileHasher.h"

namespace vark {
namespace {

/// Streams at once, over all files.
constexpr int mostRuns = 6;
/// How often bytes may arrive that are not those of the vark.
constexpr int mostTimesDamaged = 2;

Descriptor makeFile(const std::filesystem::path& path, std::int64_t size) {
    Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file) throw FileError("Could not create", path, errno);
    if (::ftruncate(file.get(), size) != 0) throw FileError("Could not write", path, errno);
    return file;
}

}  // namespace

/// Writes the bytes of one run into their place.
class ContentFile::RunSink final : public ContentSink {
  public:
    /// What was wanted is here.
    struct Enough {};
    /// The disk here failed, which is no failure of the call's.
    struct Failed {
        FileError error;
    };

    RunSink(std::shared_ptr<ContentFile> file, ByteRange run)
        : file_(std::move(file)), at_(run.begin), end_(run.end) {}

    std::int64_t next() const override { return at_ / BlockMap::blockSize * BlockMap::blockSize; }

    void take(std::int64_t at, std::string_view bytes) override {
        if (at != at_) begin_ = at;
        at_ = at;
        if (at_ + std::ssize(bytes) > file_->size_) throw ContentDamaged();
        while (!bytes.empty()) {
            const ssize_t count = ::pwrite(file_->file_.get(), bytes.data(), bytes.size(), at_);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) throw Failed{FileError("Could not write", file_->path_, errno)};
            bytes.remove_prefix(static_cast<std::size_t>(count));
            at_ += count;
        }
        file_->arrived({begin_, std::min(at_, lastBlock_)});
        if (at_ >= end_ && end_ < file_->size_) throw Enough();
    }

    bool hasAll() const { return at_ >= end_; }

  private:
    const std::shared_ptr<ContentFile> file_;
    std::int64_t at_;
    /// Where the bytes without a gap before `at_` begin.
    std::int64_t begin_ = at_;
    const std::int64_t end_;
    /// Whoever reads what the run brings has it all only when the vark has been asked whether it is of one
    /// version.
    const std::int64_t lastBlock_ = (end_ - 1) / BlockMap::blockSize * BlockMap::blockSize;
};

ContentFetcher::ContentFetcher(Host host)
    : host_(std::move(host)), places_(mostRuns), scope_(host_.executor, host_.clock) {
    std::error_code ignored;
    for (const auto& left : std::filesystem::directory_iterator(host_.files.incoming(), ignored))
        std::filesystem::remove(left.path(), ignored);
}

std::shared_ptr<ContentFile> ContentFetcher::open(Ino ino) {
    const std::optional<Record> record = host_.replica.record(ino);
    if (!record || record->isFolder() || !record->there) throw NoSuchNode();
    Locked locked(lock_);
    std::erase_if(files_, [](const auto& each) { return each.second.expired(); });
    std::weak_ptr<ContentFile>& known = files_[Key(ino, record->content)];
    if (std::shared_ptr<ContentFile> file = known.lock()) return file;
    std::shared_ptr<ContentFile> file = make(*record);
    known = file;
    return file;
}

std::shared_ptr<ContentFile> ContentFetcher::make(const Record& record) {
    if (record.held == Held::whole) {
        const std::filesystem::path path = host_.files.content(record.ino, record.content);
        try {
            return std::shared_ptr<ContentFile>(
                new ContentFile(*this, record, openForReading(path), path, true));
        } catch (const FileError& error) {
            if (!error.isGone()) throw;
        }
        // Somebody has taken it away; the vark still has it.
        host_.replica.setHeld(record.ino, record.content, Held::nothing);
    }
    const std::filesystem::path path = host_.files.incoming(record.ino, record.content, ++copies_);
    Descriptor file = makeFile(path, record.there.value().size);
    return std::shared_ptr<ContentFile>(new ContentFile(*this, record, std::move(file), path, false));
}

void ContentFetcher::bring(const std::shared_ptr<ContentFile>& file, ByteRange range) {
    ByteRange next;
    {
        Locked locked(file->lock_);
        // Of a small file that is all here, but not yet looked at, the run is still there.
        next = runFor(file->map_, file->map_.firstMissing(range).value_or(0));
    }
    for (const ByteRange& other : file->runs_) {
        if (other.begin <= next.begin && next.begin < other.end) return;
    }
    file->runs_.push_back(next);
    scope_.start(run(file, next));
}

Task<void> ContentFetcher::run(std::shared_ptr<ContentFile> file, ByteRange run) {
    std::exception_ptr failure;
    try {
        co_await places_.wait();
        const SlotPermit permit(places_);
        co_await checkCancellation();
        co_await fill(file, run);
    } catch (...) {
        failure = std::current_exception();
    }
    file->runEnded(run, failure);
}

Task<void> ContentFetcher::fill(std::shared_ptr<ContentFile> file, ByteRange run) {
    if (!isCurrent(*file)) throw ContentReplaced();
    const bool isLarge = file->size_ > smallFile;
    if (isLarge && !file->isConfirmed_) co_await confirm(file);
    file->isConfirmed_ = true;
    ContentFile::RunSink sink(file, run);
    std::optional<FileError> failedHere;
    bool isDamaged = false;
    try {
        co_await host_.vark.fetch(file->id_, sink);
        isDamaged = !sink.hasAll();
    } catch (const ContentFile::RunSink::Enough&) {
        // The rest of the file is for other runs.
    } catch (const ContentFile::RunSink::Failed& failed) {
        failedHere = failed.error;
    } catch (const ContentDamaged&) {
        isDamaged = true;
    }
    if (failedHere) throw FileError(*failedHere);
    if (isDamaged) co_return co_await distrust(file);
    if (isLarge) co_await confirm(file);
    file->arrived(run);
    co_await complete(file);
}

bool ContentFetcher::isCurrent(const ContentFile& file) const {
    const std::optional<Record> now = host_.replica.record(file.ino_);
    return now && now->there && now->content == file.number_;
}

Task<void> ContentFetcher::confirm(std::shared_ptr<ContentFile> file) {
    const Asked asked = host_.replica.ask();
    const VarkItem item = co_await host_.vark.item(file->id_);
    host_.tell(host_.replica.learn({&item, 1}, asked).news);
    if (isCurrent(*file)) co_return;
    // Some of what came last may be of the other one.
    file->clear();
    throw ContentReplaced();
}

Task<void> ContentFetcher::complete(std::shared_ptr<ContentFile> file) {
    if (file->isLookedAt_ || !file->mayBeWhole()) co_return;
    file->isLookedAt_ = true;
    struct Leave {
        ContentFile& file;
        ~Leave() { file.isLookedAt_ = false; }
    } leave{*file};
    auto hash = [file] {
        if (::fdatasync(file->file_.get()) != 0) throw FileError("Could not write", file->path_, errno);
        return FileHasher::sha256Of(file->file_, file->path_, nullptr);
    };
    const std::string sha256 = co_await host_.hashing.run(hash);
    if (file->sha256_.empty() || sha256 == file->sha256_) co_return takeIn(*file);
    co_await distrust(file);
}

Task<void> ContentFetcher::distrust(std::shared_ptr<ContentFile> file) {
    file->clear();
    // Of another version there is no damage to tell of.
    co_await confirm(file);
    if (++file->timesDamaged_ >= mostTimesDamaged) throw ContentDamaged();
}

void ContentFetcher::takeIn(ContentFile& file) {
    const std::filesystem::path path = host_.files.content(file.ino_, file.number_);
    if (::rename(file.path_.c_str(), path.c_str()) != 0) throw FileError("Could not move", file.path_, errno);
    // A version that is no longer shown is for those alone who have it open.
    if (!host_.replica.setHeld(file.ino_, file.number_, Held::whole)) ::unlink(path.c_str());
    Locked locked(file.lock_);
    file.isWhole_ = true;
}

}  // namespace vark
