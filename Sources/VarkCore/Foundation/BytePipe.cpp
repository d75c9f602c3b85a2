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
        if (space_.wait_until(lock_, deadline) == std::cv_status::timeout) return;
    }
}

std::ptrdiff_t BytePipe::write(std::span<const char> bytes) {
    std::size_t taken = 0;
    bool tell = false;
    {
        Locked hold(lock_);
        if (readingClosed_) return -1;
        taken = std::min(bytes.size(), capacity_ - filled_);
        std::size_t end = (start_ + filled_) % capacity_;
        std::size_t firstRun = std::min(taken, capacity_ - end);
        std::memcpy(buffer_.get() + end, bytes.data(), firstRun);
        std::memcpy(buffer_.get(), bytes.data() + firstRun, taken - firstRun);
        filled_ += taken;
        tell = taken > 0 && std::exchange(readerWaits_, false);
    }
    if (tell) tellReader();
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
    Locked hold(lock_);
    if (filled_ == 0) {
        if (writingClosed_) return {ReadState::end, 0};
        readerWaits_ = true;
        return {ReadState::nothingYet, 0};
    }
    std::size_t count = std::min(to.size(), filled_);
    std::size_t firstRun = std::min(count, capacity_ - start_);
    std::memcpy(to.data(), buffer_.get() + start_, firstRun);
    std::memcpy(to.data() + firstRun, buffer_.get(), count - firstRun);
    start_ = (start_ + count) % capacity_;
    filled_ -= count;
    space_.notify_one();
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
        space_.notify_one();
    }
    Locked hold(readableLock_);
    readable_ = nullptr;
}

void BytePipe::tellReader() {
    Locked hold(readableLock_);
    if (readable_) readable_();
}

}  // namespace vark
