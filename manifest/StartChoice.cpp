#include "manifest/StartChoice.h"

#include <algorithm>

#include "common/Log.h"

namespace kvmpd {

size_t SegmentsWithinDelay(const MPD& mpd, DWORD delayTime) {
    DWORD remaining = delayTime;
    size_t fitting = 0;
    for (auto duration = mpd.m_segmentDurations.rbegin(); duration != mpd.m_segmentDurations.rend(); ++duration) {
        if (*duration > remaining) {
            break;
        }
        remaining -= *duration;
        ++fitting;
    }
    return fitting;
}

namespace {

/// Segments to stay behind the newest one for playback to begin just before number `id`.
size_t SegmentsBehind(const MPD& mpd, LONGLONG id) {
    const size_t count = mpd.m_segmentDurations.size();
    if (id < mpd.m_startNumber) {
        return count - 1;
    }
    const ULONGLONG index = static_cast<ULONGLONG>(id) - static_cast<ULONGLONG>(mpd.m_startNumber);
    return index < count ? count - static_cast<size_t>(index) : 0;
}

}  // namespace

size_t ChooseStartIndex(const MPD& mpd, const StartPreference& preference) {
    const size_t count = mpd.m_segmentDurations.size();
    size_t behind = 0;
    if (preference.segmentId >= 1) {
        Log(3, L" MpdLoader::ThreadProc try to find segment id %lld", preference.segmentId);
        behind = SegmentsBehind(mpd, preference.segmentId);
    } else if (preference.delayTime != 0) {
        Log(3, L" MpdLoader::ThreadProc try to find segment which delay time is %d", preference.delayTime);
        behind = SegmentsWithinDelay(mpd, preference.delayTime);
    } else {
        Log(3, L" MpdLoader::ThreadProc try to find %d segment from end", preference.delaySegment);
        behind = preference.delaySegment;
    }
    return count - 1 - std::min(behind, count - 1);
}

}  // namespace kvmpd
