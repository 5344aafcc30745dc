// Keeps the live manifest current: fetches it again and again, chooses where playback starts and which representations
// play, and queues every new segment for the downloader. The engine owns the loader and steers it.
//
// Locking. Two locks, always taken in this order:
//
//   m_publication  Outer and re-entrant. The order through the whole component is m_publication, the engine's cache
//                  lock, the engine's buffer lock, leaves. The loader thread holds it while one cycle applies what it
//                  fetched: the test for news, the start choice, the quality report, the stream choice, the pushing of
//                  segments, the report to the host. Every operation that restarts the stream holds it too; the engine
//                  holds it through Publication() around a compound operation (reset the loader, clear the downloader,
//                  reset the cache), so that the compound is one step for the loader. A restart that arrives in
//                  mid-cycle therefore comes either before the cycle applies, which then finds nothing queued and
//                  chooses the start afresh, or after it, and then the engine clears what the cycle pushed. What a
//                  cycle computed from old state never overwrites what a restart set.
//                  The loader thread never fetches, waits or calls UpdateCacheSegmentInfo under it, and nobody joins
//                  the loader thread while holding it.
//   m_stateLock    A leaf that guards every field which more than one thread uses. No call leaves the class while it is
//                  held. The prefer setters, pauseParse and the getters take only this one, because the engine calls
//                  them with its cache lock held.
//
// Nothing is lost between threads: whoever wakes the thread (Init; Wake; SetPreferDelayTime, SetPreferDelaySegment and
// pauseParse when there is a current manifest) writes its fields first and signals m_reloadEvent then; the thread
// resets the event after its wait and only then reads the fields. The other setters and resetStart signal nothing and
// are noticed by the next cycle. A cycle takes the preferences once, when it chooses the start.
//
// A changed URL also changes m_generation. A cycle remembers the generation that it took together with the URL, and
// what it fetched is dropped, and a failure not reported, when another generation holds by the time it would apply. A
// restart alone keeps the fetched manifest usable.
//
// A published manifest is never changed; it is swapped as a whole.
#pragma once

#include <memory>
#include <string>

#include "common/Handle.h"
#include "common/Locks.h"
#include "download/SegmentQueue.h"
#include "download/WorkerProcessor.h"
#include "manifest/LoaderOwner.h"
#include "manifest/ManifestSource.h"
#include "manifest/StartChoice.h"

namespace kvmpd {

class MpdLoader : public WorkerProcessor {
  public:
    /// Fetches through an MpdParser of its own. `owner` must outlive the loader.
    explicit MpdLoader(LoaderOwner& owner);
    /// Fetches through `source`.
    MpdLoader(LoaderOwner& owner, std::unique_ptr<ManifestSource> source);
    MpdLoader(const MpdLoader&) = delete;
    MpdLoader& operator=(const MpdLoader&) = delete;
    ~MpdLoader() override;

    // Control. Init and CloseThread are for the thread that owns the loader's life; the others are for any thread
    // except the loader's own.

    /// Starts following `url`, or wakes the running thread. Another URL (compared without regard to case) restarts the
    /// stream. `queue` must not be null and must be unbounded: the loader pushes under Publication(), where waiting for
    /// room would stop everybody who restarts the stream. S_OK, or why the thread could not be started.
    HRESULT Init(const std::wstring& url, std::shared_ptr<SegmentQueue> queue) EXCLUDES(m_stateLock);

    /// Ends the thread and waits for it; a running fetch is completed first. Not under Publication().
    HRESULT CloseThread() override;

    /// Forgets the current manifest, what was queued and what was chosen, so that the next cycle starts the stream
    /// afresh. Does not wake the thread: the caller does, with Wake, a prefer setter or Init. Returns 1.
    LONG resetStart() EXCLUDES(m_stateLock);

    /// Starts an early cycle. After resetStart of a loader that sleeps without limit (paused, or after a failure).
    void Wake();

    /// Held by a caller around several operations that the loader must see as one. See the top of this file.
    CritSec& Publication() RETURN_CAPABILITY(m_publication) { return m_publication; }

    // Where the stream starts. Each clears the other two; they take effect at the next start choice.

    /// `delayMs` milliseconds of media behind the live end. 0 when that is the value already; else 1, and when there is
    /// a current manifest, `startSegmentOut` is the number of the segment that the delay points into (left as it was
    /// when the delay exceeds the timeline) and the thread is woken.
    LONG SetPreferDelayTime(DWORD delayMs, LONGLONG& startSegmentOut) EXCLUDES(m_stateLock);

    /// `count` segments before the newest one. 1 when that is new and there is a current manifest (the thread is then
    /// woken), else 0.
    LONG SetPreferDelaySegment(DWORD count) EXCLUDES(m_stateLock);

    /// Segment number `segment`; below 1: none. Never wakes the thread.
    void SetPreferSegmentID(LONGLONG segment) EXCLUDES(m_stateLock);

    /// Non-zero: cycles skip the fetch and wait without limit. A change wakes the thread when there is a current
    /// manifest.
    void pauseParse(LONG pause) EXCLUDES(m_stateLock);

