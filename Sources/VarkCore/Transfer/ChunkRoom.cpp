#include "VarkCore/Transfer/ChunkRoom.h"

#include <algorithm>

namespace vark {
namespace {

/// In seconds.
constexpr double longestWay = 10;
constexpr std::size_t arrivalsThatCount = 8;
constexpr Duration oldestArrival = std::chrono::seconds(15);

}  // namespace

ChunkRoom::ChunkRoom(int slots) : slots_(static_cast<std::size_t>(std::max(slots, 0))) {}

bool ChunkRoom::takeOrEnqueue(Wait& wait) {
    if (waiting_.empty() && hasRoomFor(wait.length_)) {
        ++taken_;
        goOn(wait.length_);
        return true;
    }
    waiting_.push_back(&wait);
    return false;
}

void ChunkRoom::leave(std::int64_t length) {
    --taken_;
    rest(length);
}

void ChunkRoom::rest(std::int64_t length) {
    --moving_;
    bytes_ -= length;
    letIn();
}

void ChunkRoom::goOn(std::int64_t length) {
    ++moving_;
    bytes_ += length;
}

void ChunkRoom::letIn() {
    while (!waiting_.empty() && hasRoomFor(waiting_.front()->length_)) {
        Wait* next = waiting_.front();
        waiting_.pop_front();
        ++taken_;
        goOn(next->length_);
        next->complete();
    }
}

bool ChunkRoom::hasRoomFor(std::int64_t length) const {
    if (taken_ >= slots_) return false;
    if (!followsTheRate || moving_ == 0) return true;
    std::optional<double> rate = this->rate();
    if (!rate) return false;
    if (limit > 0) rate = std::min(*rate, static_cast<double>(limit));
    return static_cast<double>(bytes_ + length) <= *rate * longestWay;
}

void ChunkRoom::arrived(std::int64_t length, Instant begun, Instant now) {
    arrivals_.push_back({length, begun, now});
    while (arrivals_.size() > arrivalsThatCount || now - arrivals_.front().arrived > oldestArrival)
        arrivals_.pop_front();
}

std::optional<double> ChunkRoom::rate() const {
    if (arrivals_.empty()) return std::nullopt;
    std::int64_t bytes = 0;
    Instant first = arrivals_.front().begun;
    for (const Arrival& arrival : arrivals_) {
        bytes += arrival.length;
        first = std::min(first, arrival.begun);
    }
    const double elapsed = inSeconds(arrivals_.back().arrived - first);
    return static_cast<double>(bytes) / std::max(elapsed, 1e-6);
}

}  // namespace vark
