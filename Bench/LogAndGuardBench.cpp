// What a trace statement costs when its level is off, and what the call guard adds to a call that
// succeeds: the two things every browser call pays. Beside them, the same call without any guard, and
// with the session trace recording. These time the guard alone; a whole call through the library, beside
// the direct call, is measured in AdapterPathsBench.

#include <benchmark/benchmark.h>

#include "CallGuard.h"
#include "Log.h"
#include "Velmora/Trace.h"

namespace {

using Velmora::Wrapper::CallPolicy;
using Velmora::Wrapper::Guarded;
using Velmora::Wrapper::LogFileName;
using Velmora::Wrapper::LogSite;

const LogSite kSite(LogFileName{"Velmora::Bench", "Bench/LogAndGuardBench"}, __LINE__);
const CallPolicy kPolicy{&kSite, "bench", "virtual function from IMediaBackend failed: "};

void DisabledTraceStatement(benchmark::State& state) {
    Tlog::SetThreshold("Velmora::Bench", 5);
    int value = 0;
    for (auto _ : state) {
        VELMORA_LOG(kSite, 2) << "getNativeSize"
                              << "; " << value << "; " << value << "; ";
        benchmark::DoNotOptimize(++value);
    }
}
BENCHMARK(DisabledTraceStatement);

void GuardedSuccessfulCall(benchmark::State& state) {
    int calls = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Guarded(kPolicy, [&] {
            benchmark::DoNotOptimize(++calls);
            return UVA_STATUS_OK;
        }));
    }
}
BENCHMARK(GuardedSuccessfulCall);

// The floor: the body alone. GuardedSuccessfulCall minus this is the guard with the trace off.
void PlainCall(benchmark::State& state) {
    int calls = 0;
    const auto body = [&] {
        benchmark::DoNotOptimize(++calls);
        return UVA_STATUS_OK;
    };
    for (auto _ : state) {
        benchmark::DoNotOptimize(body());
    }
}
BENCHMARK(PlainCall);

void GuardedCallWhileTracing(benchmark::State& state) {
    Velmora::Trace::StartTrace("", 4096);
    int calls = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Guarded(kPolicy, [&] {
            benchmark::DoNotOptimize(++calls);
            return UVA_STATUS_OK;
        }));
    }
    Velmora::Trace::StopTrace();
}
BENCHMARK(GuardedCallWhileTracing);

}  // namespace
