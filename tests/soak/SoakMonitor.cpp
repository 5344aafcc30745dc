#include "tests/soak/SoakMonitor.h"

#include <algorithm>
#include <cstdio>
#include <span>
#include <thread>

#include "tests/soak/SoakFootprint.h"

namespace kvmpd::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kMebibyte = 1024 * 1024;
/// Per source: two rings of 16 MiB, the manifest, transfer buffers, stacks; and a closing one beside its successor.
constexpr std::size_t kBytesPerSource = 56 * kMebibyte;
constexpr std::size_t kBytesOfProcess = 96 * kMebibyte;
/// Per source: six threads of the component's (the request queue's among them), the reader, the host.
constexpr std::size_t kThreadsPerSource = 8;
constexpr std::size_t kThreadsOfProcess = 4;
/// Per source: its two connections, the files that it has open, what the HTTP client keeps for itself.
constexpr std::size_t kDescriptorsPerSource = 16;
constexpr std::size_t kDescriptorsOfProcess = 16;
/// What an allocator keeps of so much coming and going; a leak of one segment's bookkeeping each time would exceed it.
constexpr std::size_t kAllocatedSlack = kMebibyte / 2;
constexpr std::size_t kAllocatedSlackPerSource = kMebibyte / 64;  // of threads that have ended
constexpr std::size_t kResidentSlack = 24 * kMebibyte;
constexpr seconds kProgressPause{10};
/// Sources in one process get the same: none less than half of what the one in the middle gets, none more than twice.
constexpr std::uint64_t kFairFactor = 2;
constexpr std::size_t kSamplesForTrend = 120;

