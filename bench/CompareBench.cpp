// The comparison that decides whether a default signature needs writing: canonical equivalence of
// the server's text and Outlook's. Its worst case is a long run of combining marks, which must be put
// in canonical order; 4 MB of them, in two orders that are equivalent, compared as one call.

#include "outlook/OutlookHandler.h"

#include <benchmark/benchmark.h>
#include <string>

namespace {

void CompareCombiningMarks(benchmark::State& state) {
    const std::size_t megabytes = static_cast<std::size_t>(state.range(0));
    // Dot above (class 230) and dot below (class 220), interleaved on one side and grouped on the other.
    std::string mixed = "a", grouped = "a";
    const std::size_t pairs = megabytes * 1000 * 1000 / 4;
    mixed.reserve(megabytes * 1000 * 1000 + 1);
    grouped.reserve(megabytes * 1000 * 1000 + 1);
    for (std::size_t i = 0; i < pairs; ++i) {
        mixed += "\u0307\u0323";
        grouped += "\u0323";
    }
    for (std::size_t i = 0; i < pairs; ++i) {
        grouped += "\u0307";
    }
    for (auto _ : state) {
        const bool equal = varnoth::OutlookHandler::canonicallyEqual(mixed, grouped);
        if (!equal) {
            state.SkipWithError("the two orders must compare equal");
        }
        benchmark::DoNotOptimize(equal);
    }
}
BENCHMARK(CompareCombiningMarks)->Arg(4)->Unit(benchmark::kMillisecond);

} // namespace
