#include <fmt/format.h>

#include "Benchmarks/PlainWay.h"
#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Transfer/Walker.h"

namespace {

/// So many files in folders of 500, walked and sorted, against `find -printf`, which does not sort.
void walkFolder(benchmark::State& state) {
    const vark::TemporaryFolder folder;
    for (std::int64_t number = 0; number < state.range(0); ++number) {
        folder.file(fmt::format("Shoot/Day {:02}/Reel {:03}/CLIP{:06}_{:04x}.MXF", number / 5000,
                                number / 500, number, number * 7919 % 65536));
    }
    const std::string find = "find " + folder.path().native() + " -type f -printf '%P %s %T@\\n' > " +
                             (folder / "listing").native();
    vark::compareWithPlainWay(
        state, [&] { vark::runProgram(find); },
        [&] {
            const vark::Walker::Result result = vark::Walker::walk(folder / "Shoot", vark::FakeVolumes());
            if (static_cast<std::int64_t>(result.files.size()) != state.range(0)) std::abort();
        });
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(walkFolder)->Arg(100'000)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