template <class Value>
Value Median(std::vector<Value> values) {
    if (values.empty()) {
        return {};
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

double Mebibytes(std::size_t bytes) {
    return static_cast<double>(bytes) / static_cast<double>(kMebibyte);
}

unsigned long long Print(std::uint64_t number) {
    return number;
}

}  // namespace

SoakMonitor::SoakMonitor(Soak& soak)
    : m_soak(soak),
      m_begin(SoakClock::now()),
      m_measuredBefore(Measured(ProcessFootprint::Now())),
      m_before(m_measuredBefore.value_or(ProcessFootprint{})),
      m_residentBefore((TrimMemory(), ResidentBytes())),
      m_allocatedBefore(AllocatedBytes()),
      m_cpuBefore(ProcessCpuTime()) {}

void SoakMonitor::Watch() {
    auto next = SoakClock::now() + seconds(1);
    auto progress = SoakClock::now() + kProgressPause;
    while (!m_soak.Over()) {
        std::this_thread::sleep_for(milliseconds(50));
        if (const auto wrong = m_soak.Origin().Wrong()) {
            Fail(*wrong);
        }
        if (SoakClock::now() < next) {
            continue;
        }
        next += seconds(1);
        Sample();
        if (m_soak.Options().progress && SoakClock::now() >= progress) {
            progress += kProgressPause;
            PrintProgress();
        }
    }
}

void SoakMonitor::Sample() {
    const std::size_t sources = m_soak.Options().sources;
    const auto measured = Measured(ProcessFootprint::Now());
    const std::size_t resident = ResidentBytes();
    if (resident == 0) {
        Fail("/proc/self/statm cannot be read: how much memory is taken is not known");
    }
    if (!measured || resident == 0) {
        return;
    }
    const ProcessFootprint now = *measured;
    m_resident.push_back(resident);
    m_mostThreads = std::max(m_mostThreads, now.threads);
    m_mostDescriptors = std::max(m_mostDescriptors, now.descriptors);
    const auto check = [this](const char* what, std::size_t value, std::size_t bound) {
        if (value > bound) {
            Fail(std::to_string(value) + " " + what + ", more than " + std::to_string(bound));
        }
    };
    check("threads", now.threads, m_before.threads + kThreadsOfProcess + sources * kThreadsPerSource);
    check("descriptors", now.descriptors,
          m_before.descriptors + kDescriptorsOfProcess + sources * kDescriptorsPerSource);
    if (!IsSanitized()) {
        check("bytes resident", resident, kBytesOfProcess + sources * kBytesPerSource);
    }
}

std::optional<ProcessFootprint> SoakMonitor::Measured(const std::optional<ProcessFootprint>& footprint) const {
    if (!footprint) {
        Fail("/proc/self cannot be read: how many threads and descriptors there are is not known");
    }
    return footprint;
}

/// In a long run the last quarter takes what the second one took.
void SoakMonitor::JudgeTrend() const {
    if (m_resident.size() < kSamplesForTrend || IsSanitized()) {
        return;
    }
    const auto quarter = static_cast<std::ptrdiff_t>(m_resident.size() / 4);
    const std::size_t early = Median(std::vector(m_resident.begin() + quarter, m_resident.begin() + 2 * quarter));
    const std::size_t late = Median(std::vector(m_resident.end() - quarter, m_resident.end()));
    std::printf("memory: %.1f MiB in the second quarter, %.1f MiB in the last (medians)\n", Mebibytes(early),
                Mebibytes(late));
    if (late > early + early / 4 + kResidentSlack) {
        Fail("memory grows");
    }
}

void SoakMonitor::JudgeEnd() {
    if (const auto wrong = m_soak.Origin().Wrong()) {
        Fail(*wrong);
    }
    TrimMemory();
    m_residentAfter = ResidentBytes();
    m_allocatedAfter = AllocatedBytes();
    m_after = Measured(ProcessFootprint::Settled(m_before)).value_or(ProcessFootprint{});
    if (m_residentAfter == 0 || m_residentBefore == 0) {
        Fail("/proc/self/statm cannot be read: how much memory is taken is not known");
    }
    if (m_soak.Failed()) {
        return;
    }
    if (m_after.threads != m_before.threads || m_after.descriptors > m_before.descriptors) {
        Fail(std::to_string(m_after.threads) + " threads and " + std::to_string(m_after.descriptors) +
             " descriptors are left instead of " + std::to_string(m_before.threads) + " and " +
             std::to_string(m_before.descriptors));
    }
    if (!IsSanitized()) {
        if (m_allocatedAfter >
            m_allocatedBefore + kAllocatedSlack + m_soak.Options().sources * kAllocatedSlackPerSource) {
            Fail(std::to_string(m_allocatedAfter - m_allocatedBefore) + " bytes of memory were not given back");
        }
        if (m_residentAfter > m_residentBefore + kResidentSlack) {
            Fail(std::to_string(m_residentAfter - m_residentBefore) + " bytes more are resident than before the run");
        }
    } else {
        std::printf("memory is not judged: a sanitizer keeps some of its own\n");
    }
    JudgeTrend();
    if (m_soak.Options().sources > 1 && m_soak.Options().length >= seconds(60)) {
        std::vector<std::uint64_t> counts;
        for (const auto& [source, count] : m_soak.Delivered()) {
            counts.push_back(count);
        }
        const auto [least, most] = std::ranges::minmax(counts);
        const std::uint64_t median = Median(counts);
        std::printf("segments by source: least %llu, median %llu, most %llu\n", Print(least), Print(median),
                    Print(most));
        if (least * kFairFactor < median || most > median * kFairFactor) {
            Fail("sources are not served alike");
        }
    }
}

void SoakMonitor::PrintProgress() const {
    const Totals& sums = m_soak.Sums();
    std::fprintf(stderr, "%5lld s: %llu segments, %.1f MB, %llu actions, %llu faults, %.0f MiB, %zu threads\n",
                 static_cast<long long>(std::chrono::duration_cast<seconds>(SoakClock::now() - m_begin).count()),
                 Print(sums.segments), static_cast<double>(sums.bytes) / 1e6, Print(sums.actions),
                 Print(m_soak.Origin().Count().faults), Mebibytes(m_resident.empty() ? 0 : m_resident.back()),
                 m_mostThreads);
}

void SoakMonitor::PrintSummary() const {
    const Totals& sums = m_soak.Sums();
    const SoakOrigin::Counts counts = m_soak.Origin().Count();
    std::printf("delivered: %llu segments, %.1f MB, all bytes right, in %llu stretches; %llu error pages among them\n",
                Print(sums.segments), static_cast<double>(sums.bytes) / 1e6, Print(sums.stretches),
                Print(sums.errorPages));
    std::printf("missing: %llu failed, %llu behind holes, %llu never offered, %llu empty\n", Print(sums.lostFailed),
                Print(sums.lostHole), Print(sums.neverOffered), Print(sums.empty));
    std::printf("host: %llu sources made, %llu actions:", Print(sums.sessions), Print(sums.actions));
    for (const auto& [kind, count] : m_soak.Actions()) {
        std::printf(" %s %llu,", kind.c_str(), Print(count));
    }
    std::printf(" readers behind the cache %llu\n", Print(sums.fellBehind));
    std::printf("origin: %llu manifests, %llu segment files, %llu faults\n", Print(counts.manifests),
                Print(counts.segmentFiles), Print(counts.faults));
    for (const auto& [kind, count] : counts.byKind) {
        std::printf("  %6llu %.*s\n", Print(count), static_cast<int>(kind.size()), kind.data());
    }
    std::printf("reconnects: %llu failed manifests, %llu wakes, %llu streams replaced\n", Print(sums.failedManifests),
                Print(sums.wakes), Print(sums.replaced));
    std::vector<milliseconds> stops = m_soak.StopTimes();
    if (!stops.empty()) {
        std::printf("stop times: %zu, median %lld ms, worst %lld ms\n", stops.size(),
                    static_cast<long long>(Median(stops).count()),
                    static_cast<long long>(std::ranges::max(stops).count()));
    }
    const std::size_t peak = m_resident.empty() ? 0 : std::ranges::max(m_resident);
    std::printf("memory: %.1f MiB before, peak %.1f MiB, %.1f MiB after; allocated %.2f MiB before, %.2f MiB after\n",
                Mebibytes(m_residentBefore), Mebibytes(peak), Mebibytes(m_residentAfter), Mebibytes(m_allocatedBefore),
                Mebibytes(m_allocatedAfter));
    std::printf(
        "threads: %zu before, most %zu, %zu after; descriptors: %zu, %zu, %zu; most cache files %llu, left by "
        "failed downloads %llu\n",
        m_before.threads, m_mostThreads, m_after.threads, m_before.descriptors, m_mostDescriptors, m_after.descriptors,
        Print(sums.mostCacheFiles), Print(sums.leftFiles));
    const double length = std::chrono::duration<double>(SoakClock::now() - m_begin).count();
    const double cpu = std::chrono::duration<double>(ProcessCpuTime() - m_cpuBefore).count();
    const double origin = std::chrono::duration<double>(m_soak.Origin().CpuTime()).count();
    const double sources = m_soak.Options().sources;
    std::printf(
        "cost of a source: %.1f MiB, %.2f %% of a processor (its reader and host included; the origin's %.1f "
        "%% are not)\n",
        Mebibytes(peak - std::min(peak, m_residentBefore)) / sources, 100 * (cpu - origin) / length / sources,
        100 * origin / length);
}

}  // namespace kvmpd::test
