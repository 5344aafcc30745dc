// How the parser fetches, and what it takes of the bytes that arrive.
#include <gtest/gtest.h>

#include "tests/manifest/ParserFixture.h"
#include "tests/support/ScriptedPeer.h"
#include "tests/support/Wine.h"

namespace kvmpd::test {
namespace {

using Lines = std::vector<std::string>;

TEST(MpdParserDownload, AsksOnceForTheUrlWithAPlainGet) {
    auto client = std::make_unique<FakeHttpClient>();
    FakeHttpClient& http = *client;
    http.body = Manifest("");
    MpdParser parser(std::move(client));
    EXPECT_EQ(parser.parse(L"https://origin/live.mpd?token=\x20AC", std::make_shared<MPD>()), S_OK);
    EXPECT_EQ(http.request.count, 1);
    EXPECT_EQ(http.request.url, L"https://origin/live.mpd?token=\x20AC");
    EXPECT_EQ(http.request.verb, L"GET");
    EXPECT_TRUE(http.request.bare);
}

TEST(MpdParserDownload, ReturnsTheClientsOwnFailure) {
    auto client = std::make_unique<FakeHttpClient>();
    client->body = Manifest("");
    client->result = static_cast<HRESULT>(0x80072EE2);
    const Parsed parsed = Parse(std::move(client), 4);
    EXPECT_EQ(parsed.result, static_cast<HRESULT>(0x80072EE2));
    EXPECT_EQ(parsed.log, (Lines{" MpdParser::parse ", "[Error] MpdParser::parse failed to get mpd data from url"}));
    EXPECT_TRUE(parsed.mpd->m_segmentDurations.empty());
}

TEST(MpdParserDownload, TellsOfADownloadFailureAtLevelThree) {
    auto client = std::make_unique<FakeHttpClient>();
    client->result = E_FAIL;
    EXPECT_EQ(Parse(std::move(client)).log, Lines{"[Error] MpdParser::parse failed to get mpd data from url"});
}

TEST(MpdParserDownload, TakesAPositiveResultAsSuccess) {
    auto client = std::make_unique<FakeHttpClient>();
    client->body = Manifest("");
    client->result = S_FALSE;
    EXPECT_EQ(Parse(std::move(client)).result, S_OK);
}

TEST(MpdParserDownload, ReadsABodyWhoseLengthWasNotAnnounced) {
    auto client = std::make_unique<FakeHttpClient>();
    client->body = VideoManifest(R"(<Representation id="1"><BaseURL>b/</BaseURL></Representation>)");
    client->announceLength = false;
    const Parsed parsed = Parse(std::move(client));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.Quality().m_baseUrl, "b/");
}

TEST(MpdParserDownload, RefusesAnEmptyBodyWhoseLengthWasNotAnnounced) {
    auto client = std::make_unique<FakeHttpClient>();
    client->announceLength = false;
    EXPECT_EQ(Parse(std::move(client)).result, E_FAIL);
}

TEST(MpdParserDownload, ReadsABodyShorterThanAnnouncedWhenTheClientAcceptsIt) {
    class ShortClient : public FakeHttpClient {
      public:
        HRESULT OpenUrlW(const wchar_t*, const wchar_t*, const wchar_t*, BOOL, const wchar_t*, const wchar_t*,
                         const BYTE*, DWORD, INetKernelContentStream* stream) override {
            stream->OnContentLength(body.size() + 1000);
            stream->WriteInputStream(reinterpret_cast<const BYTE*>(body.data()), static_cast<DWORD>(body.size()));
            return S_OK;
        }
    };
    auto client = std::make_unique<ShortClient>();
    client->body = Manifest("");
    const Parsed parsed = Parse(std::move(client));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.mpd->m_segmentDurations.size(), 3u);
}

TEST(MpdParserDownload, ReadsABodyThatIsNotTerminated) {
    // Exactly as long as announced: the byte after the body is not the parser's to read (address sanitizer sees it).
    EXPECT_EQ(Parse(Manifest("")).result, S_OK);
}

TEST(MpdParserDownload, FetchesOverHttp) {
    ScriptedPeer peer;
    peer.On("/live.mpd", PeerReply::Ok(Manifest("")));
    MpdParser parser;
    const auto mpd = std::make_shared<MPD>();
    EXPECT_EQ(parser.parse(peer.UrlW("/live.mpd?a=b"), mpd), S_OK);
    EXPECT_EQ(mpd->m_startNumber, 120);
    const PeerRequest request = peer.WaitForRequest(0);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/live.mpd?a=b");
    EXPECT_EQ(request.Header("User-Agent"), "KV-NetKernel");
}

TEST(MpdParserDownload, FailsWhenTheServerCutsTheBody) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineEndsAShortBody << "; " << kWineKnowsNoLength;
    }
    ScriptedPeer peer;
    const std::string body = Manifest("");
    peer.On("/live.mpd", PeerReply::Truncated(body, body.size() + 10));
    MpdParser parser;
    LogCapture log(3);
    EXPECT_EQ(parser.parse(peer.UrlW("/live.mpd"), std::make_shared<MPD>()), E_FAIL);
    EXPECT_TRUE(log.Contains("[Error] MpdParser::parse failed to get mpd data from url"));
}

TEST(MpdParserDownload, RefusesA404PageByItsContent) {
    ScriptedPeer peer;
    peer.On("/live.mpd", PeerReply::Respond(404, "<html><body>not here</body></html>"));
    MpdParser parser;
    EXPECT_EQ(parser.parse(peer.UrlW("/live.mpd"), std::make_shared<MPD>()), E_UNEXPECTED);
}

TEST(MpdParserDownload, FetchesAgainWithTheSameClient) {
    ScriptedPeer peer;
    peer.Once("/live.mpd", PeerReply::CloseAtOnce());
    peer.On("/live.mpd", PeerReply::Ok(Manifest("")));
    MpdParser parser;
    EXPECT_LT(parser.parse(peer.UrlW("/live.mpd"), std::make_shared<MPD>()), 0);
    EXPECT_EQ(parser.parse(peer.UrlW("/live.mpd"), std::make_shared<MPD>()), S_OK);
}

}  // namespace
}  // namespace kvmpd::test
