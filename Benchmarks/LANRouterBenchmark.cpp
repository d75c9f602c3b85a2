#include <benchmark/benchmark.h>

#include "VarkCore/LAN/LANRouter.h"

// The way of every chunk and every download. There is no plain way beside it; a thousand of them must not be
// felt.

namespace vark {
namespace {

constexpr int routeCount = 1000;

LANRouter office() {
    std::vector<LANNode> nodes;
    for (int number = 0; number < 20; ++number) {
        const std::string digits = std::to_string(number);
        nodes.push_back(
            {"node " + digits, "node-" + digits + ".vark.example", "10.0.0." + digits, 8443, Date{}, false});
    }
    return LANRouter(std::move(nodes));
}

void lookUp(benchmark::State& state, const char* url) {
    const LANRouter router = office();
    const URL chunk = *URL::parse(url);
    const Date now = systemDate();
    for (auto round : state) {
        for (int number = 0; number < routeCount; ++number)
            benchmark::DoNotOptimize(router.route(chunk, now));
    }
    state.SetLabel("1,000 routes, at most 1 ms");
}
BENCHMARK_CAPTURE(lookUp, toANode,
                  "https://node-7.vark.example/up/5d1f6a3c9b/1742?signature=c2lnbmF0dXJl&until=1772531000")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(lookUp, toNone, "https://vark.example/api/upload/5d1f6a3c9b/1742")
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vark
