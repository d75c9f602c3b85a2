#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <malloc.h>

#include <memory>

#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/Fakes/SilentVark.h"
#include "Tests/Support/SampleQueue.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Transfer/TransferEngine.h"

// The engine with a queue of a million files. What it costs must not depend on how many there are. There is
// no plain way beside it; the limits are those that people do not feel.

namespace vark {
namespace {

constexpr std::size_t itemCount = 1'000'000;
constexpr std::size_t itemsAtATime = 10'000;

/// A vark that has every file already, and asks to stop after so many.
class FullVark final : public test::SilentVark {
  public:
    using SilentVark::begin;

    std::size_t left = 0;
    std::function<void()> onLast;

    Task<BeginResult> begin(std::string, std::int64_t, std::string, double, bool, std::optional<std::int64_t>,
                            std::optional<std::string>) override {
        if (--left == 0) onLast();
        co_return BeginResult(BeginResult::Exists{});
    }
};

std::size_t heapInUse() {
    struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

/// Made once: reading a million items takes longer than all that is measured.
class MillionItems {
  public:
    MillionItems() {
        TransferJob job = sampleQueue(itemCount);
        store_.save(&job);
        job = {};
        std::size_t before = heapInUse();
        engine.open();
        loop.settle();
        bytesForAnItem = static_cast<double>(heapInUse() - before) / static_cast<double>(itemCount);
        vark_->onLast = [this] { engine.maxConcurrentFiles = 0; };
    }

    /// Chooses and settles the next items of the queue.
    void settleNext(std::size_t count) {
        vark_->left = count;
        engine.maxConcurrentFiles = 4;
        engine.start(false);
        loop.settle();
    }

    double bytesForAnItem = 0;

  private:
    static Date date() { return Date::fromSince1970(1'759'320'000); }

    TemporaryFolder folder_;
    FakeVolumes volumes_;
    QueueStore store_{folder_.path() / "queue.json", date, Durability::cached};
    TransferLog log_{folder_.path() / "transfer.log", 1'000'000, date, Calendar("UTC")};
    std::shared_ptr<FullVark> vark_ = std::make_shared<FullVark>();

  public:
    test::TestLoop loop;
    TransferEngine engine{
        vark_,
        store_,
        log_,
        4,
        {loop.executor, loop.clock, date, Calendar("UTC"), loop.pool, loop.pool, volumes_,
         [] { return std::unique_ptr<PathMonitor>(); }, [] { return std::unique_ptr<ClockWatch>(); }}};
};

MillionItems& million() {
    static MillionItems items;
    return items;
}

void chooseAndSettleAnItem(benchmark::State& state) {
    MillionItems& items = million();
    for (auto round : state)
        items.settleNext(itemsAtATime);
    state.counters["us for an item (at most 20)"] =
        benchmark::Counter(static_cast<double>(itemsAtATime) * 1e-6,
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["bytes for an item (at most 700)"] = items.bytesForAnItem;
}
BENCHMARK(chooseAndSettleAnItem)->Unit(benchmark::kMillisecond)->Iterations(20);

void tick(benchmark::State& state) {
    MillionItems& items = million();
    for (auto round : state)
        items.engine.recompute();
    state.SetLabel("at most 2 ms");
}
BENCHMARK(tick)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vark
