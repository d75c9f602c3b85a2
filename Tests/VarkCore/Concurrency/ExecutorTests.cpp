#include "VarkCore/Concurrency/Executor.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <semaphore>
#include <thread>
#include <vector>

namespace vark {
namespace {

using namespace std::chrono_literals;

class Piece final : public Work {
  public:
    explicit Piece(std::function<void()> work) : work_(std::move(work)) {}
    void run() noexcept override { work_(); }

  private:
    std::function<void()> work_;
};

/// As a toolkit's loop does it, which knows events and handles them one after another.
TEST(SerialExecutor, StrandsNothingUnderALoopOfAnotherKind) {
    constexpr int threads = 4;
    constexpr int pieces = 2'000;
    SerialExecutor executor;
    std::counting_semaphore<> events{0};
    executor.setArrival([&] { events.release(); });
    int ran = 0;
    std::deque<Piece> posted;
    for (int i = 0; i < threads * pieces; ++i)
        posted.emplace_back([&] { ++ran; });
    std::vector<std::jthread> posters;
    for (int thread = 0; thread < threads; ++thread) {
        posters.emplace_back([&, thread] {
            for (int i = 0; i < pieces; ++i)
                executor.post(posted[static_cast<std::size_t>(thread * pieces + i)]);
        });
    }
    while (ran < threads * pieces) {
        ASSERT_TRUE(events.try_acquire_for(1min)) << "work was stranded";
        if (executor.runFor(0ns)) events.release();
    }
    executor.setArrival(nullptr);
}

}  // namespace
}  // namespace vark
