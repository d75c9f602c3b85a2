#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/Store/OpenUpload.h"

namespace vark::box {

class Uploads;

/// Writes one chunk straight to its place in the upload's file. Several may write the same chunk at once:
/// they bring the same bytes or the check fails, and the first that is whole makes the chunk land.
class ChunkSink : public BodySink {
  public:
    ChunkSink(Uploads& uploads, std::shared_ptr<OpenUpload> upload, std::int64_t index, Descriptor file);

    void write(std::string_view piece) override;
    BoxReply finish() override;

  private:
    Uploads& uploads_;
    std::shared_ptr<OpenUpload> upload_;
    std::int64_t index_;
    Descriptor file_;
    std::shared_ptr<ChunkSlot> slot_;
    std::int64_t written_ = 0;
};

}  // namespace vark::box
