#include <fmt/format.h>

#include "Benchmarks/PlainWay.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Sync/SharedSync.h"

namespace {

using namespace vark;

/// One report of progress on a full board, against reading the file into a document tree that nobody looks at
/// and writing the same bytes back.
void progressOfFullBoard(benchmark::State& state) {
    const TemporaryFolder folder;
    const Date now = systemDate();
    std::vector<std::string> ids;
    for (std::int64_t number = 0; number < state.range(0); ++number) {
        SyncOp op(SyncOp::Kind::upload, fmt::format("Jobs/2026/Shoot/Day 03/Camera A/CLIP{:07}.MXF", number),
                  4'000'000'000 + number, now);
        op.state = SyncOp::State::problem;
        op.reason = "This folder is set to read-only for you. Ask an admin at Acme if it should change.";
        op.stoppedAt = now;
        SharedSync::begin(op, folder.path());
        ids.push_back(op.id);
    }
    const std::filesystem::path file = SharedFiles::sync(folder.path());
    std::int64_t done = 0;
    compareWithPlainWay(
        state,
        [&] {
            const std::string bytes = readWholeFile(file);
            benchmark::DoNotOptimize(parseJSON(bytes));
            writeAtomically(folder / "plain.json", bytes, 0600, Durability::cached);
        },
        [&] {
            ++done;
            SharedSync::progress(ids[static_cast<std::size_t>(done) % ids.size()], done, 0, folder.path(),
                                 now);
        });
    state.counters["file_KB"] = static_cast<double>(std::filesystem::file_size(file)) / 1e3;
}

BENCHMARK(progressOfFullBoard)->Arg(500)->Iterations(500)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
