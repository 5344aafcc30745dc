#include "tests/stream/StreamTest.h"

#include <fstream>

#include "common/Log.h"
#include "common/Text.h"
#include "tests/stream/RingTestAccess.h"

namespace kvmpd {

KVMPDStreamTestAccess::Cache KVMPDStreamTestAccess::Look(KVMPDStream& stream) {
    const CritSecLock cacheLock(stream.m_csCache);
    const CritSecLock bufferLock(stream.m_csBuffer);
    Cache cache;
    for (const std::shared_ptr<Segment>& segment : stream.m_cacheSegment) {
        cache.numbers.push_back(segment->m_segmentNumber);
    }
    cache.index = stream.m_nCacheIndex;
    cache.firstId = stream.m_llFirstSegmentId;
    cache.start = stream.m_llCacheStart;
    cache.duration = stream.m_nCacheDuration;
    cache.videoStart = stream.m_llVideoStartByte;
    cache.videoEnd = stream.m_llVideoEndByte;
    cache.audioStart = stream.m_llAudioStartByte;
    cache.audioEnd = stream.m_llAudioEndByte;
    cache.seekPending = stream.m_bSeekPending;
    cache.videoWritten = stream.m_llVideoWritten;
    cache.audioWritten = stream.m_llAudioWritten;
    return cache;
}

void KVMPDStreamTestAccess::SetCacheIndex(KVMPDStream& stream, DWORD index) {
    const CritSecLock cacheLock(stream.m_csCache);
    stream.m_nCacheIndex = index;
}

void KVMPDStreamTestAccess::SetWritten(KVMPDStream& stream, LONGLONG video, LONGLONG audio) {
    const CritSecLock bufferLock(stream.m_csBuffer);
    stream.m_llVideoWritten = video;
    stream.m_llAudioWritten = audio;
}

bool KVMPDStreamTestAccess::IsBufferEventSet(KVMPDStream& stream) {
    return WaitForSingleObject(stream.m_hBufferEvent.get(), 0) == WAIT_OBJECT_0;
}

bool KVMPDStreamTestAccess::IsSegmentEventSet(KVMPDStream& stream) {
    return WaitForSingleObject(stream.m_hSegmentEvent.get(), 0) == WAIT_OBJECT_0;
}

bool KVMPDStreamTestAccess::HoldsFailedFile(KVMPDStream& stream) {
    const CritSecLock bufferLock(stream.m_csBuffer);
    return BufferHandlerTestAccess::HoldsFailedFile(stream.m_videoBuffer) ||
           BufferHandlerTestAccess::HoldsFailedFile(stream.m_audioBuffer);
}

LONG KVMPDStreamTestAccess::BufferSize(KVMPDStream& stream) {
    const CritSecLock bufferLock(stream.m_csBuffer);
    return stream.m_nBufferSize;
}

void KVMPDStreamTestAccess::WaitForReader(KVMPDStream& stream) {
    const CritSecLock bufferLock(stream.m_csBuffer);
    stream.WaitForReader();
}

namespace test {

StreamTest::StreamTest()
    : m_stream(std::make_unique<KVMPDStream>(std::make_unique<ScriptedManifests>(m_manifests),
                                             std::make_unique<ScriptedHttp>(m_media))) {
    m_stream->StopNow(0);  // as a load does
}

StreamTest::~StreamTest() {
    m_manifests->gate.Open();
    m_media->gate.Open();
}

std::shared_ptr<Segment> StreamTest::MakeSegment(LONGLONG number, LONG duration, LONGLONG videoSize,
                                                 LONGLONG audioSize) {
    std::shared_ptr<Segment> segment = CountingSegment(number, duration, videoSize, audioSize);
    const auto write = [&](const char* extension, bool isVideo, LONGLONG size) {
        const std::filesystem::path path = m_dir.Path() / (std::to_string(number) + extension);
        if (size > 0) {
            const std::vector<BYTE> bytes = MediaBytes(number, isVideo, static_cast<size_t>(size));
            std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        }
        return Utf8ToWide(path.string());
    };
    segment->m_videoFile = write(".mp4", true, videoSize);
    segment->m_audioFile = write(".m4a", false, audioSize);
    return segment;
}

std::shared_ptr<Segment> StreamTest::CountingSegment(LONGLONG number, LONG duration, LONGLONG videoSize,
                                                     LONGLONG audioSize) {
    auto segment = std::make_shared<Segment>();
    segment->m_segmentNumber = number;
    segment->m_duration = duration;
    segment->m_videoSize = videoSize;
    segment->m_audioSize = audioSize;
    return segment;
}

void StreamTest::PushSegments(LONGLONG first, int count, LONG duration, LONGLONG videoSize, LONGLONG audioSize) {
    for (int i = 0; i < count; ++i) {
        Push(MakeSegment(first + i, duration, videoSize, audioSize));
    }
}

void StreamTest::PushCounting(LONGLONG first, int count, LONG duration, LONGLONG videoSize, LONGLONG audioSize) {
    for (int i = 0; i < count; ++i) {
        Push(CountingSegment(first + i, duration, videoSize, audioSize));
    }
}

void StreamTest::Publish(MPD manifest) {
    m_manifests->Set(std::move(manifest));
    const size_t reports = m_log.CountPrefix(" KVMPDStream::UpdateCacheSegmentInfo");
    EXPECT_EQ(Loader().Init(L"http://origin/live.mpd", Access::Queue(Stream())), S_OK);
    EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::UpdateCacheSegmentInfo", reports + 1));
    Loader().CloseThread();
    m_log.Clear();
}

void StreamTest::ListenAsHost() {
    EXPECT_EQ(m_stream->SetCallback(&m_host), S_OK);
}

std::vector<std::string> StreamTest::Heard() {
    const DWORD sentinel = m_sentinel++;
    const std::string text = std::to_string(sentinel) + "(0,0)";
    m_stream->EventHandler().OnStreamDwordEvent(sentinel, 0, 0);
    m_host.WaitFor(text);
    std::vector<std::string> heard = m_host.Heard();
    heard.pop_back();
    m_host.Forget();
    return heard;
}

void StreamTest::SetLogsOff() {
    LogTestHooks::SetLevel(0);
}

void StreamTest::ExpectLevel(LONG level, const std::string& text, const std::function<void()>& action) {
    LogTestHooks::SetLevel(level - 1);
    m_log.Clear();
    action();
    EXPECT_EQ(m_log.CountPrefix(text), 0u) << text;
    LogTestHooks::SetLevel(level);
    action();
    EXPECT_NE(m_log.CountPrefix(text), 0u) << text;
    LogTestHooks::SetLevel(6);
}

HRESULT StreamTest::ReadAt(bool isVideo, LONGLONG position, DWORD length, std::vector<BYTE>& bytes) {
    bytes.assign(length, 0);
    DWORD count = 0;
    m_stream->Lock();
    HRESULT result = S_OK;
    if (isVideo) {
        m_stream->SetPointer(position);
        result = m_stream->Read(bytes.data(), length, FALSE, &count);
    } else {
        m_stream->SetAudioPointer(position);
        result = m_stream->ReadAudio(bytes.data(), length, FALSE, &count);
    }
    m_stream->Unlock();
    EXPECT_EQ(count, FAILED(result) ? 0 : length);
    return result;
}

HRESULT StreamTest::ReadVideo(LONGLONG position, DWORD length) {
    return ReadAt(true, position, length, m_bytes);
}

HRESULT StreamTest::ReadAudio(LONGLONG position, DWORD length) {
    return ReadAt(false, position, length, m_bytes);
}

void StreamTest::Start(LONGLONG firstNumber, size_t count, DWORD duration) {
    EXPECT_EQ(m_stream->SetCacheFileFolder(m_dir.Path().string().c_str()), S_OK);
    m_manifests->Set(MakeManifest(firstNumber, count, duration));
    EXPECT_EQ(m_stream->Init(L"http://origin/live.mpd"), S_OK);
}

std::vector<BYTE> Concatenation(LONGLONG first, int count, bool isVideo, size_t size) {
    std::vector<BYTE> all;
    for (int i = 0; i < count; ++i) {
        const std::vector<BYTE> bytes = MediaBytes(first + i, isVideo, size);
        all.insert(all.end(), bytes.begin(), bytes.end());
    }
    return all;
}

std::vector<BYTE> Slice(const std::vector<BYTE>& bytes, size_t begin, size_t count) {
    const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(begin);
    return {from, from + static_cast<std::ptrdiff_t>(count)};
}

}  // namespace test
}  // namespace kvmpd
