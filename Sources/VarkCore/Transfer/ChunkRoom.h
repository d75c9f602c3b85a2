#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "VarkCore/Concurrency/Clock.h"
#include "VarkCore/Concurrency/Task.h"

namespace vark {

/// Decides how many chunks are on their way at once: never more than the slots, and where the number follows
/// the rate, only as many as arrive in some 10 s, so that an interruption of a slow link costs little; one
/// always goes. First come, first served. Owned by the engine, on its executor alone.
///
/// The rate is that of the chunks that arrived last. Nothing is known before the first one, which therefore
/// goes alone; what has merely been handed to the system's buffers says nothing about a link. A chunk that
/// waits for its next try keeps its slot and takes nothing of the rate.
class ChunkRoom {
  public:
    /// A negative count is none.
    explicit ChunkRoom(int slots);

    class Wait;
    /// Returns once there is room, which `leave` or a `ChunkPlace` gives back. Not cancellable: a cancelled
    /// task stays suspended until its turn comes.
    [[nodiscard]] Wait enter(std::int64_t length);
    void leave(std::int64_t length);
    /// Between two tries of a chunk that has entered.
    void rest(std::int64_t length);
    void goOn(std::int64_t length);
    /// A chunk that set out at `begun` has arrived.
    void arrived(std::int64_t length, Instant begun, Instant now);

    bool followsTheRate = false;
    /// Bytes a second that are not to be exceeded; 0 without a limit.
    std::int64_t limit = 0;

  private:
    struct Arrival {
        std::int64_t length;
        Instant begun, arrived;
    };

    bool takeOrEnqueue(Wait& wait);
    bool hasRoomFor(std::int64_t length) const;
    void letIn();
    /// Bytes a second; nothing before the first arrival.
    std::optional<double> rate() const;

    const std::size_t slots_;
    std::size_t taken_ = 0;
    // Of these, what is on its way.
    std::size_t moving_ = 0;
    std::int64_t bytes_ = 0;
    std::deque<Wait*> waiting_;
    std::deque<Arrival> arrivals_;
};

class ChunkRoom::Wait final : public LeafWait {
  public:
    Wait(ChunkRoom& room, std::int64_t length) : room_(room), length_(length) {}
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
        return suspend(handle, [this](const TaskContext&) {
            if (room_.takeOrEnqueue(*this)) complete();
        });
    }
    void await_resume() const noexcept {}

  private:
    friend class ChunkRoom;
    ChunkRoom& room_;
    std::int64_t length_;
};

inline ChunkRoom::Wait ChunkRoom::enter(std::int64_t length) {
    return {*this, length};
}

/// Gives the place of an `enter` that has returned back at the end of the block.
class ChunkPlace {
  public:
    ChunkPlace(ChunkRoom& room, std::int64_t length) : room_(room), length_(length) {}
    ChunkPlace(const ChunkPlace&) = delete;
    ChunkPlace& operator=(const ChunkPlace&) = delete;
    ~ChunkPlace() {
        if (isResting_) room_.goOn(length_);
        room_.leave(length_);
    }

    void rest() {
        isResting_ = true;
        room_.rest(length_);
    }
    void goOn() {
        isResting_ = false;
        room_.goOn(length_);
    }

  private:
    ChunkRoom& room_;
    const std::int64_t length_;
    bool isResting_ = false;
};

}  // namespace vark
