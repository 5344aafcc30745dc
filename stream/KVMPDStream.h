// The stream engine of one playback session: from a manifest URL to two byte streams that can be read by position.
//
// It owns the manifest loader, the segment downloader and the queue between them, the dispatcher that calls the host,
// the time-bounded cache of downloaded segments, and one read buffer each for video and audio, which its own thread
// fills from the cache files. One source a concern: KVMPDStream.cpp the controller, SegmentCache.cpp the cache,
// CacheFeed.cpp the feed and the reads.
//
// Byte positions. The video byte stream is the concatenation, in segment order, of the video files of all segments
// cached since the last full reset; the audio byte stream likewise. Position 0 is the first byte of the first of them.
// A seek inside the cache re-bases both streams: its target starts at 0 and what lies before it at negative positions.
//
// Locks, outermost first:
//   1. the loader's publication lock   one control operation, or the application of one parsed manifest, at a time;
//   2. m_csCache                       the cache and every counter on it;
//   3. m_csBuffer                      both buffer handlers;
//   4. leaves: the loader's state, the queue's mutex, the event queue, the downloader's settings.
// An operation that restarts the stream holds 1 and 2 from its first step to its last, so neither the loader's cycle
// nor the downloader's hand-over can fall between the steps. A pin read holds 2 or 3, never both. No lock is held while
// a thread is joined, while the host's callback runs or while anything is fetched. The feed and ReadCacheFromByte read
// files under m_csCache: that is what keeps the files in place.
//
// Wake-ups. m_hBufferEvent (something was consumed, or the buffers were emptied) and m_hSegmentEvent (the cache gained
// a segment) are manual-reset. Only the feed resets the first, under m_csBuffer, where every reader signals it, and
// looks at m_bClosing afterwards; nobody resets the second. So neither a read nor a close can go unseen. The downloader
// is woken by the end marker in its queue; m_bClosing is set under the publication lock, and no restart clears the
// queue afterwards.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>

#include "common/Handle.h"
#include "common/Locks.h"
#include "download/SegmentDownloader.h"
#include "events/MPDEventHandler.h"
#include "manifest/LoaderOwner.h"
#include "manifest/MpdLoader.h"
#include "stream/BufferHandler.h"
#include "stream/CAsyncStream.h"

namespace kvmpd {

class KVMPDStream : public CAsyncStream, public WorkerProcessor, private LoaderOwner, private SegmentReceiver {
  public:
    KVMPDStream();
    /// With another way to manifests and another HTTP client for segments.
    KVMPDStream(std::unique_ptr<ManifestSource> manifests, std::unique_ptr<INetKernelBase> segments);
    /// Closes every thread first.
    ~KVMPDStream() override;

    // CAsyncStream: the byte streams, called by the pin.
    HRESULT SetPointer(LONGLONG llPos) override;
    HRESULT SetAudioPointer(LONGLONG llPos) override;
    /// Whenever the result is not negative, the requested count is reported as read, also for "not yet": the reader
    /// asks for the whole range again. E_FAIL while stopped, so that a reader which waits for bytes ends with its next
    /// attempt.
    HRESULT Read(BYTE* pbBuffer, DWORD dwBytesToRead, BOOL bAlign, DWORD* pdwBytesRead) override;
    HRESULT ReadAudio(BYTE* pbBuffer, DWORD dwBytesToRead, BOOL bAlign, DWORD* pdwBytesRead) override;
    HRESULT Size(LONGLONG* pllStart, LONGLONG* pllEnd) override;
    HRESULT SizeAudio(LONGLONG* pllStart, LONGLONG* pllEnd) override;
    HRESULT Length(LONGLONG* pllTotal, LONGLONG* pllAvailable) override;
    DWORD Alignment() override { return 1; }
    void Lock() override NO_THREAD_SAFETY_ANALYSIS { m_csStream.Lock(); }      // the pin pairs the two calls
    void Unlock() override NO_THREAD_SAFETY_ANALYSIS { m_csStream.Unlock(); }  //
    BOOL IsStopped() override { return m_bStopNow.load(); }

    // Control operations, called by the filter on any thread.

