#include "download/SegmentDownloader.h"

#include <new>

#include "common/Log.h"
#include "download/FileDownloadStream.h"
#include "net/NetKernelBase.h"

namespace kvmpd {
namespace {

constexpr int kAttempts = 3;
constexpr wchar_t kAudioExtension[] = L".m4a";
constexpr wchar_t kVideoExtension[] = L".mp4";

/// Queues the end marker. A close must not fail, least of all in a destructor: without memory for the marker the queue
/// is closed instead, which ends the thread as well.
void EndQueue(SegmentQueue& queue) noexcept {
    try {
        queue.push(std::make_shared<Segment>());
    } catch (const std::bad_alloc&) {
        queue.close();
    }
}

}  // namespace

/// One of a segment's two files and where its outcome is noted.
struct SegmentDownloader::MediaFile {
    const std::string& url;
    const std::wstring& path;
    LONGLONG& size;
    bool isVideo;
};

SegmentDownloader::SegmentDownloader(SegmentReceiver& receiver)
    : SegmentDownloader(receiver, std::make_unique<NetKernelBase>(nullptr, nullptr)) {}

SegmentDownloader::SegmentDownloader(SegmentReceiver& receiver, std::unique_ptr<INetKernelBase> client)
    : m_pNetKernel(std::move(client)), m_pStream(receiver) {
    Log(4, L" SegmentDownloader::SegmentDownloader ");
}

SegmentDownloader::~SegmentDownloader() {
    Log(4, L" SegmentDownloader::~SegmentDownloader ");
    SegmentDownloader::CloseThread();
    if (IsThreadRunning()) {
        WorkerProcessor::CloseThread();  // joins a thread that had closed itself, while the members it used still live
    }
}

HRESULT SegmentDownloader::Init(std::shared_ptr<SegmentQueue> queue) {
    Log(4, L" SegmentDownloader::Init ");
    {
        const MutexLock lock(m_settingsLock);
        m_segmentQueue = std::move(queue);
    }
    return StartThread();
}

HRESULT SegmentDownloader::SetCacheFileFolder(const char* folder) {
    LogA(4, " SegmentDownloader::SetCacheFileFolder %s", folder);
    const int length = folder ? MultiByteToWideChar(CP_UTF8, 0, folder, /*to_terminator=*/-1, nullptr, 0) : 0;
    if (length <= 0) {
        Log(4, L"[Error] SegmentDownloader::SetCacheFileFolder MultiByteToWideChar return 0");
        return E_FAIL;
    }
    std::wstring wide(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, folder, -1, wide.data(), length);
    wide.pop_back();  // the terminator
    const MutexLock lock(m_settingsLock);
    m_cacheFolder = std::move(wide);
    m_bFolderSet = true;
    return 0;
}

void SegmentDownloader::clear() {
    Log(3, L" SegmentDownloader::clear ");
    std::shared_ptr<SegmentQueue> queue;
    {
        const MutexLock lock(m_settingsLock);
        queue = m_segmentQueue;
    }
    if (queue) {
        queue->clear();
        // A close that queued its marker just before must not lose it with the rest: its thread would sleep for ever.
        if (m_bClosing.load()) {
            EndQueue(*queue);
        }
    }
    m_bDiscard.store(true);
    m_llVideoBytes.store(0, std::memory_order_relaxed);
    m_llAudioBytes.store(0, std::memory_order_relaxed);
}

bool SegmentDownloader::TakeDiscard(const Segment& segment) {
    if (!m_bDiscard.exchange(false)) {
        return false;
    }
    Log(6, L" SegmentDownloader::ThreadProc discard segment %lld.", segment.m_segmentNumber);
    return true;
}

HRESULT SegmentDownloader::CloseThread() {
    Log(4, L" SegmentDownloader::CloseThread ");
    if (m_bClosing.exchange(true)) {
        return 0;
    }
    std::shared_ptr<SegmentQueue> queue;
    {
        const MutexLock lock(m_settingsLock);
        queue = m_segmentQueue;
    }
    if (queue) {
        EndQueue(*queue);
    }
    return WorkerProcessor::CloseThread();
}

DWORD SegmentDownloader::ThreadProc() {
    Log(4, L" SegmentDownloader::ThreadProc ");
    while (!m_bClosing.load() && Step()) {
    }
    m_bClosing.store(true);
    Log(4, L" SegmentDownloader::ThreadProc finish");
    return 0;
}

/// Takes and handles one segment; false when the thread is to end.
bool SegmentDownloader::Step() {
    std::shared_ptr<SegmentQueue> queue;
    {
        const MutexLock lock(m_settingsLock);
        queue = m_segmentQueue;
    }
    const std::shared_ptr<Segment> segment = queue ? queue->pop() : nullptr;
    if (!segment) {
        Log(5, L"[Error] SegmentDownloader::ThreadProc cannot get segment. stop thread!!");
        return false;
    }
    if (segment->IsEndMarker()) {
        Log(5, L" SegmentDownloader::ThreadProc  get end segment. stop thread!!");
        m_pStream.PushSegmentToCache(segment);
        return false;
    }
    if (!m_pStream.IsWanted(*segment)) {
        Log(5, L" SegmentDownloader::ThreadProc skip segment %lld of an earlier url", segment->m_segmentNumber);
        TakeDiscard(*segment);  // a clear that meant this one must not hit the next
        return true;
    }
    try {
        Fetch(segment);
    } catch (const std::bad_alloc&) {
        // No memory for this segment; the next one may fare better.
        Log(3, L"[Error] SegmentDownloader::ThreadProc out of memory, segment %lld dropped", segment->m_segmentNumber);
        m_pStream.OnSegmentFailed();
    }
    return true;
}

/// Downloads a segment's two files and passes it on, or drops it.
void SegmentDownloader::Fetch(const std::shared_ptr<Segment>& segment) {
    segment->m_audioFile = CacheFileName(*segment, kAudioExtension);
    const HRESULT audio = Download(*segment, {segment->m_audioUrl, segment->m_audioFile, segment->m_audioSize, false});
    // The video is fetched even when the audio failed.
    segment->m_videoFile = CacheFileName(*segment, kVideoExtension);
    const HRESULT video = Download(*segment, {segment->m_videoUrl, segment->m_videoFile, segment->m_videoSize, true});

    if (TakeDiscard(*segment)) {
        return;
    }
    if (SUCCEEDED(audio) && SUCCEEDED(video)) {
        Log(6, L" SegmentDownloader::ThreadProc download segment %lld success. Result: 0x%08X",
            segment->m_segmentNumber, video);
        m_llVideoBytes.fetch_add(segment->m_videoSize, std::memory_order_relaxed);
        m_llAudioBytes.fetch_add(segment->m_audioSize, std::memory_order_relaxed);
        m_pStream.PushSegmentToCache(segment);
        return;
    }
    // The line carries the video's result, also when only the audio failed.
    Log(3, L"[Error] SegmentDownloader::ThreadProc download segment %lld failed. Result: 0x%08X",
        segment->m_segmentNumber, video);
    m_pStream.OnSegmentFailed();
}

/// One file, with its attempts; the last attempt's result decides. One sink serves all of them.
HRESULT SegmentDownloader::Download(const Segment& segment, const MediaFile& file) {
    FileDownloadStream sink(file.path);
    HRESULT result = E_FAIL;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        result = m_pNetKernel->OpenUrl(file.url.c_str(), "GET", /*proxy=*/nullptr, /*disableProxy=*/FALSE,
                                       /*headers=*/nullptr, /*responseFile=*/nullptr, /*postData=*/nullptr,
                                       /*postLength=*/0, &sink);
        if (SUCCEEDED(result)) {
            if (file.isVideo) {
                Log(6, L" SegmentDownloader::ThreadProc download segment %lld video success. Result: 0x%08X",
                    segment.m_segmentNumber, result);
            } else {
                Log(6, L" SegmentDownloader::ThreadProc download segment %lld audio success. Result: 0x%08X",
                    segment.m_segmentNumber, result);
            }
            file.size = static_cast<LONGLONG>(sink.Written());
            break;
        }
    }
    return result;
}

std::wstring SegmentDownloader::CacheFileName(const Segment& segment, const wchar_t* extension) {
    const MutexLock lock(m_settingsLock);
    return m_cacheFolder + L"\\" + std::to_wstring(segment.m_segmentNumber) + extension;
}

}  // namespace kvmpd
