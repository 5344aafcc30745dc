// Where and when a faulty origin's fault strikes: on the way to it, before a request is known, at a request, in the
// folder.
#include <fstream>
#include <utility>

#include "tests/faults/Answers.h"
#include "tests/faults/FaultOriginDoor.h"

namespace kvmpd::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kAttempts = 3;

}  // namespace

/// Puts the fault on the way to this door, if that is where it strikes.
void FaultOrigin::StandIn(Door& door) {
    if (StrikesTheName(m_fault.kind)) {
        door.name = std::make_unique<NameStandIn>(HostOf(door), [this, &door] {
            return !StrikesOnTheWay(door)                        ? LookUpAnswer::kLoopback
                   : m_fault.kind == FaultKind::kNameNotResolved ? LookUpAnswer::kNoSuchName
                                                                 : LookUpAnswer::kTryAgain;
        });
    } else if (m_fault.kind == FaultKind::kPortClosed) {
        door.port =
            std::make_unique<PortStandIn>(door.listener.Port(), [this, &door] { return StrikesOnTheWay(door); });
    }
}

/// Whether the fault ends the way to this door before its request. Else a request will come, perhaps after a while.
bool FaultOrigin::StrikesOnTheWay(Door& door) {
    Place place{door.target, SIZE_MAX};
    const bool struck = StrikesConnection(door, place);
    const bool comes = !struck || m_fault.kind == FaultKind::kNameSlow;
    if (struck && comes) {
        Pause(kSlowLookUp);
    }
    const std::lock_guard lock(m_mutex);
    if (comes && place.index != SIZE_MAX) {
        door.awaited = place;
    } else if (struck) {
        Finish(place);
    }
    return !comes;
}

void FaultOrigin::StrikeDisk(Door& door, int source, int number) {
    if (m_fault.kind == FaultKind::kFileThere) {
        const std::filesystem::path file = CacheFile(door.target, source, number);
        const std::lock_guard lock(m_mutex);
        if (!std::filesystem::exists(file)) {
            std::ofstream(file, std::ios::binary) << kForeignText;
            m_foreign.push_back(file);
        }
        return;
    }
    m_settledThrough(number);
    const std::lock_guard lock(m_mutex);
    if (!m_folderHidden) {
        std::error_code error;  // then there is no fault, and the cell comes to another outcome
        std::filesystem::rename(CacheFolder(source), HiddenFolder(), error);
        m_folderHidden = !error;
    }
}

size_t FaultOrigin::CountFiles(int source) const {
    const std::lock_guard lock(m_mutex);
    std::error_code error;
    std::filesystem::directory_iterator entry(CacheFolder(source), error);
    size_t count = 0;
    while (!error && entry != std::filesystem::directory_iterator()) {
        ++count;
        entry.increment(error);
    }
    return count;
}

/// Whether the fault strikes this connection, whose request is not known yet. What it will be is known all
/// the same: the component asks for one segment after the other, three times for one that fails.
bool FaultOrigin::StrikesConnection(Door& door, Place& place) {
    const std::lock_guard lock(m_mutex);
    if (door.target == Target::kManifest) {
        place.index = m_ledger.manifests.size();
        ManifestFetch fetch;
        fetch.source = m_sources;
        fetch.at = Clock::now();
        fetch.faulted = StrikesManifest(place.index);
        fetch.effect = fetch.faulted ? EffectOf(m_fault.kind, m_fault.target) : Effect::kTaken;
        m_ledger.manifests.push_back(fetch);
        return fetch.faulted;
    }
    if (!StrikesSegment(door.target, m_expected)) {
        return false;
    }
    std::vector<SegmentFetch>& list = door.target == Target::kAudio ? m_ledger.audio : m_ledger.video;
    place.index = list.size();
    list.emplace_back();
    list.back().source = m_sources;
    list.back().faulted = true;
    list.back().effect = EffectOf(m_fault.kind, m_fault.target);
    if (++m_attempts == kAttempts) {
        m_attempts = 0;
        ++m_expected;
    }
    return true;
}

bool FaultOrigin::StrikesManifest(size_t index) const {
    if (!IsManifest(m_fault.target)) {
        return false;
    }
    const size_t first = m_fault.target == Target::kFirstManifest ? 0 : 1;
    constexpr size_t kInTenSegments = (kFaultSegments + kSegmentsPerReload - 1) / kSegmentsPerReload;
    switch (m_fault.duration) {
        case Duration::kOnce:
            return index == first;
        case Duration::kTenSegments:
            return index >= first && index < first + kInTenSegments;
        case Duration::kForEver:
            return index >= first;
    }
    return false;
}

bool FaultOrigin::StrikesSegment(Target door, int number) {
    if (door != m_fault.target || number < kFirstFaulted) {
        return false;
    }
    if (m_fault.duration == Duration::kOnce) {
        return !std::exchange(m_onceUsed, true);
    }
    if (m_fault.duration == Duration::kForEver) {
        return true;
    }
    if (!m_faultEnd) {
        m_faultEnd = Clock::now() + kFaultTime;
    }
    return number < kFirstFaulted + kFaultSegments && !(IsSlow(m_fault.kind) && Clock::now() >= *m_faultEnd);
}

}  // namespace kvmpd::test
