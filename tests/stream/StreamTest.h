// The ground on which the engine's tests stand: an engine with fakes around it, cache files made by hand, and a look at
// what the engine keeps to itself.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "stream/KVMPDStream.h"
#include "tests/stream/StreamFakes.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace kvmpd {

struct KVMPDStreamTestAccess {
    /// The cache and its counters at one moment.
    struct Cache {
        std::vector<LONGLONG> numbers;
        DWORD index = 0;
        LONGLONG firstId = 0;
        LONGLONG start = 0;
        DWORD duration = 0;
        LONGLONG videoStart = 0;
        LONGLONG videoEnd = 0;
        LONGLONG audioStart = 0;
        LONGLONG audioEnd = 0;
        bool seekPending = false;
        LONGLONG videoWritten = 0;
        LONGLONG audioWritten = 0;
    };
    static Cache Look(KVMPDStream& stream);
    static size_t CacheSize(KVMPDStream& stream) { return Look(stream).numbers.size(); }
    static DWORD CacheIndex(KVMPDStream& stream) { return Look(stream).index; }

    /// Says that the first `index` cached segments have been copied.
    static void SetCacheIndex(KVMPDStream& stream, DWORD index);
    static void SetWritten(KVMPDStream& stream, LONGLONG video, LONGLONG audio);

    static MpdLoader& Loader(KVMPDStream& stream) { return *stream.m_pLoader; }
    static SegmentDownloader& Downloader(KVMPDStream& stream) { return *stream.m_pDownloader; }
    static std::shared_ptr<SegmentQueue> Queue(KVMPDStream& stream) { return stream.m_pSegmentQueue; }
    static void ReleaseDownloader(KVMPDStream& stream) { stream.m_pDownloader.reset(); }
    static void ReleaseLoader(KVMPDStream& stream) { stream.m_pLoader.reset(); }

    static bool IsBufferEventSet(KVMPDStream& stream);
    static bool IsSegmentEventSet(KVMPDStream& stream);
    static void ResetBufferEvent(KVMPDStream& stream) { ResetEvent(stream.m_hBufferEvent.get()); }

    static CritSec& CacheLock(KVMPDStream& stream) { return stream.m_csCache; }
    static CritSec& BufferLock(KVMPDStream& stream) { return stream.m_csBuffer; }
    /// Whether one of the buffers holds the file of a failed read open.
    static bool HoldsFailedFile(KVMPDStream& stream);
    static LONG BufferSize(KVMPDStream& stream);
    static DWORD MaxCacheTime(KVMPDStream& stream) { return stream.m_nMaxCacheTime; }
    static bool IsClosing(KVMPDStream& stream) { return stream.m_bClosing != 0; }
    static void SetClosing(KVMPDStream& stream) { stream.m_bClosing = 1; }
    static void WaitForReader(KVMPDStream& stream);
    static LONGLONG SegmentIdByDelayCount(KVMPDStream& stream, DWORD count) {
        return stream.GetSegmentIdByDelayCount(count);
    }
    static DWORD ReadFileRange(KVMPDStream& stream, const std::wstring& file, LONGLONG offset, BYTE* buffer,
                               DWORD length) {
        return stream.WriteBinaryFromFile(file, offset, buffer, length);
    }
    static void TellSegmentFailed(KVMPDStream& stream) { stream.OnSegmentFailed(); }
    static LONGLONG VideoPointer(KVMPDStream& stream) { return stream.m_llVideoPosition; }
    static LONGLONG AudioPointer(KVMPDStream& stream) { return stream.m_llAudioPosition; }
};

namespace test {

/// How long a thread that is to stay where it is is watched.
inline constexpr std::chrono::milliseconds kGrace{50};

class StreamTest : public testing::Test {
  protected:
    using Access = KVMPDStreamTestAccess;

    StreamTest();
    ~StreamTest() override;

    KVMPDStream& Stream() { return *m_stream; }
    MpdLoader& Loader() { return Access::Loader(*m_stream); }
    Access::Cache Cache() { return Access::Look(*m_stream); }

    /// A segment with cache files of `videoSize` and `audioSize` media bytes (none for 0).
    std::shared_ptr<Segment> MakeSegment(LONGLONG number, LONG duration, LONGLONG videoSize, LONGLONG audioSize);
    /// A segment that only counts: sizes, but no files.
    static std::shared_ptr<Segment> CountingSegment(LONGLONG number, LONG duration, LONGLONG videoSize = 0,
                                                    LONGLONG audioSize = 0);
    void Push(std::shared_ptr<Segment> segment) { m_stream->PushSegmentToCache(std::move(segment)); }
    /// Pushes `count` segments, from `first` on, each as given.
    void PushSegments(LONGLONG first, int count, LONG duration, LONGLONG videoSize, LONGLONG audioSize);
    void PushCounting(LONGLONG first, int count, LONG duration, LONGLONG videoSize = 0, LONGLONG audioSize = 0);

    /// Makes `manifest` the loader's current one; the loader's thread has ended when this returns.
    void Publish(MPD manifest);
    void Publish(LONGLONG firstNumber, size_t count, DWORD duration) {
        Publish(MakeManifest(firstNumber, count, duration));
    }

    /// Registers the host.
    void ListenAsHost();
    /// What the host has heard of all that was sent before this call.
    std::vector<std::string> Heard();

    /// For loops in which log lines would only cost time.
    static void SetLogsOff();
    /// `action`, which can be repeated, logs a line that begins with `text` at verbosity `level` and not below.
    void ExpectLevel(LONG level, const std::string& text, const std::function<void()>& action);

    /// Reads `length` bytes of the video or audio stream as the pin does.
    HRESULT ReadAt(bool isVideo, LONGLONG position, DWORD length, std::vector<BYTE>& bytes);
    HRESULT ReadVideo(LONGLONG position, DWORD length);
    HRESULT ReadAudio(LONGLONG position, DWORD length);
    /// What the last ReadVideo or ReadAudio delivered.
    const std::vector<BYTE>& Bytes() const { return m_bytes; }

    /// As an application does: the cache folder, a manifest of `count` segments, and Init.
    void Start(LONGLONG firstNumber, size_t count, DWORD duration);

    LogCapture m_log{6};
    TempDir m_dir;
    const std::shared_ptr<ManifestScript> m_manifests = std::make_shared<ManifestScript>();
    const std::shared_ptr<MediaScript> m_media = std::make_shared<MediaScript>();
    FakeFilter m_filter;
    RecordingHost m_host;
    std::unique_ptr<KVMPDStream> m_stream;

  private:
    std::vector<BYTE> m_bytes;
    DWORD m_sentinel = 1000;
};

/// The end of one concatenation after another: `count` segments of `size` bytes, from number `first` on.
std::vector<BYTE> Concatenation(LONGLONG first, int count, bool isVideo, size_t size);
/// `count` bytes of `bytes` from `begin` on.
std::vector<BYTE> Slice(const std::vector<BYTE>& bytes, size_t begin, size_t count);

}  // namespace test
}  // namespace kvmpd
