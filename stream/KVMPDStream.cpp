#include "stream/KVMPDStream.h"

#include <limits>

#include "common/Log.h"
#include "common/Text.h"
#include "events/EventIds.h"
#include "manifest/MpdParser.h"
#include "net/NetKernelBase.h"

namespace kvmpd {
namespace {

constexpr DWORD kBufferBytes = 0x1000000;  // 16 MiB for each of video and audio
constexpr LONGLONG kEndless = 0x7FFFFFFFFFFFFFFF;

UniqueEvent MakeManualResetEvent() {
    return UniqueEvent(CreateEventW(nullptr, /*manual_reset=*/TRUE, /*initial_state=*/FALSE, nullptr));
}

}  // namespace

KVMPDStream::KVMPDStream() : KVMPDStream(std::make_unique<MpdParser>(), std::make_unique<NetKernelBase>()) {}

KVMPDStream::KVMPDStream(std::unique_ptr<ManifestSource> manifests, std::unique_ptr<INetKernelBase> segments)
    : m_hBufferEvent(MakeManualResetEvent()), m_hSegmentEvent(MakeManualResetEvent()) {
    Log(6, L" KVMPDStream::KVMPDStream ");
    m_pLoader = std::make_unique<MpdLoader>(static_cast<LoaderOwner&>(*this), std::move(manifests));
    m_pDownloader = std::make_unique<SegmentDownloader>(static_cast<SegmentReceiver&>(*this), std::move(segments));
    m_pSegmentQueue = std::make_shared<SegmentQueue>(/*capacity=*/0);
}

KVMPDStream::~KVMPDStream() {
    Log(6, L" KVMPDStream::~KVMPDStream ");
    KVMPDStream::CloseThread();
    Log(6, L" KVMPDStream::~KVMPDStream complete");
}

HRESULT KVMPDStream::SetPointer(LONGLONG llPos) {
    m_llVideoPosition.store(llPos, std::memory_order_relaxed);
    return S_OK;
}

HRESULT KVMPDStream::SetAudioPointer(LONGLONG llPos) {
    m_llAudioPosition.store(llPos, std::memory_order_relaxed);
    return S_OK;
}

HRESULT KVMPDStream::Read(BYTE* pbBuffer, DWORD dwBytesToRead, BOOL /*bAlign*/, DWORD* pdwBytesRead) {
    if (m_bStopNow.load()) {
        return E_FAIL;
    }
    const HRESULT result = ReadBuffer(pbBuffer, dwBytesToRead);
    if (SUCCEEDED(result) && pdwBytesRead) {
        *pdwBytesRead = dwBytesToRead;
    }
    return result;
}

HRESULT KVMPDStream::ReadAudio(BYTE* pbBuffer, DWORD dwBytesToRead, BOOL /*bAlign*/, DWORD* pdwBytesRead) {
    if (m_bStopNow.load()) {
        return E_FAIL;
    }
    const HRESULT result = ReadAudioBuffer(pbBuffer, dwBytesToRead);
    if (SUCCEEDED(result) && pdwBytesRead) {
        *pdwBytesRead = dwBytesToRead;
    }
    return result;
}

HRESULT KVMPDStream::Size(LONGLONG* pllStart, LONGLONG* pllEnd) {
    const CritSecLock buffer(m_csBuffer);
    *pllStart = m_videoBuffer.StartPos();
    *pllEnd = m_videoBuffer.EndPos();
    return S_OK;
}

HRESULT KVMPDStream::SizeAudio(LONGLONG* pllStart, LONGLONG* pllEnd) {
    const CritSecLock buffer(m_csBuffer);
    *pllStart = m_audioBuffer.StartPos();
    *pllEnd = m_audioBuffer.EndPos();
    return S_OK;
}

HRESULT KVMPDStream::Length(LONGLONG* pllTotal, LONGLONG* pllAvailable) {
    *pllTotal = kEndless;
    *pllAvailable = kEndless;
    return S_OK;
}

HRESULT KVMPDStream::Init(const std::wstring& url) {
    Log(4, L" KVMPDStream::Init : %s", url);
    const CritSecLock publication(m_pLoader->Publication());
    if (EqualsIgnoreCase(m_pLoader->GetUrl(), url)) {
        Log(3, L" KVMPDStream::Init skip load due to url is the same");
        return S_OK;
    }
    if (IsThreadRunning()) {
        const CritSecLock cache(m_csCache);
        const HRESULT loading = m_pLoader->Init(url, m_pSegmentQueue);
        if (SUCCEEDED(loading)) {
            releaseBuffer();
            resetSegmentCache(true);
        }
        return loading;
    }
    HRESULT result = m_pLoader->Init(url, m_pSegmentQueue);
    if (FAILED(result)) {
        Log(3, L"[Error] KVMPDStream::Init Failed to create thread to load playlist: 0x%08X", result);
        return result;
    }
    result = m_pDownloader->Init(m_pSegmentQueue);
    if (FAILED(result)) {
        Log(3, L"[Error] KVMPDStream::Init Failed to create thread to download segment: 0x%08X", result);
        return result;
    }
    result = CreateBuffer(kBufferBytes);
    if (FAILED(result)) {
        Log(3, L"[Error] KVMPDStream::Init Failed to create buffer: 0x%08X", result);
        return result;
    }
    StartThread();
    return S_OK;
}

std::wstring KVMPDStream::GetUrl() const {
    return m_pLoader ? m_pLoader->GetUrl() : std::wstring();
}

HRESULT KVMPDStream::CreateBuffer(DWORD size) {
    Log(4, L" KVMPDStream::CreateBuffer create %lld size", size);
    const CritSecLock buffer(m_csBuffer);
    if (!m_videoBuffer.HasRing()) {
        m_videoBuffer.Init(size);
    }
    if (!m_audioBuffer.HasRing()) {
        m_audioBuffer.Init(size);
    }
    // Says that the size was asked for, whatever the allocation gave: without rings every read is served from the
    // files.
    Log(4, L" KVMPDStream::CreateBuffer allocate audio buffer size %lld success", size);
    m_nBufferSize = static_cast<LONG>(size);
    SetEvent(m_hBufferEvent.get());
    return S_OK;
}

/// Not once the engine closes: the queue may then hold the end marker, without which the downloader never ends. What is
/// queued may still be downloaded, then, beside what the loader chooses anew; the cache takes none of it, because the
/// two together would be out of order.
void KVMPDStream::ClearDownloader() {
    if (m_bClosing.load()) {
        m_bCacheShut = true;
        return;
    }
    m_pDownloader->clear();
}

/// Empties everything between the loader and the reader; the loader chooses its start anew, at once.
void KVMPDStream::RestartLoading() {
    m_pLoader->resetStart();
    ClearDownloader();
    resetSegmentCache(true);
    releaseBuffer();
    // Without a manifest, which the reset has dropped, nothing else wakes a loader that sleeps without limit.
    m_pLoader->Wake();
}

void KVMPDStream::Run() {
    const CritSecLock publication(m_pLoader->Publication());
    // Before the look at the loader: a segment that is just being cached may find the filter paused and pause it.
    const CritSecLock cache(m_csCache);
    if (!m_pLoader->IsPaused()) {
        return;
    }
    m_pLoader->pauseParse(FALSE);
    RestartLoading();
    m_eventHandler.OnStreamDwordEvent(kEventPosition, 1, 0);
    Log(5, L" KVMPDStream::Run reset position by seek to 0");
}

void KVMPDStream::StopNow(BOOL bStop) {
    Log(3, L" KVMPDStream::StopNow : %d", bStop);
    m_bStopNow.store(bStop);
}

HRESULT KVMPDStream::SetMaxCacheTime(DWORD seconds) {
    Log(4, L" KVMPDStream::SetMaxCacheTime : %d", seconds);
    m_nMaxCacheTime.store(seconds * 1000);
    return S_OK;
}

void KVMPDStream::SetRenderComplete(BOOL flag) {
    // Nothing waits for the renderer; the line tells when the graph was built.
    Log(5, L" KVMPDStream::SetRenderComplete : %d", flag);
}

LONG KVMPDStream::SetPreferDelaySegment(DWORD count) {
    Log(3, L" KVMPDStream::SetPreferDelaySegment : %d", count);
    if (!m_pLoader->SetPreferDelaySegment(count)) {
        Log(3, L" KVMPDStream::SetPreferDelaySegment prefer delay does not change");
        m_eventHandler.OnStreamDwordEvent(kEventPosition, 0, 0);
        return 1;
    }
    // Only told: the loader moves the stream by itself when it next chooses a start.
    const LONGLONG target = GetSegmentIdByDelayCount(count);
    Log(5, L" KVMPDStream::SetPreferDelaySegment target segment is %lld", target);
    return 1;
}

/// The segment `count` places before the newest; 0 without a manifest.
LONGLONG KVMPDStream::GetSegmentIdByDelayCount(DWORD count) {
    const std::shared_ptr<const MPD> mpd = m_pLoader->CurrentMpd();
    if (!mpd || mpd->m_segmentDurations.empty()) {
        Log(4, L"[Error] KVMPDStream::GetSegmentIdByDelayCount GetSegmentRange failed");
        return 0;
    }
    return static_cast<LONGLONG>(static_cast<ULONGLONG>(LastSegmentNumber(*mpd)) - count);
}

void KVMPDStream::SetPreferQuality(DWORD height) {
    m_pLoader->SetPreferQuality(height);
}

LONG KVMPDStream::SetVideoQualityID(DWORD id) {
    if (!m_pLoader || !m_pDownloader) {
        Log(3, L" KVMPDStream::SetVideoQualityID  loader and downloader are already released");
        return 0;
    }
    Log(3, L" KVMPDStream::SetVideoQualityID : %d", id);
    const CritSecLock publication(m_pLoader->Publication());
    if (m_pLoader->TargetVideoQualityID() == id) {
        return 1;
    }
    const CritSecLock cache(m_csCache);
    m_pLoader->SetTargetVideoQualityID(id);
    releaseBuffer();
    resetSegmentCache(true);
    ClearDownloader();
    m_pLoader->resetStart();
    m_pLoader->Wake();
    return 1;
}

DWORD KVMPDStream::ManifestLength() const {
    const std::shared_ptr<const MPD> mpd = m_pLoader->CurrentMpd();
    return mpd ? mpd->m_totalDuration : 0;
}

LONG KVMPDStream::SetPosition(LONGLONG llPosition) {
    Log(4, L" KVMPDStream::SetPosition : %lld", llPosition);
    const CritSecLock publication(m_pLoader->Publication());
    const CritSecLock cache(m_csCache);
    const DWORD manifestLength = ManifestLength();
    return m_nCacheDuration > manifestLength ? SeekInCache(llPosition) : SeekInManifest(llPosition, manifestLength);
}

/// The cache reaches further back than the manifest: only what is cached can be reached.
LONG KVMPDStream::SeekInCache(LONGLONG llPosition) {
    const CritSecLock cache(m_csCache);
    if (llPosition < m_llCacheStart || llPosition > m_llCacheStart + m_nCacheDuration) {
        Log(6, L"[Error] KVMPDStream::SetPosition llPosition out of cache. start: %lld, size:%d", m_llCacheStart,
            m_nCacheDuration);
        return 0;
    }
    auto offset = static_cast<DWORD>(llPosition - m_llCacheStart);
    Log(6, L" KVMPDStream::SetPosition find %d position in cache", offset);
    for (const std::shared_ptr<Segment>& segment : m_cacheSegment) {
        const auto duration = static_cast<DWORD>(segment->m_duration);
        if (offset < duration) {
            return segment->m_segmentNumber > 0 ? SeekToTargetSegment(segment->m_segmentNumber) : 0;
        }
        offset -= duration;
    }
    return 0;
}

/// The manifest can be read again from an earlier segment on, or the cache holds it.
LONG KVMPDStream::SeekInManifest(LONGLONG llPosition, DWORD manifestLength) {
    Log(6, L" KVMPDStream::SetPosition mpd support seek. Length: %d", manifestLength);
    const DWORD loaderNow = m_pLoader->TotalQueuedDuration();
    DWORD reference = manifestLength;
    if (loaderNow <= manifestLength) {
        if (static_cast<LONGLONG>(manifestLength) <= llPosition) {
            return 0;
        }
        reference = loaderNow;
    }
    // 32 bits, as the delay has.
    const DWORD delay = reference - static_cast<DWORD>(static_cast<ULONGLONG>(llPosition));
    LONGLONG target = 0;
    if (!m_pLoader->SetPreferDelayTime(delay, target)) {
        return 1;
    }
    return SeekToTargetSegment(target);
}

HRESULT KVMPDStream::SetCacheFileFolder(const char* folder) {
    return m_pDownloader->SetCacheFileFolder(folder);
}

HRESULT KVMPDStream::SetCallback(IKVMPDCallback* callback) {
    const HRESULT result = m_eventHandler.SetCallback(callback);
    Log(4, L" KVMPDStream::SetCallback set callback: 0x%08X", result);
    return result;
}

/// Under the lock under which a restart looks at the flag and clears the downloader: every clear is over by now, or is
/// not made, and cannot take away the end marker that comes next.
void KVMPDStream::BeginClosing() {
    if (!m_pLoader) {
        m_bClosing.store(1);
        return;
    }
    const CritSecLock publication(m_pLoader->Publication());
    m_bClosing.store(1);
}

HRESULT KVMPDStream::CloseThread() {
    Log(4, L" KVMPDStream::CloseThread ");
    BeginClosing();
    SetEvent(m_hBufferEvent.get());
    SetEvent(m_hSegmentEvent.get());
    if (m_pLoader) {
        m_pLoader->CloseThread();
    }
    if (m_pDownloader) {
        m_pDownloader->CloseThread();
    }
    m_eventHandler.SetCallback(nullptr);
    return WorkerProcessor::CloseThread();
}

/// Whether the segment comes from the URL that is loaded now; one made by hand always does.
bool KVMPDStream::IsWanted(const Segment& segment) {
    return segment.m_generation == 0 || segment.m_generation == m_pLoader->Generation();
}

void KVMPDStream::OnSegmentFailed() {
    if (m_eventHandler.HasCallback()) {
        m_eventHandler.OnStreamDwordEvent(kEventDownloadFailed, 0, 0);
    }
}

}  // namespace kvmpd