    /// Loads `url`: the first time starts all threads, later moves them to the new stream. The URL that is loaded
    /// already (without regard to case) is skipped. The first failing step's result, else S_OK.
    HRESULT Init(const std::wstring& url);
    /// The filter whose state tells a paused graph; no reference is taken. Null: never paused.
    void SetFilter(IBaseFilter* filter) { m_pFilter.store(filter); }
    /// The URL last loaded, or empty.
    std::wstring GetUrl() const;
    /// Makes the two buffers of `size` bytes each, unless they exist. Always S_OK.
    HRESULT CreateBuffer(DWORD size);
    /// Leaves a paused loader and restarts the stream at the live edge; else nothing.
    void Run();
    /// Non-zero: Read and ReadAudio fail, and the pin refuses new reads without asking.
    void StopNow(BOOL bStop);
    /// Longest total duration of the cache in seconds, from the next segment on. S_OK.
    HRESULT SetMaxCacheTime(DWORD seconds);
    void SetRenderComplete(BOOL flag);
    /// Segments to stay behind the newest one. Always 1.
    LONG SetPreferDelaySegment(DWORD count);
    /// Video height in pixels for the next choice of a representation.
    void SetPreferQuality(DWORD height);
    /// Switches to the video representation with this id and restarts the stream. 0 when the workers are gone, else 1.
    LONG SetVideoQualityID(DWORD id);
    /// Seeks to a media time in milliseconds, counted like the cache's start. 0: outside of what can be reached.
    LONG SetPosition(LONGLONG llPosition);
    /// Where cache files go (UTF-8); the downloader's result.
    HRESULT SetCacheFileFolder(const char* folder);
    /// The host's callback, or null; the dispatcher's result.
    HRESULT SetCallback(IKVMPDCallback* callback);
    /// Ends loader, downloader, dispatcher and the engine's own thread, in this order, and waits for each.
    HRESULT CloseThread() override;

    // The segment cache.

    /// Appends a downloaded segment and trims the oldest; while the cache is over its limit and nothing is consumed,
    /// blocks the downloader.
    void PushSegmentToCache(std::shared_ptr<Segment> segment) override;
    /// Whether the cache spans `target`; one number past the newest cached segment counts.
    BOOL IsSegmentInCache(LONGLONG target);
    /// Moves the stream to segment `target`: re-bases when it is cached, else starts over. Always 1.
    LONG SeekToTargetSegment(LONGLONG target);
    /// Reports the playable range to the host.
    void UpdateCacheSegmentInfo() override;
    void resetSegmentCache(bool full);
    void releaseBuffer();

    // The feed and the read path.

    /// Copies cached files into the buffers until these are full, a file cannot be read, or everything is copied. 0.
    DWORD ReadSegmentCacheToBuffer();
    /// S_OK; S_FALSE: not cached yet; E_ACCESSDENIED: released already; E_FAIL.
    HRESULT ReadBuffer(BYTE* buffer, DWORD length);
    HRESULT ReadAudioBuffer(BYTE* buffer, DWORD length);
    HRESULT ReadCacheFromByte(LONGLONG position, bool isVideo, BYTE* buffer, LONG length);

    MPDEventHandler& EventHandler() override { return m_eventHandler; }

  protected:
    DWORD ThreadProc() override;

  private:
    friend struct KVMPDStreamTestAccess;

    bool IsWanted(const Segment& segment) override;
    void OnSegmentFailed() override;
    void BeginClosing();
    void ClearDownloader() REQUIRES(m_csCache);
    void RestartLoading() REQUIRES(m_csCache);
    LONG SeekInCache(LONGLONG llPosition);
    LONG SeekInManifest(LONGLONG llPosition, DWORD manifestLength);
    LONGLONG GetSegmentIdByDelayCount(DWORD count);
    DWORD ManifestLength() const;

    bool AppendSegment(const std::shared_ptr<Segment>& segment) REQUIRES(m_csCache);
    bool TrimCache(bool paused) REQUIRES(m_csCache);
    void ReleaseOldest() REQUIRES(m_csCache);
    void CloseFailedFiles() REQUIRES(m_csCache);
    void SendLoaderBackTo(LONGLONG segmentNumber) REQUIRES(m_csCache);
    bool FilterIsPaused() const;
    void WaitWhileCacheIsFull(bool paused);
    void RebaseTo(LONGLONG target, DWORD& index) REQUIRES(m_csCache, m_csBuffer);

