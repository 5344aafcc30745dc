#include "tests/system/LiveSession.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "common/Text.h"
#include "stream/CAsyncStream.h"
#include "tests/support/TestSource.h"

namespace kvmpd::test {
TestOrigin::TestOrigin(const OriginShape& shape) {
    origin::PatternOptions pattern;
    pattern.size = [bytes = shape.videoBytes](int id, const origin::SegmentTime& segment) {
        const size_t size = bytes + static_cast<size_t>(segment.number);
        return id == kAudioId ? size / 10 : size;
    };
    m_media = std::make_shared<origin::PatternMedia>(pattern);
    origin::OriginOptions options;
    options.timeline.startNumber = shape.startNumber;
    options.timeline.durationsMs = {shape.durationMs};
    options.timeline.windowSegments = shape.windowSegments;
    options.graceSegments = 1000;  // a test moves the timeline faster than a downloader follows
    m_live = std::make_unique<origin::LiveOrigin>(options, m_media);
    m_live->Advance(shape.published);
    m_live->Start();
}

std::string TestOrigin::Segment(int representation, std::int64_t number) const {
    origin::SegmentTime segment;
    segment.number = number;
    return origin::PatternMedia::Range(representation, number, 0, m_media->Size(representation, segment));
}

LiveSession::LiveSession(ComPtr<IBaseFilter> filter, const Connect& connect) : m_filter(std::move(filter)) {
    Require(m_filter->QueryInterface(IID_IKVMPDSource, m_control.putVoid()), "control interface");

    ComPtr<IEnumPins> pins;
    Require(m_filter->EnumPins(pins.put()), "pins");
    ULONG fetched = 0;
    Require(pins->Next(1, m_output.put(), &fetched), "output pin");
    m_sink = ComPtr<PullSink>(new PullSink);
    Require(connect(*m_output.get(), *m_sink.get()), "connection");

    Require(m_control->SetCallback(&m_events), "callback");
    std::string folder = m_folder.Path().string();
    Require(m_control->Backdoor(kBackdoorCacheFolder, folder.data()), "cache folder");
}

LiveSession::~LiveSession() {
    Release();
}

void LiveSession::Release() {
    if (m_output) {
        m_sink->Input().Disconnect();
        m_output->Disconnect();
    }
    m_sink.Reset();
    m_output.Reset();
    m_control.Reset();
    m_filter.Reset();
}

void LiveSession::Load(const std::string& url) {
    ComPtr<IFileSourceFilter> source;
    Require(m_filter->QueryInterface(IID_IFileSourceFilter, source.putVoid()), "file source");
    Require(source->Load(Utf8ToWide(url).c_str(), nullptr), "load");
}

void LiveSession::FetchManifestNow() {
    m_delaySegments = m_delaySegments == 1000 ? 1001 : 1000;
    Set(kBackdoorPreferDelaySegments, m_delaySegments);
}

HRESULT LiveSession::Read(LONGLONG position, std::string& bytes) {
    return Reader().SyncRead(position, static_cast<LONG>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data()));
}

HRESULT LiveSession::ReadResult(LONGLONG position, size_t length) {
    std::string bytes(length, '\0');
    return Read(position, bytes);
}

std::string LiveSession::ReadVideo(LONGLONG position, size_t length) {
    std::string bytes(length, '\0');
    return Read(position, bytes) == S_OK ? bytes : std::string();
}

std::string LiveSession::ReadAudio(LONGLONG position, size_t length) {
    return ReadVideo(AUDIO_POSITION_BASE + position, length);
}

void LiveSession::ExpectVideo(LONGLONG position, const std::string& expected) {
    ExpectBytes(position, expected);
}

void LiveSession::ExpectAudio(LONGLONG position, const std::string& expected) {
    ExpectBytes(AUDIO_POSITION_BASE + position, expected);
}

void LiveSession::ExpectBytes(LONGLONG position, const std::string& expected) {
    std::string got(expected.size(), '\0');
    const HRESULT result = Read(position, got);
    if (result != S_OK) {
        ADD_FAILURE() << "a read of " << expected.size() << " bytes at " << position << " ended with result 0x"
                      << std::hex << static_cast<unsigned>(result);
    } else if (got != expected) {
        const auto place = std::ranges::mismatch(got, expected).in1 - got.begin();
        ADD_FAILURE() << expected.size() << " bytes at " << position << " differ from byte " << place << " on";
    }
}

void LiveSession::ExpectStream(LONGLONG base, const std::string& expected) {
    constexpr size_t kPiece = 17'389;  // divides no segment
    for (size_t at = 0; at < expected.size() && !testing::Test::HasFailure(); at += kPiece) {
        ExpectBytes(base + static_cast<LONGLONG>(at), expected.substr(at, kPiece));
    }
}

void LiveSession::ExpectSegments(const TestOrigin& origin, int video, std::int64_t first, std::int64_t last) {
    std::string videoBytes;
    std::string audioBytes;
    for (std::int64_t number = first; number <= last; ++number) {
        videoBytes += origin.Segment(video, number);
        audioBytes += origin.Segment(kAudioId, number);
    }
    ExpectStream(0, videoBytes);
    ExpectStream(AUDIO_POSITION_BASE, audioBytes);
}

}  // namespace kvmpd::test
