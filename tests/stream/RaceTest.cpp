// Everything at once: control operations against the loader's cycles, the downloader's hand-over, the feed and a
// reader. What must hold at every moment: the counters agree with the cache, and every byte read is a byte of the
// stream. That the test ends shows that no two of them wait for each other.
#include <algorithm>
#include <random>

#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

constexpr LONGLONG kVideoSize = 1000;
constexpr LONGLONG kAudioSize = 100;
constexpr DWORD kDuration = 1000;
constexpr LONGLONG kFirst = 100;
constexpr size_t kTimeline = 10;

class Race : public StreamTest {
  protected:
    Race() {
        SetLogsOff();
        Stream().SetFilter(&m_filter);
        Stream().CreateBuffer(2500);
        m_media->SetSizes(kVideoSize, kAudioSize);
    }

    void ExpectConsistent() {
        const Access::Cache cache = Cache();
        const auto count = static_cast<LONGLONG>(cache.numbers.size());
        EXPECT_EQ(cache.duration, count * kDuration);
        EXPECT_EQ(cache.videoEnd - cache.videoStart, count * kVideoSize);
        EXPECT_EQ(cache.audioEnd - cache.audioStart, count * kAudioSize);
        EXPECT_LE(cache.index, cache.numbers.size());
        EXPECT_TRUE(std::is_sorted(cache.numbers.begin(), cache.numbers.end()));
        EXPECT_EQ(std::adjacent_find(cache.numbers.begin(), cache.numbers.end()), cache.numbers.end());
    }

    /// Whether `bytes`, read at `position` inside of one segment, are that range of one segment. Which one depends on
    /// what the control operations do meanwhile.
    bool AreOfSomeSegment(const std::vector<BYTE>& bytes, bool isVideo, LONGLONG position) const {
        const LONGLONG size = isVideo ? kVideoSize : kAudioSize;
        const auto offset = static_cast<size_t>((position % size + size) % size);
        for (LONGLONG number = kFirst; number < m_newest + 1; ++number) {
            size_t same = 0;
            while (same < bytes.size() && bytes[same] == MediaByte(number, isVideo, offset + same)) {
                ++same;
            }
            if (same == bytes.size()) {
                return true;
            }
        }
        return false;
    }

    void Control(unsigned seed) {
        std::mt19937 random(seed);
        for (int i = 0; i < kSteps; ++i) {
            const auto number = kFirst + static_cast<LONGLONG>(random() % 40);
            switch (random() % 16) {
                case 0:
                    Loader().pauseParse(1);
                    Stream().Run();
                    break;
                case 1:
                    Stream().SetVideoQualityID(static_cast<DWORD>(1 + random() % 2));
                    break;
                case 2:
                    Stream().SetPosition(static_cast<LONGLONG>(random() % 20000) - 10000);
                    break;
                case 3:
                    Stream().SeekToTargetSegment(number);
                    break;
                case 4:
                    Stream().SetPreferDelaySegment(static_cast<DWORD>(random() % 10));
                    break;
                case 5:
                    Stream().Init(random() % 2 ? L"http://origin/one.mpd" : L"http://origin/two.mpd");
                    break;
                case 6:
                    Stream().SetMaxCacheTime(static_cast<DWORD>(1 + random() % 20));
                    break;
                case 7:
                    m_filter.state = random() % 4 == 0 ? State_Paused : State_Running;
                    break;
                default:
                    Stream().UpdateCacheSegmentInfo();
                    Stream().IsSegmentInCache(number);
                    break;
            }
            ExpectConsistent();
        }
    }

    void MoveTheLiveEdge() {
        for (int i = 0; i < kSteps / 4; ++i) {
            m_newest = kFirst + i + static_cast<LONGLONG>(kTimeline);
            m_manifests->Set(MakeManifest(kFirst + i, kTimeline, kDuration));
            Loader().Wake();
            m_manifests->gate.WaitForArrivals(1);
            std::this_thread::yield();
        }
    }

    void ReadUntilDone(const std::atomic<bool>& done) {
        std::mt19937 random(7);
        std::vector<BYTE> bytes;
        while (!done) {
            const bool isVideo = random() % 2 == 0;
            const LONGLONG size = isVideo ? kVideoSize : kAudioSize;
            const LONGLONG position =
                (static_cast<LONGLONG>(random() % 12) - 2) * size + static_cast<LONGLONG>(random() % 80);
            if (ReadAt(isVideo, position, 20, bytes) == S_OK) {
                EXPECT_TRUE(AreOfSomeSegment(bytes, isVideo, position)) << isVideo << " " << position;
                m_served.Pass();
            }
        }
    }

    static constexpr int kSteps = 400;
    Gate m_served;
    std::atomic<LONGLONG> m_newest{kFirst + static_cast<LONGLONG>(kTimeline)};
};

TEST_F(Race, ControlOperationsAgainstLoaderDownloaderFeedAndReader) {
    ListenAsHost();
    Start(kFirst, kTimeline, kDuration);
    std::atomic<bool> done{false};
    std::thread reader([&] { ReadUntilDone(done); });
    m_served.WaitForArrivals(100);  // the stream plays
    std::thread liveEdge([&] { MoveTheLiveEdge(); });
    std::thread control([&] { Control(1); });
    Control(2);
    control.join();
    liveEdge.join();
    Stream().CloseThread();
    done = true;
    reader.join();
    ExpectConsistent();
    m_stream.reset();
    EXPECT_TRUE(std::filesystem::is_empty(m_dir.Path()));
}

TEST_F(Race, ACloseInTheMiddleOfControlOperations) {
    for (unsigned i = 0; i < 5; ++i) {
        m_stream = std::make_unique<KVMPDStream>(std::make_unique<ScriptedManifests>(m_manifests),
                                                 std::make_unique<ScriptedHttp>(m_media));
        Stream().StopNow(0);
        Stream().SetFilter(&m_filter);
        Stream().CreateBuffer(2500);
        ListenAsHost();
        Start(kFirst, kTimeline, kDuration);
        std::atomic<bool> done{false};
        std::thread reader([&] { ReadUntilDone(done); });
        std::thread control([&] { Control(10 + i); });
        Stream().CloseThread();
        control.join();
        done = true;
        reader.join();
        m_stream.reset();
    }
}

/// A host that steers the stream from inside its callback.
class SteeringHost final : public IKVMPDCallback {
  public:
    explicit SteeringHost(KVMPDStream& stream) : m_stream(stream) {}

    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD, void*, void*) override {
        m_stream.SetPosition(0);
        m_stream.Run();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG, LONGLONG, LONGLONG) override {
        m_stream.SetPreferDelaySegment(static_cast<DWORD>(m_calls % 5));
        m_stream.SetVideoQualityID(static_cast<DWORD>(m_calls / 10 % 2));
        ++m_calls;
        m_called.Pass();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    void WaitForCalls(int count) { m_called.WaitForArrivals(count); }

  private:
    KVMPDStream& m_stream;
    int m_calls = 0;
    Gate m_called;
};

TEST_F(Race, AHostMaySteerFromInsideItsCallback) {
    SteeringHost host(Stream());
    EXPECT_EQ(Stream().SetCallback(&host), S_OK);
    Start(kFirst, kTimeline, kDuration);
    std::thread liveEdge([&] { MoveTheLiveEdge(); });
    host.WaitForCalls(1);
    liveEdge.join();
    Stream().CloseThread();
}

}  // namespace
}  // namespace kvmpd::test
