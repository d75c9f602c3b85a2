#include "VarkCore/Upload/ChunkTransfer.h"

#include <utility>

#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Upload/RunWhileItMoves.h"

namespace vark {
namespace {

constexpr std::size_t pipeCapacity = 1'048'576;

/// A writer that still pumps when the request has ended stops, however the request ended.
class WriterStop {
  public:
    WriterStop(ChunkWriter& writer, BytePipe& pipe) : writer_(writer), pipe_(pipe) {}
    WriterStop(const WriterStop&) = delete;
    WriterStop& operator=(const WriterStop&) = delete;
    ~WriterStop() {
        writer_.cancel();
        pipe_.closeReading();
    }

  private:
    ChunkWriter& writer_;
    BytePipe& pipe_;
};

}  // namespace

ChunkTransfer::ChunkTransfer(HTTPSession& session, BlockingPool& writerPool, StallWatch watch, WallClock now,
                             ChunkSource source)
    : session_(session),
      writerPool_(writerPool),
      watch_(watch),
      length_(source.length),
      pipe_(std::make_shared<BytePipe>(pipeCapacity)),
      writer_(std::move(source), pipe_, std::move(now)) {}

Task<HTTPResponse> ChunkTransfer::send(HTTPRequest request) {
    HTTPResponse answer;
    std::optional<HTTPError> lost;
    auto body = [&](TaskGroup<void>& group) { return sendWhilePumping(group, std::move(request)); };
    try {
        answer = co_await withGroup<void>(body);
    } catch (const HTTPError& error) {
        lost = error;
    }

    if (lost) co_await checkCancellation();
    if (std::optional<std::string> failure = writer_.failure())
        throw VarkAPIError::transport(std::move(*failure));
    if (lost) throw VarkAPIError::transport(describeURLError(*lost));
    // The vark may well refuse a chunk before it has read it, but it cannot have taken one that was not sent.
    const bool taken = answer.status >= 200 && answer.status <= 299;
    if (taken && writer_.moved() < length_)
        throw VarkAPIError::transport("The connection closed while sending.");
    co_return answer;
}

Task<HTTPResponse> ChunkTransfer::sendWhilePumping(TaskGroup<void>& group, HTTPRequest request) {
    group.add(pump());
    const WriterStop stop(writer_, *pipe_);
    Task<HTTPResponse> upload = session_.upload(std::move(request), pipe_, length_);
    auto moved = [this] { return writer_.moved(); };
    co_return co_await runWhileItMoves<HTTPResponse>(length_, watch_, moved, std::move(upload));
}

Task<void> ChunkTransfer::pump() {
    co_await writerPool_.run([this] { writer_.run(); });
}

}  // namespace vark
