#include "Benchmarks/PlainWay.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Upload/FileHasher.h"

namespace {

/// A file of so many MiB, against `openssl dgst` and `sha256sum`.
void hashFile(benchmark::State& state, const std::string& program) {
    const vark::TemporaryFolder folder;
    const std::filesystem::path file =
        folder.file("file", std::string(static_cast<std::size_t>(state.range(0)) << 20, 'x'));
    vark::compareWithPlainWay(
        state, [&] { vark::runProgram(program + " " + file.native() + " > /dev/null"); },
        [&] { benchmark::DoNotOptimize(vark::FileHasher::sha256Of(file)); });
    state.SetBytesProcessed(state.iterations() * (state.range(0) << 20));
}

BENCHMARK_CAPTURE(hashFile, againstOpenSSL, "openssl dgst -sha256")
    ->Arg(512)
    ->Iterations(5)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(hashFile, againstSha256sum, "sha256sum")
    ->Arg(512)
    ->Iterations(5)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
