// Whole roads through the system's own filter graph manager.

#include <gtest/gtest.h>

#include <filesystem>

#include "stream/CAsyncStream.h"
#include "tests/graph/Graph.h"
#include "tests/system/WaitingReader.h"

namespace kvmpd::test {
namespace {

const EventLog::Event kSeekDone{kEventPosition, 0, 1, {}};

class GraphTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(m_module.IsLoaded()); }
    /// Everything released: the module has no reason to stay, and goes.
    void ExpectModuleGoes() {
        EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
        EXPECT_TRUE(m_module.Unload());
    }

    ComScope m_com;
    LoadedModule m_module;
};

TEST_F(GraphTest, DeliversWhatTheOriginServedFromTheFirstCallToTheUnloading) {
    TestOrigin origin;
    Graph graph(m_module);
    LiveSession& session = graph.Session();
    session.Set(kBackdoorPreferDelaySegments, 3);
    session.Load(origin.Url());
    ASSERT_EQ(graph.Run(), S_OK);
    session.ExpectSegments(origin, kVideoId, 106, 109);
    origin.Live().Advance(2);
    session.FetchManifestNow();
    session.ExpectSegments(origin, kVideoId, 106, 111);

    ASSERT_EQ(graph.Pause(), S_OK);
    session.ExpectSegments(origin, kVideoId, 106, 111);  // a paused graph's bytes can be pulled
    ASSERT_EQ(graph.Run(), S_OK);

    // Of the 12 s that were queued, 5 s is in segment 108, which is in the cache.
    ASSERT_TRUE(session.WaitUntilIdle());
    ASSERT_EQ(session.Seek(5000), S_OK);
    ASSERT_TRUE(session.Events().WaitFor(kSeekDone));
    {
        SCOPED_TRACE("after the seek");
        session.ExpectSegments(origin, kVideoId, 108, 111);
    }

    // The quality is switched where the seek went, 7 s behind the edge. Nothing is under way: the restart uses up 108.
    ASSERT_TRUE(session.WaitUntilIdle());
    ASSERT_EQ(session.Set(kBackdoorTargetQuality, kHighVideoId), S_OK);
    ASSERT_TRUE(session.Events().WaitFor({kEventQualityChosen, kHighVideoId, 0, {}}));
    {
        SCOPED_TRACE("in the forced quality");
        session.ExpectSegments(origin, kHighVideoId, 109, 111);
    }

    ASSERT_EQ(graph.Stop(), S_OK);
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
    graph.Release();
    EXPECT_EQ(session.Events().References(), 0u);
    EXPECT_TRUE(std::filesystem::is_empty(session.CacheFolder().Path()));
    ExpectModuleGoes();
}

TEST_F(GraphTest, APinThatNeverAsksForTheReaderIsRefused) {
    {
        Graph graph(m_module);
        ComPtr<IPin> output;
        ASSERT_EQ(graph.Filter().FindPin(L"Output", output.put()), S_OK);
        const ComPtr<PullSink> sink(new PullSink(/*asks=*/false));
        ASSERT_EQ(graph.Builder().AddFilter(sink.get(), L"Sink"), S_OK);
        EXPECT_EQ(graph.Builder().ConnectDirect(output.get(), &sink->Input(), nullptr), VFW_E_NO_TRANSPORT);
        ComPtr<IPin> peer;
        EXPECT_EQ(output->ConnectedTo(peer.put()), VFW_E_NOT_CONNECTED);
    }
    ExpectModuleGoes();
}

TEST_F(GraphTest, TwoSourcesInOneProcessKeepTheirBytesApart) {
    OriginShape otherShape;
    otherShape.startNumber = 7000;
    TestOrigin origin;
    TestOrigin other(otherShape);
    {
        Graph graph(m_module);
        Graph otherGraph(m_module);
        LiveSession& session = graph.Session();
        LiveSession& otherSession = otherGraph.Session();
        session.Load(origin.Url());
        otherSession.Load(other.Url());
        ASSERT_EQ(graph.Run(), S_OK);
        ASSERT_EQ(otherGraph.Run(), S_OK);
        session.ExpectSegments(origin, kVideoId, 109, 109);
        otherSession.ExpectSegments(other, kVideoId, 7009, 7009);
        graph.Release();
        other.Live().Advance(2);
        otherSession.FetchManifestNow();
        otherSession.ExpectSegments(other, kVideoId, 7009, 7011);
    }
    ExpectModuleGoes();
}

TEST_F(GraphTest, TheGraphGoesWhileAReadWaits) {
    TestOrigin origin;
    Graph graph(m_module);
    LiveSession& session = graph.Session();
    session.Load(origin.Url());
    ASSERT_EQ(graph.Run(), S_OK);
    session.ExpectSegments(origin, kVideoId, 109, 109);
    WaitingReader reader(session);
    ComPtr<IKVMPDSource> control(&session.Control());
    graph.Release();
    EXPECT_TRUE(reader.IsWaiting());
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
    control->Backdoor(kBackdoorStop, nullptr);
    control.Reset();
    EXPECT_EQ(reader.Result(), E_FAIL);  // and the reader's reference was the last
    EXPECT_EQ(session.Events().References(), 0u);
    ExpectModuleGoes();
}

TEST(ModuleLoading, FiftyTimesWithAStreamAtWork) {
    const ComScope com;
    TestOrigin origin;
    for (int round = 0; round < 50; ++round) {
        LoadedModule module;
        ASSERT_TRUE(module.IsLoaded());
        {
            Graph graph(module);
            graph.Session().Load(origin.Url());
            ASSERT_EQ(graph.Run(), S_OK);
        }
        ASSERT_EQ(module.CanUnloadNow(), S_OK) << "round " << round;
        ASSERT_TRUE(module.Unload()) << "round " << round;
    }
}

TEST_F(GraphTest, TheGraphKnowsTheSourceByName) {
    {
        Graph graph(m_module);
        ComPtr<IBaseFilter> found;
        ASSERT_EQ(graph.Builder().FindFilterByName(L"Kavotra MPD Source", found.put()), S_OK);
        CLSID clsid{};
        EXPECT_EQ(found->GetClassID(&clsid), S_OK);
        EXPECT_TRUE(clsid == CLSID_KVMPDFilter);
    }
    ExpectModuleGoes();
}

}  // namespace
}  // namespace kvmpd::test
