#pragma once

#include <functional>
#include <memory>
#include <string>

#include "filter/KVMPDSrc.h"
#include "origin/LiveOrigin.h"
#include "origin/PatternMedia.h"
#include "tests/support/TempDir.h"
#include "tests/system/EventLog.h"
#include "tests/system/PullSink.h"

namespace kvmpd::test {

inline constexpr int kAudioId = 1;
inline constexpr int kVideoId = 720;
inline constexpr int kHighVideoId = 1080;

struct OriginShape {
    std::int64_t startNumber = 100;
    size_t windowSegments = 0;  // 0: the list grows
    size_t published = 10;
    std::uint32_t durationMs = 2000;
    /// Bytes of a video segment are this plus the segment's number, those of an audio segment a tenth: no two alike.
    size_t videoBytes = 40'000;
};

/// An origin whose segments are recomputable bytes; its timeline moves when the test says so.
class TestOrigin {
  public:
    explicit TestOrigin(const OriginShape& shape = {});

    std::string Segment(int representation, std::int64_t number) const;
    origin::LiveOrigin& Live() { return *m_live; }
    std::string Url(const std::string& name = "live") const { return m_live->ManifestUrl(name); }

  private:
    std::shared_ptr<origin::PatternMedia> m_media;
    std::unique_ptr<origin::LiveOrigin> m_live;
};

/// One source filter made by class id, connected to a sink, with its host's callback: what a player is to the
/// component.
class LiveSession {
  public:
    /// A filter from the module that the test is linked with, its pin connected directly.
    LiveSession();
    /// `filter` is the source filter; `connect` connects its output pin with the sink's input pin, in a graph or
    /// without.
    using Connect = std::function<HRESULT(IPin& output, PullSink& sink)>;
    LiveSession(ComPtr<IBaseFilter> filter, const Connect& connect);
    ~LiveSession();
    LiveSession(const LiveSession&) = delete;
    LiveSession& operator=(const LiveSession&) = delete;

    EventLog& Events() { return m_events; }
    IKVMPDSource& Control() { return *m_control; }
    IBaseFilter& Filter() { return *m_filter; }
    IAsyncReader& Reader() { return *m_sink->Input().Reader(); }
    const TempDir& CacheFolder() const { return m_folder; }

    void Load(const std::string& url);
    HRESULT Set(DWORD backdoor, DWORD value) { return m_control->Backdoor(backdoor, &value); }
    HRESULT Seek(LONGLONG milliseconds) { return m_control->Backdoor(kBackdoorPosition, &milliseconds); }

    /// Makes the loader fetch the manifest now instead of at its next due time (a changed preferred delay wakes it; a
    /// stream that plays is not moved by it).
    void FetchManifestNow();

    /// Releases everything; the events stay.
    void Release();

    std::string ReadVideo(LONGLONG position, size_t length);
    std::string ReadAudio(LONGLONG position, size_t length);
    /// Expect exactly these bytes; a difference is reported by its place, not by printing megabytes.
    void ExpectVideo(LONGLONG position, const std::string& expected);
    void ExpectAudio(LONGLONG position, const std::string& expected);
    /// The result of a read that cannot be served.
    HRESULT ReadResult(LONGLONG position, size_t length);
    /// Expects that the video and the audio stream hold exactly the segments `first` to `last` from byte 0 on, read in
    /// pieces that cross segment boundaries.
    void ExpectSegments(const TestOrigin& origin, int video, std::int64_t first, std::int64_t last);

    /// Waits until the downloader has handed on every segment that the loader has queued, so that nothing is under way.
    bool WaitUntilIdle() {
        return m_events.WaitForRange([](const EventLog::Range& r) { return r.total > 0 && r.buffered == r.total; });
    }

  private:
    HRESULT Read(LONGLONG position, std::string& bytes);
    void ExpectBytes(LONGLONG position, const std::string& expected);
    void ExpectStream(LONGLONG base, const std::string& expected);

    TempDir m_folder;
    EventLog m_events;
    ComPtr<IBaseFilter> m_filter;
    ComPtr<IKVMPDSource> m_control;
    ComPtr<IPin> m_output;
    ComPtr<PullSink> m_sink;
    DWORD m_delaySegments = 0;
};

}  // namespace kvmpd::test
