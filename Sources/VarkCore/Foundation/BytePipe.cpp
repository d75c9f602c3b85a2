#include "VarkCore/Foundation/BytePipe.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vark {

BytePipe::BytePipe(std::size_t capacity)
    : capacity_(capacity), buffer_(std::make_unique_for_overwrite<char[]>(capacity)) {}

bool BytePipe::hasSpace() const {
    Locked hold(lock_);
    return filled_ < capacity_ || readingClosed_;
}

void BytePipe::waitForSpace(std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    Locked hold(lock_);
    while (filled_ == capacity_ && !readingClosed_) {
        writerWaits_ = true;
        const bool isOver = spaceCame_.wait_until(lock_, deadline) == std::cv_status::timeout;
        writerWaits_ = false;
        if (isOver) return;
    }
}

std::optional<std::span<char>> BytePipe::space(std::size_t most) {
    Locked hold(lock_);
    if (readingClosed_) return std::nullopt;
    const std::size_t end = (start_ + filled_) % capacity_;
    return std::span(buffer_.get() + end, std::min({most, capacity_ - filled_, capacity_ - end}));
}

void BytePipe::commit(std::size_t count) {
    bool tell = false;
    {
        Locked hold(lock_);
        filled_ += count;
        tell = count > 0 && std::exchange(readerWaits_, false);
    }
    if (tell) tellReader();
}

std::ptrdiff_t BytePipe::write(std::span<const char> bytes) {
    std::size_t taken = 0;
    while (taken < bytes.size()) {
        const std::optional<std::span<char>> room = space(bytes.size() - taken);
        if (!room) return -1;
        if (room->empty()) break;
        std::memcpy(room->data(), bytes.data() + taken, room->size());
        commit(room->size());
        taken += room->size();
    }
    return static_cast<std::ptrdiff_t>(taken);
}

void BytePipe::closeWriting() {
    bool tell = false;
    {
        Locked hold(lock_);
        writingClosed_ = true;
        tell = std::exchange(readerWaits_, false);
    }
    if (tell) tellReader();
}

BytePipe::Read BytePipe::read(std::span<char> to) {
    std::size_t start = 0;
    std::size_t count = 0;
    {
        Locked hold(lock_);
        if (filled_ == 0) {
            if (writingClosed_) return {ReadState::end, 0};
            readerWaits_ = true;
            return {ReadState::nothingYet, 0};
        }
        start = start_;
        count = std::min(to.size(), filled_);
    }
    std::size_t firstRun = std::min(count, capacity_ - start);
    std::memcpy(to.data(), buffer_.get() + start, firstRun);
    std::memcpy(to.data() + firstRun, buffer_.get(), count - firstRun);
    Locked hold(lock_);
    start_ = (start + count) % capacity_;
    filled_ -= count;
    if (writerWaits_) spaceCame_.notify_one();
    return {ReadState::bytes, count};
}

void BytePipe::setReadable(std::function<void()> readable) {
    Locked hold(readableLock_);
    readable_ = std::move(readable);
}

void BytePipe::closeReading() {
    {
        Locked hold(lock_);
        readingClosed_ = true;
        spaceCame_.notify_one();
    }
    Locked hold(readableLock_);
    readable_ = nullptr;
}

void BytePipe::tellReader() {
    Locked hold(readableLock_);
    if (readable_) readable_();
}

}  // namespace vark
