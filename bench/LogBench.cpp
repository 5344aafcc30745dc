// A log call above the verbosity against an empty loop.

#include <benchmark/benchmark.h>

#include "common/Log.h"

namespace {

void EmptyLoop(benchmark::State& state) {
    LONGLONG position = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++position);
    }
}
BENCHMARK(EmptyLoop);

void LogCallAboveTheLevel(benchmark::State& state) {
    kvmpd::LogTestHooks::SetLevel(0);
    LONGLONG position = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++position);
        kvmpd::Log(6, L" CAsyncOutputPin::SyncRead %I64d, %ld", position, LONG{65536});
    }
}
BENCHMARK(LogCallAboveTheLevel);

}  // namespace
