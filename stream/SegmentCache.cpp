// The engine's time-bounded cache of downloaded segments.

#include "common/Log.h"
#include "events/EventIds.h"
#include "stream/KVMPDStream.h"

namespace kvmpd {
namespace {

// While the graph runs, nothing is released unless this many copied segments lie in front of the one being copied, so
// that a reader which is a little behind is not cut off; the cache exceeds its limit instead.
constexpr LONG kKeptBehindFeed = 3;

}  // namespace

void KVMPDStream::PushSegmentToCache(std::shared_ptr<Segment> segment) {
    bool paused = false;
    {
        const CritSecLock cache(m_csCache);
        if (!AppendSegment(segment)) {
            return;
        }
        paused = FilterIsPaused();
        if (!TrimCache(paused)) {
            return;
        }
        UpdateCacheSegmentInfo();
        if (m_bSeekPending) {
            Log(3, L" KVMPDStream::PushSegmentToCache download file complete for seek!");
            m_eventHandler.OnStreamDwordEvent(kEventPosition, 0, 1);
            m_bSeekPending = false;
        }
    }
    SetEvent(m_hSegmentEvent.get());
    WaitWhileCacheIsFull(paused);
    const CritSecLock cache(m_csCache);
    Log(6, L" KVMPDStream::PushSegmentToCache total segment cache become %d milliseconds", m_nCacheDuration);
}

/// Takes `segment` in at the end; false when it has no place in the cache.
bool KVMPDStream::AppendSegment(const std::shared_ptr<Segment>& segment) {
    if (segment->m_duration == 0 && segment->m_videoSize <= 0) {
        Log(4, L"[Error] KVMPDStream::PushSegmentToCache get strange segment %lld. duration: %d, total size: %d.",
            segment->m_segmentNumber, segment->m_duration, segment->m_videoSize);
        return false;
    }
    // A restart that came while the segment was on its way: it belongs to what was dropped. (The downloader had looked
    // before; this look cannot be overtaken, because a restart holds the cache lock from end to end.)
    if (m_pDownloader->TakeDiscard(*segment)) {
        return false;
    }
    if (!IsWanted(*segment)) {
        Log(5, L" KVMPDStream::PushSegmentToCache drop segment %lld of an earlier url", segment->m_segmentNumber);
        return false;
    }
    if (m_bCacheShut) {
        return false;
    }
    Log(6, L" KVMPDStream::PushSegmentToCache push segment %lld", segment->m_segmentNumber);
    if (m_cacheSegment.empty()) {
        m_llFirstSegmentId = segment->m_segmentNumber;
    }
    m_cacheSegment.push_back(segment);
    m_nCacheDuration += static_cast<DWORD>(segment->m_duration);
    m_llVideoEndByte += segment->m_videoSize;
    m_llAudioEndByte += segment->m_audioSize;
    return true;
}

/// A filter that does not answer, or none, counts as not paused.
bool KVMPDStream::FilterIsPaused() const {
    IBaseFilter* const filter = m_pFilter.load();
    FILTER_STATE state = State_Stopped;
    return filter && SUCCEEDED(filter->GetState(/*timeout=*/0, &state)) && state == State_Paused;
}

/// Releases the oldest segments while the cache is too long; false when that took away the segment being copied and the
/// loader was sent back to it: then nothing more is to be reported.
bool KVMPDStream::TrimCache(bool paused) {
    while (m_nCacheDuration > 0 && m_nCacheDuration > m_nMaxCacheTime.load() && !m_cacheSegment.empty()) {
        if (static_cast<LONG>(m_nCacheIndex) < kKeptBehindFeed && !paused) {
            Log(3,
                L" KVMPDStream::PushSegmentToCache does not release cache exceed cache size when playing. Current "
                L"index "
                L"is %d and total count is %d",
                m_nCacheIndex, m_cacheSegment.size());
            return true;
        }
        const LONGLONG released = m_cacheSegment.front()->m_segmentNumber;
        ReleaseOldest();
        if (m_nCacheIndex >= 1) {
            --m_nCacheIndex;
        } else {
            // Only while paused: the stream is parked at the segment whose bytes the reader has not all been given.
            SendLoaderBackTo(released);
            const CritSecLock buffer(m_csBuffer);
            m_bFeedCutOff = true;
            return false;
        }
        if (m_cacheSegment.empty()) {
            Log(4, L"[Error] KVMPDStream::PushSegmentToCache Unexpected tha m_cacheSegment is empty!!");
        } else {
            m_llFirstSegmentId = m_cacheSegment.front()->m_segmentNumber;
        }
    }
    return true;
}

/// Before cached segments are let go of, which deletes their files: a buffer may still hold one open whose read failed.
/// (Reads and the feed have theirs open under m_csCache only, the downloader none of a segment that is complete.)
void KVMPDStream::CloseFailedFiles() {
    const CritSecLock buffer(m_csBuffer);
    m_videoBuffer.CloseFailedFile();
    m_audioBuffer.CloseFailedFile();
}

void KVMPDStream::ReleaseOldest() {
    CloseFailedFiles();
    const std::shared_ptr<Segment> oldest = std::move(m_cacheSegment.front());
    m_cacheSegment.pop_front();
    Log(6, L" KVMPDStream::PushSegmentToCache release segment cache %lld due to total cache duration is %d",
        oldest->m_segmentNumber, m_nCacheDuration);
    m_llCacheStart += static_cast<DWORD>(oldest->m_duration);
    m_nCacheDuration -= static_cast<DWORD>(oldest->m_duration);
    m_llVideoStartByte += oldest->m_videoSize;
    m_llAudioStartByte += oldest->m_audioSize;
}

void KVMPDStream::SendLoaderBackTo(LONGLONG segmentNumber) {
    m_pLoader->SetPreferSegmentID(segmentNumber);
    Log(3, L" KVMPDStream::PushSegmentToCache cache is full. change target segment to %lld", segmentNumber);
    m_pLoader->pauseParse(TRUE);
}

/// Holds the downloader back until a read consumes something, the buffers are emptied, or the engine closes.
void KVMPDStream::WaitWhileCacheIsFull(bool paused) {
    {
        const CritSecLock cache(m_csCache);
        if (m_nCacheDuration == 0 || m_nCacheDuration <= m_nMaxCacheTime.load()) {
            return;
        }
    }
    if (WaitForSingleObject(m_hBufferEvent.get(), 0) != WAIT_OBJECT_0 && !paused) {
        Log(6, L" KVMPDStream::PushSegmentToCache buffer is full. Start to wait!");
        WaitForSingleObject(m_hBufferEvent.get(), INFINITE);
    }
}

BOOL KVMPDStream::IsSegmentInCache(LONGLONG target) {
    const CritSecLock cache(m_csCache);
    if (m_cacheSegment.empty()) {
        Log(4, L" KVMPDStream::IsSegmentInCache  cache is empty");
        return FALSE;
    }
    const LONGLONG first = m_cacheSegment.front()->m_segmentNumber;
    const auto count = static_cast<LONGLONG>(m_cacheSegment.size());
    Log(4, L" KVMPDStream::IsSegmentInCache start: %lld, size:%d, target: %lld", first, count, target);
    // One past the newest counts: it is the segment that the feed waits for anyway. The distance is taken without sign:
    // a manifest may number its segments up to the end of 64 bits, where one past the newest is no number any more.
    return first <= target &&
           static_cast<ULONGLONG>(target) - static_cast<ULONGLONG>(first) <= static_cast<ULONGLONG>(count);
}

LONG KVMPDStream::SeekToTargetSegment(LONGLONG target) {
    Log(3, L" KVMPDStream::SeekToTargetSegment : %lld", target);
    const CritSecLock publication(m_pLoader->Publication());
    const CritSecLock cache(m_csCache);
    if (IsSegmentInCache(target)) {
        Log(3, L" KVMPDStream::SeekToTargetSegment find new start segment in cache");
        DWORD index = 0;
        {
            const CritSecLock buffer(m_csBuffer);
            RebaseTo(target, index);
            Log(4, L" KVMPDStream::SeekToTargetSegment : release buffer to access segment index to %d", index);
            m_nCacheIndex = index;
            m_llVideoWritten = 0;
            // m_llAudioWritten stays: audio that had been copied ahead of the video is not copied again. The audio
            // buffer then begins that far into the target, and what lies before is read from its file.
            m_bAudioRebase = m_llAudioWritten != 0;
            m_bFeedCutOff = false;
            m_videoBuffer.Clear();
            m_audioBuffer.Clear();
        }
        Log(3, L" KVMPDStream::SeekToTargetSegment the new segment index is %d of %d caches", index,
            m_cacheSegment.size());
        m_eventHandler.OnStreamDwordEvent(kEventPosition, 0, 1);
        Log(5, L" KVMPDStream::SeekToTargetSegment callback position changed.");
    } else {
        Log(3, L" KVMPDStream::SeekToTargetSegment reset cache due to segment is not in cache");
        RestartLoading();
        m_bSeekPending = true;
    }
    UpdateCacheSegmentInfo();
    return 1;
}

/// Counts every position anew so that the first segment not below `target` starts at time 0 and byte 0 of both streams.
void KVMPDStream::RebaseTo(LONGLONG target, DWORD& index) {
    Log(6,
        L" KVMPDStream::SeekToTargetSegment get lock to find segment index and update cache info. Original cache "
        L"start: "
        L"%lld, length: %d, video total bytes: %lld, audio total bytes: %lld",
        m_llCacheStart, m_nCacheDuration, m_llVideoEndByte - m_llVideoStartByte, m_llAudioEndByte - m_llAudioStartByte);
    LONGLONG durationBefore = 0;
    LONGLONG videoBefore = 0;
    LONGLONG audioBefore = 0;
    index = 0;
    for (const std::shared_ptr<Segment>& segment : m_cacheSegment) {
        if (segment->m_segmentNumber >= target) {
            break;
        }
        ++index;
        durationBefore += static_cast<DWORD>(segment->m_duration);
        videoBefore += segment->m_videoSize;
        audioBefore += segment->m_audioSize;
    }
    m_llCacheStart = -durationBefore;
    m_llVideoEndByte = m_llVideoEndByte - m_llVideoStartByte - videoBefore;
    m_llVideoStartByte = -videoBefore;
    m_llAudioEndByte = m_llAudioEndByte - m_llAudioStartByte - audioBefore;
    m_llAudioStartByte = -audioBefore;
    Log(6,
        L" KVMPDStream::SeekToTargetSegment update cache start: %lld, size: %d. video range: %lld~%lld, audio range: "
        L"%lld~%lld",
        m_llCacheStart, m_nCacheDuration, m_llVideoStartByte, m_llVideoEndByte, m_llAudioStartByte, m_llAudioEndByte);
}

void KVMPDStream::UpdateCacheSegmentInfo() {
    if (!m_eventHandler.IsThreadRunning()) {
        Log(6, L" KVMPDStream::UpdateCacheSegmentInfo ");
        return;
    }
    const CritSecLock cache(m_csCache);
    const LONGLONG manifestLength = ManifestLength();
    const LONGLONG loaderNow = m_pLoader->TotalQueuedDuration();
    const LONGLONG cacheLength = m_nCacheDuration;
    const LONGLONG cacheTotal = m_llCacheStart + cacheLength;
    const bool manifestReachesFurther = cacheLength <= manifestLength;
    const LONGLONG start = manifestReachesFurther ? loaderNow - manifestLength : m_llCacheStart;
    const LONGLONG total = manifestReachesFurther ? loaderNow : cacheTotal;
    Log(6, L" KVMPDStream::UpdateCacheSegmentInfo OnBuffering: start: %lld, cache total: %lld, total: %lld", start,
        cacheTotal, total);
    m_eventHandler.OnBuffering(start, cacheTotal, total);
}

void KVMPDStream::resetSegmentCache(bool full) {
    const CritSecLock cache(m_csCache);
    Log(6, L" KVMPDStream::resetSegmentCache ");
    CloseFailedFiles();
    m_cacheSegment.clear();
    m_nCacheIndex = 0;
    m_nCacheDuration = 0;
    if (full) {
        m_llCacheStart = 0;
        m_llFirstSegmentId = 0;
        m_llVideoStartByte = 0;
        m_llVideoEndByte = 0;
        m_llAudioStartByte = 0;
        m_llAudioEndByte = 0;
    }
}

void KVMPDStream::releaseBuffer() {
    Log(5, L" KVMPDStream::releaseBuffer ");
    const CritSecLock buffer(m_csBuffer);
    m_videoBuffer.Clear();
    m_audioBuffer.Clear();
    SetEvent(m_hBufferEvent.get());
    m_llVideoWritten = 0;
    m_llAudioWritten = 0;
    m_bAudioRebase = false;
    m_bFeedCutOff = false;
}

}  // namespace kvmpd
