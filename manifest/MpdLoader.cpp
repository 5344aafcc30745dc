// The loader's life and its control operations; MpdLoaderCycle.cpp has the thread.
#include "manifest/MpdLoader.h"

#include <utility>

#include "common/Log.h"
#include "common/Text.h"
#include "manifest/MpdParser.h"

namespace kvmpd {

MpdLoader::MpdLoader(LoaderOwner& owner) : MpdLoader(owner, std::make_unique<MpdParser>()) {}

MpdLoader::MpdLoader(LoaderOwner& owner, std::unique_ptr<ManifestSource> source)
    : m_source(std::move(source)),
      m_reloadEvent(CreateEventW(nullptr, /*manual_reset=*/TRUE, /*initial_state=*/FALSE, nullptr)),
      m_owner(owner) {
    Log(4, L" MpdLoader::MpdLoader ");
}

MpdLoader::~MpdLoader() {
    Log(4, L" MpdLoader::~MpdLoader ");
    MpdLoader::CloseThread();
}

HRESULT MpdLoader::Init(const std::wstring& url, std::shared_ptr<SegmentQueue> queue) {
    Log(4, L" MpdLoader::Init ");
    CritSecLock publication(m_publication);
    if (!EqualsIgnoreCase(url, GetUrl())) {
        {
            MutexLock lock(m_stateLock);
            m_url = url;
            ++m_generation;
        }
        resetStart();
    }
    {
        MutexLock lock(m_stateLock);
        m_segmentQueue.swap(queue);
    }
    if (IsThreadRunning()) {
        Wake();
        return S_OK;
    }
    return StartThread();
}

HRESULT MpdLoader::CloseThread() {
    Log(4, L" MpdLoader::CloseThread ");
    {
        MutexLock lock(m_stateLock);
        if (m_closingState == 0) {
            m_closingState = 2;
        }
    }
    const HRESULT result = WorkerProcessor::CloseThread();
    Log(4, L" MpdLoader::CloseThread : 0x%08X", result);
    return result;
}

LONG MpdLoader::resetStart() {
    Log(3, L" MpdLoader::resetStart ");
    std::shared_ptr<const MPD> dropped;  // Released after the locks.
    CritSecLock publication(m_publication);
    MutexLock lock(m_stateLock);
    m_lastSegment = 0;
    dropped.swap(m_mpd);
    m_totalQueuedDuration = 0;
    m_streamChosen = false;
    m_audioSetIndex = m_audioRepIndex = 0;
    m_videoSetIndex = m_videoRepIndex = 0;
    return 1;
}

void MpdLoader::Wake() {
    SetEvent(m_reloadEvent.get());
}

LONG MpdLoader::SetPreferDelayTime(DWORD delayMs, LONGLONG& startSegmentOut) {
    Log(4, L" MpdLoader::SetPreferDelayTime : %d", delayMs);
    std::shared_ptr<const MPD> current;
    {
        MutexLock lock(m_stateLock);
        if (m_prefer.delayTime == delayMs) {
            return 0;
        }
        m_prefer = {.delayTime = delayMs};
        current = m_mpd;
    }
    if (!current) {
        return 1;
    }
    const size_t count = current->m_segmentDurations.size();
    const size_t fitting = SegmentsWithinDelay(*current, delayMs);
    if (fitting < count) {
        startSegmentOut = SegmentNumber(*current, static_cast<LONGLONG>(count - 1 - fitting));
    }
    Wake();
    Log(3, L" MpdLoader::SetPreferDelayTime set new start segment %lld. The last segment is %lld", startSegmentOut,
        LastSegmentNumber(*current));
    return 1;
}

LONG MpdLoader::SetPreferDelaySegment(DWORD count) {
    Log(4, L" MpdLoader::SetPreferDelaySegment : %d", count);
    {
        MutexLock lock(m_stateLock);
        if (m_prefer.delaySegment == count) {
            return 0;
        }
        m_prefer = {.delaySegment = count};
        if (!m_mpd) {
            return 0;
        }
    }
    Wake();
    return 1;
}

void MpdLoader::SetPreferSegmentID(LONGLONG segment) {
    Log(4, L" MpdLoader::SetPreferSegmentID : %lld", segment);
    MutexLock lock(m_stateLock);
    m_prefer = {.segmentId = segment};
}

void MpdLoader::pauseParse(LONG pause) {
    Log(6, L" MpdLoader::pauseParse : %d", pause);
    {
        MutexLock lock(m_stateLock);
        if (m_pause == pause) {
            return;
        }
        m_pause = pause;
        if (!m_mpd) {
            return;
        }
    }
    Wake();
}

void MpdLoader::SetTargetVideoQualityID(DWORD id) {
    CritSecLock publication(
        m_publication);  // A choice that a cycle is making must not be stored over the cleared flag.
    MutexLock lock(m_stateLock);
    m_targetVideoQualityId = id;
    m_streamChosen = false;
}

void MpdLoader::SetPreferQuality(DWORD height) {
    MutexLock lock(m_stateLock);
    m_preferQuality = height;
}

std::wstring MpdLoader::GetUrl() const {
    MutexLock lock(m_stateLock);
    return m_url;
}

DWORD MpdLoader::Generation() const {
    MutexLock lock(m_stateLock);
    return m_generation;
}

std::shared_ptr<const MPD> MpdLoader::CurrentMpd() const {
    MutexLock lock(m_stateLock);
    return m_mpd;
}

DWORD MpdLoader::TotalDuration() const {
    MutexLock lock(m_stateLock);
    return m_mpd ? m_mpd->m_totalDuration : 0;
}

DWORD MpdLoader::TotalQueuedDuration() const {
    MutexLock lock(m_stateLock);
    return m_totalQueuedDuration;
}

LONGLONG MpdLoader::LastSegment() const {
    MutexLock lock(m_stateLock);
    return m_lastSegment;
}

StartPreference MpdLoader::Preference() const {
    MutexLock lock(m_stateLock);
    return m_prefer;
}

DWORD MpdLoader::TargetVideoQualityID() const {
    MutexLock lock(m_stateLock);
    return m_targetVideoQualityId;
}

DWORD MpdLoader::PreferQuality() const {
    MutexLock lock(m_stateLock);
    return m_preferQuality;
}

bool MpdLoader::IsPaused() const {
    MutexLock lock(m_stateLock);
    return m_pause != 0;
}

}  // namespace kvmpd
