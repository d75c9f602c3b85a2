#include "VarkCore/Upload/ChunkWriter.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

namespace vark {
namespace {

constexpr std::chrono::milliseconds lookForSpace{3};

}  // namespace

ChunkWriter::ChunkWriter(ChunkSource source, std::shared_ptr<BytePipe> output, WallClock now)
    : source_(std::move(source)), output_(std::move(output)), now_(std::move(now)) {}

void ChunkWriter::run() noexcept {
    pump();
    output_->closeWriting();
}

void ChunkWriter::pump() {
    std::optional<FilePieces> file;
    try {
        file.emplace(source_.file, source_.offset, source_.length);
    } catch (const FileError&) {
        return fail(fmt::format("Could not open {}.", name()));
    }
    std::int64_t sent = 0;
    while (!file->isAtEnd() && !isCancelled()) {
        const std::size_t count = pumpPiece(*file);
        if (count == 0) return;
        sent += static_cast<std::int64_t>(count);
        moved_.set(sent);
        if (source_.progress) source_.progress(sent);
    }
}

std::size_t ChunkWriter::pumpPiece(FilePieces& file) {
    const std::optional<std::span<char>> room = waitForSpace(file.sizeOfNext());
    if (!room) return 0;
    std::size_t count = 0;
    try {
        count = file.read(*room);
    } catch (const FileError&) {
        fail(fmt::format("Could not read {}.", name()));
        return 0;
    }
    if (count == 0) {
        fail(fmt::format("{} is shorter than it was. Was it changed?", name()));
        return 0;
    }
    keepPace(count);
    if (isCancelled()) return 0;
    output_->commit(count);
    return count;
}

std::optional<std::span<char>> ChunkWriter::waitForSpace(std::size_t wanted) {
    for (;;) {
        if (isCancelled()) return std::nullopt;
        const std::optional<std::span<char>> space = output_->space(wanted);
        if (!space || !space->empty()) return space;
        output_->waitForSpace(lookForSpace);
    }
}

void ChunkWriter::keepPace(std::size_t bytes) {
    const double pause = pauseBefore(source_.limiter, bytes, now_());
    if (pause <= 0) return;
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(pause);
    const Locked hold(lock_);
    while (!cancelled_) {
        if (cancelledNow_.wait_until(lock_, until) == std::cv_status::timeout) return;
    }
}

void ChunkWriter::cancel() {
    const Locked hold(lock_);
    cancelled_ = true;
    cancelledNow_.notify_all();
}

bool ChunkWriter::isCancelled() const {
    const Locked hold(lock_);
    return cancelled_;
}

std::optional<std::string> ChunkWriter::failure() const {
    const Locked hold(lock_);
    return failure_;
}

void ChunkWriter::fail(std::string sentence) {
    const Locked hold(lock_);
    failure_ = std::move(sentence);
}

std::string ChunkWriter::name() const {
    return source_.file.filename().string();
}

}  // namespace vark
