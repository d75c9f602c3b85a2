#include "VarkBox/Store/ChunkSink.h"

#include <unistd.h>

#include "VarkBox/Store/Uploads.h"

namespace vark::box {

ChunkSink::ChunkSink(Uploads& uploads, std::shared_ptr<OpenUpload> upload, std::int64_t index,
                     Descriptor file)
    : uploads_(uploads),
      upload_(std::move(upload)),
      index_(index),
      file_(std::move(file)),
      slot_(upload_->slot(index)) {}

void ChunkSink::write(std::string_view piece) {
    std::int64_t start = upload_->record().chunkOffset(index_) + written_;
    written_ += static_cast<std::int64_t>(piece.size());
    Locked guard(slot_->lock);
    if (slot_->landed) return;
    while (!piece.empty()) {
        ssize_t count = ::pwrite(file_.get(), piece.data(), piece.size(), start);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw FileError("Could not write", upload_->record().id, errno);
        piece.remove_prefix(static_cast<std::size_t>(count));
        start += count;
    }
}

BoxReply ChunkSink::finish() {
    Locked guard(slot_->lock);
    if (!slot_->landed) {
        uploads_.chunkLanded(upload_, index_);
        slot_->landed = true;
    }
    return BoxReply::json(200, boost::json::object{{"index", index_}, {"bytes", written_}});
}

}  // namespace vark::box
