// Control operations that arrive in the middle of a cycle.
#include <atomic>
#include <thread>

#include "tests/manifest/LoaderHarness.h"

namespace kvmpd::test {
namespace {

using MpdLoaderMidFetch = MpdLoaderTest;

TEST_F(MpdLoaderMidFetch, ResetLeadsToAFreshStart) {
    Init();
    News(LiveManifest(100, 10));
    NextFetch();
    m_loader->SetPreferDelaySegment(2);
    m_loader->resetStart();
    m_queue->clear();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{107, 108, 109}));
    EXPECT_EQ(m_loader->TotalQueuedDuration(), 3 * kTenMinutes);
    EXPECT_EQ(m_log.Count(" MpdLoader::CallbackQuality "), 2u);
}

TEST_F(MpdLoaderMidFetch, ResetOfAFirstFetchLeadsToOneStart) {
    Init();
    m_script.Await();
    m_loader->resetStart();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{109});
    EXPECT_EQ(m_script.Count(), 1);
}

TEST_F(MpdLoaderMidFetch, PreferenceIsUsedByTheStartThatFollows) {
    Init();
    m_script.Await();
    m_loader->SetPreferSegmentID(105);
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers().front(), 104);
}

TEST_F(MpdLoaderMidFetch, QualityIsUsedByTheCycleThatFollows) {
    Init();
    News(LiveManifest(100, 2));
    NextFetch();
    m_loader->SetTargetVideoQualityID(12);
    News(LiveManifest(100, 3));
    EXPECT_EQ(TakeQueued().back()->m_videoUrl, "v1080/102.m4s");
}

TEST_F(MpdLoaderMidFetch, PauseDropsTheManifest) {
    Init();
    m_script.Await();
    m_loader->pauseParse(1);
    m_script.Give({.mpd = LiveManifest(100, 3)});
    ASSERT_TRUE(m_log.WaitForPrefix(kSkipped));
    m_loader->CloseThread();
    EXPECT_EQ(m_loader->CurrentMpd(), nullptr);
    EXPECT_EQ(TakeQueuedNumbers(), Numbers());
    EXPECT_TRUE(m_log.Contains(" MpdLoader::ThreadProc parse MPD finish. result: 0x00000000, segment count: 3"));
}

TEST_F(MpdLoaderMidFetch, PauseHidesAFailure) {
    Init();
    m_script.Await();
    m_loader->pauseParse(1);
    m_script.Give({.result = E_FAIL});
    ASSERT_TRUE(m_log.WaitForPrefix(kSkipped));
    m_loader->CloseThread();
    EXPECT_EQ(m_log.CountPrefix(kFailed), 0u);
}

TEST_F(MpdLoaderMidFetch, AnotherUrlDropsTheOldManifestAndFetchesAtOnce) {
    Init(L"http://origin/old.mpd");
    EXPECT_EQ(m_script.Await(), L"http://origin/old.mpd");
    Init(L"http://origin/new.mpd");
    m_script.Give({.mpd = LiveManifest(100, 3)});
    ASSERT_TRUE(m_log.WaitForPrefix(kWoken));
    EXPECT_EQ(m_script.Await(), L"http://origin/new.mpd");
    EXPECT_EQ(m_loader->CurrentMpd(), nullptr);
    News(LiveManifest(500, 3));
    const auto queued = TakeQueued();
    ASSERT_EQ(queued.size(), 1u);
    EXPECT_EQ(queued[0]->m_segmentNumber, 502);
    EXPECT_EQ(queued[0]->m_generation, 2u);
    EXPECT_EQ(m_owner.Updates(), 1);
    EXPECT_EQ(m_log.Count(" MpdLoader::CallbackQuality "), 1u);
}

TEST_F(MpdLoaderMidFetch, AnotherUrlHidesTheFailureOfTheOldOne) {
    Init(L"http://origin/old.mpd");
    m_script.Await();
    Init(L"http://origin/new.mpd");
    m_script.Give({.result = E_UNEXPECTED});
    ASSERT_TRUE(m_log.WaitForPrefix(kWoken));
    EXPECT_EQ(m_script.Await(), L"http://origin/new.mpd");
    News(LiveManifest(500, 3));
    EXPECT_EQ(m_log.CountPrefix(kFailed), 0u);
    EXPECT_EQ(m_host.Await(3).size(), 3u);
}

TEST_F(MpdLoaderMidFetch, AnotherUrlHidesAnExceptionFromTheOldOne) {
    Init(L"http://origin/old.mpd");
    m_script.Await();
    Init(L"http://origin/new.mpd");
    m_script.Give({.before = [] { throw std::bad_alloc(); }});
    ASSERT_TRUE(m_log.WaitForPrefix(kWoken));
    EXPECT_EQ(m_script.Await(), L"http://origin/new.mpd");
    EXPECT_EQ(m_log.CountPrefix(kFailed), 0u);
}

