#pragma once

#include <memory>

#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Services/HTTPSession.h"
#include "VarkCore/Upload/ChunkWriter.h"
#include "VarkCore/Upload/StallWatch.h"

namespace vark {

/// One attempt to send a chunk through the session: a writer on a thread of the pool feeds the request, and a
/// watch sees that bytes keep moving. Owned by the task that awaits `send`; nothing of it is left when that
/// has returned.
class ChunkTransfer {
  public:
    ChunkTransfer(HTTPSession& session, BlockingPool& writerPool, StallWatch watch, WallClock now,
                  ChunkSource source);

    /// Once. The answer with whatever status, or `VarkAPIError`'s transport with the sentence of what went
    /// wrong first: a stall, the file, the network.
    Task<HTTPResponse> send(HTTPRequest request);

  private:
    Task<HTTPResponse> sendWhilePumping(TaskGroup<void>& group, HTTPRequest request);
    Task<void> pump();

    HTTPSession& session_;
    BlockingPool& writerPool_;
    const StallWatch watch_;
    const std::int64_t length_;
    const std::shared_ptr<BytePipe> pipe_;
    ChunkWriter writer_;
};

}  // namespace vark
