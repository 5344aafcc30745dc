// SyncRead of 64 KiB that the ring buffer holds, against a memcpy of 64 KiB between two 16 MiB arrays.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "bench/BenchOrigin.h"
#include "bench/FollowedStream.h"

namespace {

constexpr LONG kRead = 64 * 1024;
constexpr size_t kArray = 16 * 1024 * 1024;
// The part of the ring that is read over and over; the segment is larger, so that every read ends inside.
constexpr LONGLONG kSpan = 12 * 1024 * 1024;

void MemcpyBetweenArrays(benchmark::State& state) {
    std::vector<BYTE> from(kArray, 1);
    std::vector<BYTE> to(kArray, 2);
    size_t at = 0;
    for (auto _ : state) {
        std::memcpy(to.data() + at, from.data() + at, kRead);
        benchmark::ClobberMemory();
        at = (at + kRead) % static_cast<size_t>(kSpan);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRead);
}
BENCHMARK(MemcpyBetweenArrays);

void SyncReadFromTheRing(benchmark::State& state) {
    const auto live = kvmpd::bench::MakeOrigin(kSpan + 2 * kRead, 1000);
    const kvmpd::bench::Folder folder;
    kvmpd::bench::FollowedStream stream(live->ManifestUrl(), folder.Path());
    std::vector<BYTE> to(kArray, 2);
    LONGLONG position = 0;
    // The first reads wait until the segment has been downloaded; the feed then fills the ring.
    if (stream.Reader().SyncRead(kSpan, kRead, to.data()) != S_OK) {
        state.SkipWithError("the segment did not arrive");
        return;
    }
    // The feed thread looks at the cache ten times a second; nothing tells when it has copied the segment.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    for (auto _ : state) {
        if (stream.Reader().SyncRead(position, kRead, to.data() + position) != S_OK) {
            state.SkipWithError("a read failed");
            break;
        }
        position = (position + kRead) % kSpan;
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRead);
}
BENCHMARK(SyncReadFromTheRing);

}  // namespace
