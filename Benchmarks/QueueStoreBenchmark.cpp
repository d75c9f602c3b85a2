#include <malloc.h>

#include <boost/json/serialize.hpp>
#include <unordered_map>

#include "Benchmarks/PlainWay.h"
#include "Tests/Support/SampleQueue.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Transfer/Queue/QueueCoding.h"
#include "VarkCore/Transfer/Queue/QueueStore.h"

namespace {

using namespace vark;

const Date now = Date::fromSince1970(1'740'994'867);

std::size_t itemsOf(const benchmark::State& state) {
    return static_cast<std::size_t>(state.range(0));
}

/// Encoding alone, against a document tree of the same content that is written out.
void encode(benchmark::State& state) {
    const TransferJob job = sampleQueue(itemsOf(state));
    const boost::json::value tree = parseJSON(encodeQueue(job, now));
    compareWithPlainWay(
        state,
        [&] {
            const boost::json::value copy = tree;
            benchmark::DoNotOptimize(boost::json::serialize(copy));
        },
        [&] { benchmark::DoNotOptimize(encodeQueue(job, now)); });
}

/// Encoding and writing, against a plain write of the same bytes.
void save(benchmark::State& state, Durability durability) {
    const TemporaryFolder folder;
    const TransferJob job = sampleQueue(itemsOf(state));
    const std::string bytes = encodeQueue(job, now);
    QueueStore store(folder / "queue.json", systemDate, durability);
    compareWithPlainWay(
        state, [&] { writeAtomically(folder / "plain.json", bytes, 0600, durability); },
        [&] { store.save(&job); });
    state.counters["file_MB"] = static_cast<double>(bytes.size()) / 1e6;
}

/// Against a document tree that nobody reads.
void load(benchmark::State& state) {
    const TemporaryFolder folder;
    const TransferJob job = sampleQueue(itemsOf(state));
    QueueStore store(folder / "queue.json", systemDate, Durability::cached);
    store.save(&job);
    compareWithPlainWay(
        state, [&] { benchmark::DoNotOptimize(parseJSON(readWholeFile(store.url()))); },
        [&] { benchmark::DoNotOptimize(store.load()); });
}

std::size_t heapBytes() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// What a queue that was built by appending takes, with an index of identifiers.
void memory(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        const TransferJob source = sampleQueue(itemsOf(state));
        const std::size_t before = heapBytes();
        TransferJob job;
        std::unordered_map<UUID, std::uint32_t> index;
        for (const TransferItem& item : source.items) {
            index.emplace(item.id, static_cast<std::uint32_t>(job.items.size()));
            job.items.push_back(item);
        }
        state.counters["bytes_per_item"] =
            static_cast<double>(heapBytes() - before) / static_cast<double>(job.items.size());
    }
    state.counters["sizeof_item"] = sizeof(TransferItem);
}

BENCHMARK(encode)->Arg(100'000)->Arg(1'000'000)->Iterations(5)->UseManualTime()->Unit(
    benchmark::kMillisecond);
BENCHMARK_CAPTURE(save, cached, Durability::cached)
    ->Arg(100'000)
    ->Iterations(10)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(save, synced, Durability::synced)
    ->Arg(100'000)
    ->Iterations(5)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(load)->Arg(100'000)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(memory)->Arg(100'000)->Arg(600'000)->Arg(1'000'000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
