#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark {
namespace {

using test::TestLoop;

/// Something outside that takes a while and must be told to stop: it completes only when it is let go.
class Transfer final {
  public:
    class Wait final : public StoppableWait {
      public:
        explicit Wait(Transfer& transfer) : transfer_(transfer) {}
        template <class Promise>
        bool await_suspend(std::coroutine_handle<Promise> handle) {
            return suspend(handle, [this](const TaskContext& context) {
                transfer_.wait_ = this;
                watch(context.token);
            });
        }
        void await_resume() {
            unwatch();
            if (transfer_.asked_) throw CancellationError();
        }
        void finish() { complete(); }

      private:
        void onStop() noexcept override { transfer_.asked_ = true; }
        Transfer& transfer_;
    };

    Wait wait() { return Wait(*this); }
    bool isAskedToStop() const { return asked_; }
    void letGo() { wait_->finish(); }

  private:
    Wait* wait_ = nullptr;
    bool asked_ = false;
};

Task<void> transferring(Transfer* transfer) {
    co_await transfer->wait();
}

TEST(Cancellation, ReachesATransferAndWaitsForItToLetGo) {
    TestLoop loop;
    Transfer transfer;
    TaskHandle<void> handle = loop.start(transferring(&transfer));
    loop.settle();
    handle.cancel();
    loop.settle();
    EXPECT_TRUE(transfer.isAskedToStop());
    EXPECT_FALSE(handle.done());
    transfer.letGo();
    loop.settle();
    EXPECT_THROW(handle.result(), CancellationError);
}

Task<void> sleeping() {
    co_await sleepFor(std::chrono::hours(1));
}
Task<void> sleepingInAGroup() {
    co_await withGroup<void>([](TaskGroup<void>& group) -> Task<void> {
        group.add(sleeping());
        group.add(sleeping());
        while (co_await group.next()) {
        }
    });
}
Task<void> checking() {
    co_await yieldNow();
    co_await checkCancellation();
}
Task<void> sleepingDeep(int depth) {
    if (depth > 0) {
        co_await sleepingDeep(depth - 1);
    } else {
        co_await sleeping();
    }
}

TEST(Cancellation, ReachesEveryKindOfWaitAndIsNeverAnotherFailure) {
    struct Case {
        const char* name;
        Task<void> (*make)();
    };
    for (const Case& one :
         {Case{"a sleep", sleeping}, Case{"children of a group", sleepingInAGroup}, Case{"a check", checking},
          Case{"a deep callee", [] { return sleepingDeep(50); }},
          Case{"a time-out", [] { return withTimeout(std::chrono::hours(2), sleeping()); }}}) {
        SCOPED_TRACE(one.name);
        TestLoop loop;
        TaskHandle<void> early = loop.start(one.make());
        early.cancel();  // Before it has begun.
        loop.settle();
        EXPECT_TRUE(early.done());
        EXPECT_THROW(early.result(), CancellationError);

        TaskHandle<void> late = loop.start(one.make());
        loop.executor.runReady();
        if (late.done()) continue;
        late.cancel();
        loop.settle();
        EXPECT_TRUE(late.done());
        EXPECT_THROW(late.result(), CancellationError);
        EXPECT_FALSE(loop.clock.nextDeadline()) << "a timer was left behind";
    }
}

TEST(Cancellation, FromAnotherThreadRacesWithTheWakeAndLosesNothing) {
    SystemClock clock;
    EngineThread thread;
    auto nap = [](int microseconds) -> Task<void> {
        co_await sleepFor(std::chrono::microseconds(microseconds));
    };
    TaskScope scope(thread.executor(), clock);
    std::vector<TaskHandle<void>> handles;
    for (int i = 0; i < 2000; ++i) {
        handles.push_back(scope.start(nap(i % 300)));
        if (i % 3 == 0) handles[static_cast<std::size_t>(i / 2)].cancel();
    }
    for (const TaskHandle<void>& handle : handles)
        handle.cancel();
    scope.endAll();
    for (const TaskHandle<void>& handle : handles)
        EXPECT_TRUE(handle.done());
}

TEST(Cancellation, DoesNotReachWhatIsShielded) {
    TestLoop loop;
    auto cleanUp = []() -> Task<int> {
        co_await sleepFor(std::chrono::seconds(1));
        co_return 3;
    };
    auto work = [](Task<int> task) -> Task<int> {
        int result = co_await shielded(std::move(task));
        co_return co_await isCancelled() ? result : -1;
    };
    TaskHandle<int> handle = loop.start(work(cleanUp()));
    loop.settle();
    handle.cancel();
    loop.settle();
    EXPECT_FALSE(handle.done());
    loop.advance(std::chrono::seconds(1));
    EXPECT_EQ(handle.result(), 3);
}

}  // namespace
}  // namespace vark
