// The worker that turns queued segments into cache files: audio first, then video, each with up to three attempts, then
// the whole segment goes to the engine's cache. A segment that fails is dropped and reported; it is not tried again.
// One that was queued for an earlier URL is dropped before it costs a transfer.
//
// Cache files are FOLDER\NUMBER.m4a and FOLDER\NUMBER.mp4. They are only ever created new, so a retry can succeed only
// when the failed attempt wrote no byte; a partial file of a failed attempt stays.
//
// Threads: the body runs on the downloader's own thread, the only user of the HTTP client. The other operations are
// called on control threads. A clear never interrupts a transfer: it completes, and that segment is then discarded.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "common/Locks.h"
#include "download/SegmentQueue.h"
#include "download/SegmentReceiver.h"
#include "download/WorkerProcessor.h"
#include "net/INetKernelBase.h"

namespace kvmpd {

class SegmentDownloader : public WorkerProcessor {
  public:
    explicit SegmentDownloader(SegmentReceiver& receiver);
    /// For tests: with an HTTP client of the caller's.
    SegmentDownloader(SegmentReceiver& receiver, std::unique_ptr<INetKernelBase> client);
    ~SegmentDownloader() override;

  protected:
    DWORD ThreadProc() override;

  public:
    /// Queues the end marker (without memory for it: closes the queue) and waits for the thread, which first finishes the
    /// segment in hand. A second call returns 0 at once.
    HRESULT CloseThread() override;

    /// Sets the queue to work from and starts the thread; the result of the start.
    HRESULT Init(std::shared_ptr<SegmentQueue> queue);

    /// Where cache files go: a UTF-8 path, used as given. E_FAIL, and the folder as it was, when it cannot be converted
    /// or is null.
    HRESULT SetCacheFileFolder(const char* folder);

    /// Forgets what is queued and lets the next finished segment be dropped: it was asked for before.
    void clear();

    /// Whether `segment` falls to an earlier clear(); if so the clear is used up. The thread asks when a segment is
    /// finished; the engine asks once more under its cache lock, so that a clear which arrives between the two is not
    /// lost.
    bool TakeDiscard(const Segment& segment);

    LONGLONG VideoBytes() const { return m_llVideoBytes.load(std::memory_order_relaxed); }
    LONGLONG AudioBytes() const { return m_llAudioBytes.load(std::memory_order_relaxed); }

  private:
    struct MediaFile;
    bool Step();
    void Fetch(const std::shared_ptr<Segment>& segment);
    HRESULT Download(const Segment& segment, const MediaFile& file);
    std::wstring CacheFileName(const Segment& segment, const wchar_t* extension);

    std::atomic<bool> m_bClosing{false};
    mutable Mutex m_settingsLock;  // a leaf
    std::shared_ptr<SegmentQueue> m_segmentQueue GUARDED_BY(m_settingsLock);
    const std::unique_ptr<INetKernelBase> m_pNetKernel;  // used on the downloader thread only
    std::wstring m_cacheFolder GUARDED_BY(m_settingsLock);
    bool m_bFolderSet GUARDED_BY(m_settingsLock) = false;  // for whoever debugs files at the root of the drive
    std::atomic<bool> m_bDiscard{false};                   // set by clear, used up by the next finished segment
    std::atomic<LONGLONG> m_llVideoBytes{0};               // handed on since the last clear
    std::atomic<LONGLONG> m_llAudioBytes{0};
    SegmentReceiver& m_pStream;
};

}  // namespace kvmpd
