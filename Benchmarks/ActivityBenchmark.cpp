#include <fmt/format.h>

#include "Benchmarks/PlainWay.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON/JSON.h"

namespace {

using namespace vark;

/// The lines of 90 busy days.
std::string history(std::int64_t lines, Date now) {
    constexpr double seconds = 7'700'000;
    JSONWriter json;
    for (std::int64_t number = 0; number < lines; ++number) {
        ActivityEntry entry{
            .at = now - seconds + static_cast<double>(number) * seconds / static_cast<double>(lines),
            .text = fmt::format("Sent CLIP{:07}.MXF", number),
            .kind = "put",
            .place = "Shoot › Day 03",
            .group = "put:Jobs/2026/Shoot/Day 03",
            .many = "Sent %d files",
            .folder = "Jobs/2026/Shoot/Day 03"};
        entry.encode(json);
        json.endLine();
    }
    return json.take();
}

/// Reading, sorting and cutting the file down, against parsing each line into a document that nobody looks
/// at.
void readHistory(benchmark::State& state) {
    const TemporaryFolder folder;
    const Date now = systemDate();
    const std::string content = history(state.range(0), now);
    const std::filesystem::path file = SharedFiles::history(folder.path());
    compareWithPlainWay(
        state,
        [&] {
            // Each round reads the file before anything was cut off.
            writeAtomically(file, content, 0600, Durability::cached);
            const std::string bytes = readWholeFile(file);
            std::string_view lines = bytes;
            while (!lines.empty()) {
                const std::size_t end = lines.find('\n');
                benchmark::DoNotOptimize(parseJSON(lines.substr(0, end)));
                lines.remove_prefix(end + 1);
            }
        },
        [&] {
            const std::vector<ActivityEntry> entries = ActivityHistory::read(folder.path(), now);
            if (static_cast<std::int64_t>(entries.size()) != state.range(0)) std::abort();
        });
    state.counters["file_MB"] = static_cast<double>(content.size()) / 1e6;
}

void foldHistory(benchmark::State& state) {
    const TemporaryFolder folder;
    const Date now = systemDate();
    writeAtomically(SharedFiles::history(folder.path()), history(state.range(0), now), 0600,
                    Durability::cached);
    const std::vector<ActivityEntry> entries = ActivityHistory::read(folder.path(), now);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(ActivityHistory::folded(entries));
}

BENCHMARK(readHistory)->Arg(200'000)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(foldHistory)->Arg(200'000)->Unit(benchmark::kMillisecond);

}  // namespace