    /// The representation that the host wants, 0 for none. The next cycle with news chooses again.
    void SetTargetVideoQualityID(DWORD id) EXCLUDES(m_stateLock);

    /// Preferred video height in pixels, for the next choice of representations.
    void SetPreferQuality(DWORD height) EXCLUDES(m_stateLock);

    // Getters.

    std::wstring GetUrl() const EXCLUDES(m_stateLock);
    /// Counts the URLs: 1 for the first. Segments carry the generation that they were queued under.
    DWORD Generation() const EXCLUDES(m_stateLock);
    /// The manifest of the last cycle that brought news; null before it and after a restart.
    std::shared_ptr<const MPD> CurrentMpd() const EXCLUDES(m_stateLock);
    /// Length of the current manifest's timeline in milliseconds; 0 without one.
    DWORD TotalDuration() const EXCLUDES(m_stateLock);
    /// Milliseconds of media queued since the last restart.
    DWORD TotalQueuedDuration() const EXCLUDES(m_stateLock);
    /// Number of the last segment queued; 0: none since the last restart.
    LONGLONG LastSegment() const EXCLUDES(m_stateLock);
    StartPreference Preference() const EXCLUDES(m_stateLock);
    DWORD TargetVideoQualityID() const EXCLUDES(m_stateLock);
    DWORD PreferQuality() const EXCLUDES(m_stateLock);
    bool IsPaused() const EXCLUDES(m_stateLock);

  protected:
    DWORD ThreadProc() override;

  private:
    /// What a cycle takes at its start.
    struct Ticket {
        std::wstring url;
        DWORD generation = 0;
        bool paused = false;
    };
    /// What a cycle leads to.
    struct Outcome {
        DWORD wait = INFINITE;  ///< Milliseconds until the next cycle unless the thread is woken.
        bool news = false;
    };

    // Loader thread only.
    DWORD RunCycle();
    Outcome FetchAndApply(Ticket& ticket, LONGLONG started);
    void TakeTicket(Ticket& ticket) EXCLUDES(m_stateLock);
    Outcome Apply(DWORD generation, HRESULT result, std::shared_ptr<const MPD> fetched, LONGLONG started)
        EXCLUDES(m_stateLock);
    void ReportFailure(DWORD generation, HRESULT result) EXCLUDES(m_stateLock);
    bool BringsNews(const MPD& fetched) const REQUIRES(m_publication) EXCLUDES(m_stateLock);
    void ApplyNews(const std::shared_ptr<const MPD>& fetched) REQUIRES(m_publication) EXCLUDES(m_stateLock);
    size_t ChooseStart(const MPD& mpd) REQUIRES(m_publication) EXCLUDES(m_stateLock);
    bool ChoiceStream(const MPD& mpd) REQUIRES(m_publication) EXCLUDES(m_stateLock);
    bool CallbackQuality(const MPD& mpd) REQUIRES(m_publication);
    void CountQueued(LONGLONG number, DWORD duration) REQUIRES(m_publication) EXCLUDES(m_stateLock);
    void QueueSegments(const MPD& mpd, size_t startIndex) REQUIRES(m_publication) EXCLUDES(m_stateLock);

    CritSec m_publication ACQUIRED_BEFORE(m_stateLock);
    mutable Mutex m_stateLock;

    std::wstring m_url GUARDED_BY(m_stateLock);
    DWORD m_generation GUARDED_BY(m_stateLock) = 0;    ///< Counts the URLs.
    DWORD m_closingState GUARDED_BY(m_stateLock) = 0;  ///< 2 once the loader has been told to close.
    std::shared_ptr<SegmentQueue> m_segmentQueue GUARDED_BY(m_stateLock);
    LONGLONG m_lastSegment GUARDED_BY(m_stateLock) = 0;  ///< 0: the next cycle chooses the start.
    const std::unique_ptr<ManifestSource> m_source;      ///< Used on the loader thread only.
    std::shared_ptr<const MPD> m_mpd GUARDED_BY(m_stateLock);
    DWORD m_totalQueuedDuration GUARDED_BY(m_stateLock) = 0;
    bool m_streamChosen GUARDED_BY(m_stateLock) = false;  ///< The four indices hold a choice.
    DWORD m_audioSetIndex GUARDED_BY(m_stateLock) = 0;
    DWORD m_audioRepIndex GUARDED_BY(m_stateLock) = 0;
    DWORD m_videoSetIndex GUARDED_BY(m_stateLock) = 0;
    DWORD m_videoRepIndex GUARDED_BY(m_stateLock) = 0;
    StartPreference m_prefer GUARDED_BY(m_stateLock);
    DWORD m_preferQuality GUARDED_BY(m_stateLock) = 720;
    DWORD m_targetVideoQualityId GUARDED_BY(m_stateLock) = 0;
    LONG m_pause GUARDED_BY(m_stateLock) = 0;
    const UniqueEvent m_reloadEvent;  ///< Manual reset: signalled by who wants an early cycle, reset by the thread.
    LoaderOwner& m_owner;
};

}  // namespace kvmpd