TEST_F(MpdLoaderMidFetch, AnotherUrlAndBackDropsTheOldManifest) {
    Init(L"http://origin/a.mpd");
    m_script.Await();
    Init(L"http://origin/b.mpd");
    Init(L"http://origin/a.mpd");
    m_script.Give({.mpd = LiveManifest(100, 3)});
    ASSERT_TRUE(m_log.WaitForPrefix(kWoken));
    EXPECT_EQ(m_script.Await(), L"http://origin/a.mpd");
    EXPECT_EQ(TakeQueuedNumbers(), Numbers());
}

TEST_F(MpdLoaderMidFetch, WakeLeadsToAnotherCycleAtOnce) {
    Init();
    m_script.Await();
    m_loader->Wake();
    News(LiveManifest(100, 3));
    m_script.Await();
    EXPECT_EQ(m_script.Count(), 2);
}

TEST_F(MpdLoaderMidFetch, CompoundOfTheOwnerIsOneStep) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    {
        CritSecLock publication(m_loader->Publication());
        m_script.Give({.mpd = LiveManifest(100, 4)});
        // The cycle now comes to the point where it applies, and no further.
        ASSERT_TRUE(m_log.WaitForPrefix(" MpdLoader::ThreadProc parse MPD finish. result:", 2));
        m_loader->SetTargetVideoQualityID(12);
        m_loader->resetStart();
        m_queue->clear();
        EXPECT_EQ(m_loader->LastSegment(), 0);
    }
    ASSERT_TRUE(m_owner.AwaitUpdates(2));
    const auto queued = TakeQueued();
    ASSERT_EQ(queued.size(), 1u);
    EXPECT_EQ(queued[0]->m_segmentNumber, 103);
    EXPECT_EQ(queued[0]->m_videoUrl, "v1080/103.m4s");
}

/// Manifests without end: a window of five segments that moves on by one with each fetch, and now and then a failure.
class EndlessSource : public ManifestSource {
  public:
    HRESULT parse(std::wstring, std::shared_ptr<MPD> mpd) override {
        if (++m_fetches % 7 == 0) {
            return E_FAIL;
        }
        *mpd = LiveManifest(1000 + m_fetches, 5);
        return S_OK;
    }

  private:
    LONGLONG m_fetches = 0;
};

TEST(MpdLoaderUnderLoad, QueuesGaplessRunsBetweenRestarts) {
    constexpr int kRounds = 40;
    LogCapture log(3);
    RecordingHost host;
    FakeOwner owner;
    owner.m_events.SetCallback(&host);
    auto queue = std::make_shared<SegmentQueue>(0);
    MpdLoader loader(owner, std::make_unique<EndlessSource>());
    loader.Init(L"http://origin/a", queue);

    std::atomic<bool> done{false};
    std::thread waker([&] {
        while (!done) {
            loader.Wake();
            std::this_thread::yield();
        }
    });
    std::thread steerer([&] {
        for (DWORD i = 0; !done; ++i) {
            LONGLONG start = 0;
            loader.SetPreferDelaySegment(i % 4);
            loader.SetPreferDelayTime(i % 3 * kTenMinutes, start);
            loader.SetPreferSegmentID(1000 + i % 50);
            loader.pauseParse(0);
            loader.SetPreferQuality(i % 2 ? 720 : 1080);
            loader.CurrentMpd();
            loader.TotalDuration();
            loader.GetUrl();
            std::this_thread::yield();
        }
    });

    for (int round = 0; round < kRounds; ++round) {
        std::vector<std::shared_ptr<Segment>> taken;
        {
            CritSecLock publication(loader.Publication());
            if (round % 8 == 7) {
                loader.Init(round % 16 == 7 ? L"http://origin/b" : L"http://origin/a", queue);
            }
            loader.SetTargetVideoQualityID(round % 2 ? 11 : 12);
            loader.resetStart();
            queue->clear();
        }
        loader.Wake();
        for (int i = 0; i < 8; ++i) {
            taken.push_back(queue->pop());
        }
        const char* base = round % 2 ? "v720/" : "v1080/";
        for (size_t i = 0; i < taken.size(); ++i) {
            EXPECT_EQ(taken[i]->m_segmentNumber, taken[0]->m_segmentNumber + static_cast<LONGLONG>(i)) << round;
            EXPECT_TRUE(taken[i]->m_videoUrl.starts_with(base)) << round;
            EXPECT_EQ(taken[i]->m_generation, loader.Generation()) << round;
        }
    }
    done = true;
    waker.join();
    steerer.join();
    loader.CloseThread();
}

}  // namespace
}  // namespace kvmpd::test
