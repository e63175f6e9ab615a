// What a trace statement costs when its level is off: every browser call passes a few of them. What a
// whole call through the library costs is measured in AdapterPathsBench.

#include <benchmark/benchmark.h>

#include "Log.h"

namespace {

using Velmora::Wrapper::LogFileName;
using Velmora::Wrapper::LogSite;

const LogSite kSite(LogFileName{"Velmora::Bench", "Bench/LogAndGuardBench"}, __LINE__);

void DisabledTraceStatement(benchmark::State& state) {
    Tlog::SetThreshold("Velmora::Bench", 5);
    int value = 0;
    for (auto _ : state) {
        VELMORA_LOG(kSite, 2) << "getNativeSize" << "; " << value << "; " << value << "; ";
        benchmark::DoNotOptimize(++value);
    }
}
BENCHMARK(DisabledTraceStatement);

}  // namespace
