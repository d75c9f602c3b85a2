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

TEST(SerialExecutor, RunsForATimeAndSaysWhetherMoreIsLeft) {
    SerialExecutor executor;
    int ran = 0;
    Piece first([&] { ++ran; });
    Piece last([&] { ++ran; });
    Piece second([&] {
        ++ran;
        executor.post(last);
    });
    EXPECT_FALSE(executor.runFor(0ns));
    executor.post(first);
    executor.post(second);
    EXPECT_TRUE(executor.runFor(0ns));
    EXPECT_EQ(ran, 1);
    EXPECT_FALSE(executor.runFor(1h));
    EXPECT_EQ(ran, 3);
}

/// A loop of another kind, as that of a toolkit is: it knows events, handles them one after another, and may
/// be entered again from within an event.
class OtherLoop {
  public:
    explicit OtherLoop(SerialExecutor& executor) : executor_(executor) {
        executor_.setArrival([this] { events_.release(); });
    }
    ~OtherLoop() { executor_.setArrival(nullptr); }

    void handleUntil(const std::function<bool()>& done) {
        while (!done()) {
            ASSERT_TRUE(events_.try_acquire_for(1min)) << "work was stranded";
            // What is left is for a loop that the first piece of it may enter.
            if (executor_.hasWork()) events_.release();
            executor_.runFor(0ns);
        }
    }

  private:
    SerialExecutor& executor_;
    std::counting_semaphore<> events_{0};
};

TEST(SerialExecutor, StrandsNothingUnderALoopOfAnotherKindThatIsEnteredAgain) {
    constexpr int threads = 4;
    constexpr int pieces = 2'000;
    SerialExecutor executor;
    int ran = 0;
    Piece waiting([&] { ++ran; });
    executor.post(waiting);
    OtherLoop loop(executor);
    std::deque<Piece> posted;
    for (int i = 0; i < threads * pieces; ++i) {
        posted.emplace_back([&, i] {
            ++ran;
            // A nested loop that waits for what comes after it.
            if (i % 500 == 0 && ran < threads * pieces / 2)
                loop.handleUntil([&, enough = ran + 2] { return ran >= enough; });
        });
    }
    std::vector<std::jthread> posters;
    for (int thread = 0; thread < threads; ++thread) {
        posters.emplace_back([&, thread] {
            for (int i = 0; i < pieces; ++i)
                executor.post(posted[static_cast<std::size_t>(thread * pieces + i)]);
        });
    }
    loop.handleUntil([&] { return ran == threads * pieces + 1; });
}

}  // namespace
}  // namespace vark