    bool FeedVideo(const Segment& segment) REQUIRES(m_csCache, m_csBuffer);
    bool FeedAudio(const Segment& segment) REQUIRES(m_csCache, m_csBuffer);
    void WaitForReader() REQUIRES(m_csBuffer);
    HRESULT ReadStream(bool isVideo, LONGLONG position, BYTE* buffer, DWORD length);
    bool ReadRing(bool isVideo, LONGLONG position, BYTE* buffer, DWORD length);
    DWORD WriteBinaryFromFile(const std::wstring& fileName, LONGLONG offset, BYTE* buffer, DWORD length);

    CritSec m_csStream;                          // the pin's Lock and Unlock: one positioning and its read
    std::atomic<DWORD> m_nMaxCacheTime{300000};  // milliseconds
    std::atomic<LONG> m_bClosing{0};             // set once by CloseThread; the engine thread ends when it sees it
    std::atomic<LONGLONG> m_llVideoPosition{0};  // of the next read; written and used under m_csStream
    std::atomic<LONGLONG> m_llAudioPosition{0};
    std::atomic<LONG> m_bStopNow{1};  // born stopped: the pin refuses reads until a URL is loaded

    // Never replaced. What is declared first goes last: the members that the workers' threads used go before them.
    std::unique_ptr<MpdLoader> m_pLoader;
    std::unique_ptr<SegmentDownloader> m_pDownloader;
    std::shared_ptr<SegmentQueue> m_pSegmentQueue;

    std::deque<std::shared_ptr<Segment>> m_cacheSegment GUARDED_BY(m_csCache);  // oldest first
    mutable CritSec m_csCache;
    DWORD m_nCacheIndex GUARDED_BY(m_csCache) = 0;         // the segment being copied into the buffers
    LONGLONG m_llVideoWritten GUARDED_BY(m_csBuffer) = 0;  // bytes of its video file already copied
    LONGLONG m_llAudioWritten GUARDED_BY(m_csBuffer) = 0;  // bytes of its audio file already copied
    bool m_bAudioRebase GUARDED_BY(m_csBuffer) = false;    // the audio buffer is to begin behind m_llAudioWritten bytes
    bool m_bFeedCutOff GUARDED_BY(m_csBuffer) = false;  // that segment was dropped; nothing fits behind what is copied
    LONGLONG m_llFirstSegmentId GUARDED_BY(m_csCache) = 0;  // number of the first cached segment
    LONGLONG m_llCacheStart GUARDED_BY(m_csCache) = 0;      // media time at which the cache begins, milliseconds
    DWORD m_nCacheDuration GUARDED_BY(m_csCache) = 0;       // sum of the cached durations, milliseconds
    LONGLONG m_llVideoStartByte GUARDED_BY(m_csCache) = 0;  // positions of the first cached byte
    LONGLONG m_llVideoEndByte GUARDED_BY(m_csCache) = 0;    // and of one past the last
    LONGLONG m_llAudioStartByte GUARDED_BY(m_csCache) = 0;
    LONGLONG m_llAudioEndByte GUARDED_BY(m_csCache) = 0;
    bool m_bSeekPending GUARDED_BY(m_csCache) = false;  // a seek outside the cache waits for its first segment
    bool m_bCacheShut GUARDED_BY(m_csCache) = false;    // restarted while closing: takes nothing in any more

    const UniqueEvent m_hBufferEvent;   // manual-reset
    const UniqueEvent m_hSegmentEvent;  // manual-reset
    BufferHandler m_videoBuffer GUARDED_BY(m_csBuffer);
    BufferHandler m_audioBuffer GUARDED_BY(m_csBuffer);
    LONG m_nBufferSize GUARDED_BY(m_csBuffer) = 0;
    CritSec m_csBuffer;
    MPDEventHandler m_eventHandler;
    std::atomic<IBaseFilter*> m_pFilter{nullptr};
};

}  // namespace kvmpd
