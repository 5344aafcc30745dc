// The loader thread: one reload cycle after another.
#include <exception>
#include <new>
#include <utility>

#include "common/Log.h"
#include "download/Segment.h"
#include "events/EventIds.h"
#include "events/MPDEventHandler.h"
#include "manifest/MpdLoader.h"
#include "manifest/QualityText.h"
#include "manifest/ReloadWait.h"
#include "manifest/StreamChoice.h"

namespace kvmpd {
namespace {

std::string UrlOf(const RepresentationInfo* representation, size_t index) {
    return representation ? SegmentUrl(*representation, index) : std::string();
}

}  // namespace

DWORD MpdLoader::ThreadProc() {
    Log(4, L" MpdLoader::ThreadProc ");
    const HANDLE handles[] = {StopEvent(), m_reloadEvent.get()};
    for (;;) {
        const DWORD wait = RunCycle();
        const DWORD result = WaitForMultipleObjects(2, handles, /*wait_all=*/FALSE, wait);
        Log(4, L" MpdLoader::ThreadProc wait %d millisecond complete. result: %d", wait, result);
        // A wait that cannot be made (an event could not be created) ends the thread as a stop does: going on would
        // fetch without a pause.
        if (result == WAIT_OBJECT_0 || result == WAIT_FAILED) {
            Log(4, L" MpdLoader::ThreadProc finish.");
            return 0;
        }
        ResetEvent(m_reloadEvent.get());
    }
}

/// Returns the time to wait. A std::exception inside a cycle counts as a failed fetch and does not end the thread; no
/// other kind is thrown here.
DWORD MpdLoader::RunCycle() {
    const LONGLONG started = ClockMs();
    Ticket ticket;
    HRESULT failure = E_FAIL;
    try {
        const Outcome outcome = FetchAndApply(ticket, started);
        if (outcome.news) {
            m_owner.UpdateCacheSegmentInfo();
        }
        return outcome.wait;
    } catch (const std::bad_alloc&) {
        failure = E_OUTOFMEMORY;
    } catch (const std::exception&) {
        failure = E_FAIL;
    }
    try {
        ReportFailure(ticket.generation, failure);
    } catch (const std::exception&) {
        // The failure has been logged; the host cannot be told.
    }
    return INFINITE;
}

MpdLoader::Outcome MpdLoader::FetchAndApply(Ticket& ticket, LONGLONG started) {
    TakeTicket(ticket);
    if (ticket.paused) {
        Log(6, L" MpdLoader::ThreadProc skip MPD parse for pause");
        return {};
    }
    auto fetched = std::make_shared<MPD>();
    const HRESULT result = m_source->parse(ticket.url, fetched);
    Log(6, L" MpdLoader::ThreadProc parse MPD finish. result: 0x%08X, segment count: %d", result,
        fetched->m_segmentDurations.size());
    if (IsPaused()) {
        Log(6, L" MpdLoader::ThreadProc skip MPD parse for pause");
        return {};
    }
    return Apply(ticket.generation, result, std::move(fetched), started);
}

void MpdLoader::TakeTicket(Ticket& ticket) {
    MutexLock lock(m_stateLock);
    ticket.generation = m_generation;  // First: a failure to copy the URL is reported under it.
    ticket.paused = m_pause != 0;
    ticket.url = m_url;
}

MpdLoader::Outcome MpdLoader::Apply(DWORD generation, HRESULT result, std::shared_ptr<const MPD> fetched,
                                    LONGLONG started) {
    const std::shared_ptr<const MPD> previous = CurrentMpd();  // Kept so that a record is released after the locks.
    CritSecLock publication(m_publication);
    if (FAILED(result) || fetched->m_segmentDurations.empty()) {
        ReportFailure(generation, result);
        return {};
    }
    {
        MutexLock lock(m_stateLock);
        if (generation != m_generation) {
            return {};  // Another URL: Init has signalled the reload event, so the wait that follows ends at once.
        }
    }
    Log(6, L" MpdLoader::ThreadProc parse MPD finish. last segment is %lld", fetched->m_startNumber);
    const bool news = BringsNews(*fetched);
    if (news) {
        ApplyNews(fetched);
    }
    const DWORD duration = LastSegmentDuration(*fetched);
    const DWORD wait = ReloadWait(ReloadPeriod(duration, !news), static_cast<ULONGLONG>(ClockMs() - started));
    Log(6, L" MpdLoader::ThreadProc wait %d millisecond to reload playlist", wait);
    if (news) {
        m_owner.EventHandler().OnStreamDwordEvent(kEventManifest, kManifestLoaded, static_cast<LONG>(duration));
        Log(3, L" MpdLoader::ThreadProc parse success and send callback. duration: %d", duration);
    }
    return {wait, news};
}

/// The thread then waits without limit, deliberately: after a failure the host decides whether to go on.
void MpdLoader::ReportFailure(DWORD generation, HRESULT result) {
    CritSecLock publication(m_publication);
    {
        MutexLock lock(m_stateLock);
        if (generation != m_generation) {
            return;
        }
    }
    Log(3, L"[Error] MpdLoader::ThreadProc failed to get mpd for 0x%08X", result);
    m_owner.EventHandler().OnStreamDwordEvent(kEventManifest,
                                              result == E_UNEXPECTED ? kManifestMalformed : kManifestFailed, 0);
}

/// Whether the live end has advanced.
bool MpdLoader::BringsNews(const MPD& fetched) const {
    const auto end = [](const MPD& mpd) {
        return static_cast<ULONGLONG>(mpd.m_startNumber) + mpd.m_segmentDurations.size();
    };
    MutexLock lock(m_stateLock);
    return !m_mpd || end(*m_mpd) < end(fetched);
}

/// Makes `fetched` the current manifest and queues what is new in it. When an exception ends it part-way, the manifest
/// before it is current again. Segments that were queued stay queued and counted, and the next cycle goes on behind
/// them; when it ends before the queuing, the next cycle chooses the start again. What the host has been told by then
/// it is told again with the choice that it belongs to; a choice of representations that was completed stands.
void MpdLoader::ApplyNews(const std::shared_ptr<const MPD>& fetched) {
    std::shared_ptr<const MPD> before = fetched;
    LONGLONG lastBefore = 0;
    {
        MutexLock lock(m_stateLock);
        m_mpd.swap(before);
        lastBefore = m_lastSegment;
    }
    bool queuing = false;
    try {
        const size_t startIndex = lastBefore == 0 ? ChooseStart(*fetched) : 0;
        if (!ChoiceStream(*fetched)) {
            Log(3, L"[Error] MpdLoader::ThreadProc failed to get vidoe and audio segment!");
            return;
        }
        queuing = true;
        QueueSegments(*fetched, startIndex);
    } catch (...) {
        MutexLock lock(m_stateLock);
        m_mpd.swap(before);
        if (!queuing) {
            m_lastSegment = lastBefore;
        }
        throw;
    }
}

/// The first cycle of a start: returns the index at which it begins, and tells the host what there is to choose from.
size_t MpdLoader::ChooseStart(const MPD& mpd) {
    const size_t start = ChooseStartIndex(mpd, Preference());
    {
        MutexLock lock(m_stateLock);
        m_lastSegment = SegmentNumber(mpd, static_cast<LONGLONG>(start) - 1);
    }
    Log(3, L" MpdLoader::ThreadProc start play from segment %lld. The %d segment from %d segments",
        SegmentNumber(mpd, static_cast<LONGLONG>(start)), start, mpd.m_segmentDurations.size());
    CallbackQuality(mpd);
    return start;
}

/// Whether an audio and a video representation are chosen, now or by an earlier cycle.
bool MpdLoader::ChoiceStream(const MPD& mpd) {
    Log(6, L" MpdLoader::ChoiceStream ");
    VideoPreference preference;
    {
        MutexLock lock(m_stateLock);
        if (m_streamChosen) {
            return true;
        }
        preference = {.targetId = m_targetVideoQualityId, .height = m_preferQuality};
    }
    const StreamSelection selection = ChooseStreams(mpd, preference);
    if (selection.video) {
        m_owner.EventHandler().OnStreamDwordEvent(kEventQualityChosen, FindRepresentation(mpd, *selection.video)->m_id,
                                                  0);
    }
    MutexLock lock(m_stateLock);
    if (selection.audio) {
        m_audioSetIndex = selection.audio->set;
        m_audioRepIndex = selection.audio->representation;
    }
    if (selection.video) {
        m_videoSetIndex = selection.video->set;
        m_videoRepIndex = selection.video->representation;
    }
    m_streamChosen = selection.Complete();
    return m_streamChosen;
}

/// Tells the host which video qualities there are; false when there is no video.
bool MpdLoader::CallbackQuality(const MPD& mpd) {
    Log(3, L" MpdLoader::CallbackQuality ");
    const AdaptationSetInfo* set = FirstVideoSet(mpd);
    if (!set) {
        Log(3, L"[Error] MpdLoader::CallbackQuality failed to find video quality");
        return false;
    }
    std::wstring text = QualityText(*set);
    Log(6, L" MpdLoader::CallbackQuality construct video quality info: %s", text);
    m_owner.EventHandler().onStreamStringEvent(kEventQualityList, std::move(text));
    return true;
}

/// Counts a segment as queued; with the number before it and the negated duration, takes that back. Only whoever holds
/// m_publication writes these two, so that nothing comes in between.
void MpdLoader::CountQueued(LONGLONG number, DWORD duration) {
    MutexLock lock(m_stateLock);
    m_lastSegment = number;
    m_totalQueuedDuration += duration;
}

/// Queues what is newer than the last segment queued, from `startIndex` on. A segment for which a representation has no
/// name goes out with an empty URL: its download fails and the host hears of it. One without a duration as well would
/// end the downloader, and is left out; its number stays used. A segment is counted before it is pushed: once it is
/// downloaded, the host is told how much is buffered of how much there is.
void MpdLoader::QueueSegments(const MPD& mpd, size_t startIndex) {
    std::shared_ptr<SegmentQueue> queue;
    RepresentationIndex audioIndex;
    RepresentationIndex videoIndex;
    DWORD generation = 0;
    LONGLONG last = 0;
    {
        MutexLock lock(m_stateLock);
        generation = m_generation;
        queue = m_segmentQueue;
        audioIndex = {m_audioSetIndex, m_audioRepIndex};
        videoIndex = {m_videoSetIndex, m_videoRepIndex};
        last = m_lastSegment;
    }
    const RepresentationInfo* audio = FindRepresentation(mpd, audioIndex);
    const RepresentationInfo* video = FindRepresentation(mpd, videoIndex);
    for (size_t i = startIndex; i < mpd.m_segmentDurations.size(); ++i) {
        const LONGLONG number = SegmentNumber(mpd, static_cast<LONGLONG>(i));
        if (number <= last) {
            continue;
        }
        const DWORD duration = mpd.m_segmentDurations[i];
        auto segment = std::make_shared<Segment>();
        segment->m_videoUrl = UrlOf(video, i);
        segment->m_audioUrl = UrlOf(audio, i);
        segment->m_duration = static_cast<LONG>(duration);
        segment->m_segmentNumber = number;
        segment->m_generation = generation;
        CountQueued(number, duration);
        if (segment->IsEndMarker()) {
            Log(3, L"[Error] MpdLoader::ThreadProc segment %lld has neither a video URL nor a duration", number);
        } else {
            try {
                queue->push(std::move(segment));
            } catch (...) {
                CountQueued(last, 0 - duration);
                throw;
            }
        }
        last = number;
    }
    Log(6, L" MpdLoader::ThreadProc update last segment to %d", last);
}

}  // namespace kvmpd
