#include "VarkCore/Upload/ChunkWriter.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

namespace vark {
namespace {

constexpr std::int64_t largestPiece = 262'144;
/// A rate so low that a piece takes longer goes out faster than it should.
constexpr double longestPause = 2;
constexpr std::chrono::milliseconds lookForSpace{3};

ssize_t readAt(const Descriptor& file, std::span<char> to, std::int64_t offset) {
    for (;;) {
        const ssize_t count = pread(file.get(), to.data(), to.size(), offset);
        if (count >= 0 || errno != EINTR) return count;
    }
}

}  // namespace

ChunkWriter::ChunkWriter(ChunkSource source, std::shared_ptr<BytePipe> output, WallClock now)
    : source_(std::move(source)), output_(std::move(output)), now_(std::move(now)) {}

void ChunkWriter::run() noexcept {
    pump();
    output_->closeWriting();
}

void ChunkWriter::pump() {
    Descriptor file;
    try {
        file = openRegularFile(source_.file);
    } catch (const FileError&) {
        return fail(fmt::format("Could not open {}.", name()));
    }
    std::int64_t sent = 0;
    while (sent < source_.length && !isCancelled()) {
        const std::int64_t count = pumpPiece(file, sent);
        if (count == 0) return;
        sent += count;
        moved_.set(sent);
        if (source_.progress) source_.progress(sent);
    }
}

std::int64_t ChunkWriter::pumpPiece(const Descriptor& file, std::int64_t sent) {
    const std::optional<std::span<char>> piece = waitForSpace(std::min(largestPiece, source_.length - sent));
    if (!piece) return 0;
    const ssize_t count = readAt(file, *piece, source_.offset + sent);
    if (count < 0) {
        fail(fmt::format("Could not read {}.", name()));
        return 0;
    }
    if (count == 0) {
        fail(fmt::format("{} is shorter than it was. Was it changed?", name()));
        return 0;
    }
    keepPace(count);
    if (isCancelled()) return 0;
    output_->commit(static_cast<std::size_t>(count));
    return count;
}

std::optional<std::span<char>> ChunkWriter::waitForSpace(std::int64_t wanted) {
    for (;;) {
        if (isCancelled()) return std::nullopt;
        const std::optional<std::span<char>> space = output_->space(static_cast<std::size_t>(wanted));
        if (!space || !space->empty()) return space;
        output_->waitForSpace(lookForSpace);
    }
}

void ChunkWriter::keepPace(std::int64_t bytes) {
    if (source_.limiter == nullptr) return;
    const double pause = std::min(source_.limiter->delay(bytes, now_()), longestPause);
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
