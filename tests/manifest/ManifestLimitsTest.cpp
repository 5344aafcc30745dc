// The largest manifests that are read, and the ones just beyond.
#include "manifest/ManifestLimits.h"

#include <gtest/gtest.h>

#include "download/DownloadNetKernelStream.h"
#include "tests/manifest/ParserFixture.h"

namespace kvmpd::test {
namespace {

using Lines = std::vector<std::string>;

/// A manifest with `depth` elements within each other, the root and its Period among them.
std::string Nested(int depth) {
    std::string open;
    std::string close;
    for (int i = 2; i < depth; ++i) {
        open += "<x>";
        close += "</x>";
    }
    return Manifest(open + close);
}

std::string WithSegments(size_t count) {
    std::string entries;
    entries.reserve(count * 10);
    for (size_t i = 0; i < count; ++i) {
        entries += R"(<S d="1"/>)";
    }
    return TimelineManifest(entries);
}

TEST(ManifestLimits, TheDeepestXmlIsRead) {
    EXPECT_EQ(Parse(Nested(kDeepestXml)).result, S_OK);
}

TEST(ManifestLimits, XmlThatIsFarDeeperIsRefused) {
    const Parsed parsed = Parse(Nested(10'000));
    EXPECT_EQ(parsed.result, E_FAIL);
    EXPECT_EQ(parsed.log, Lines{"[Error] MpdParser::parse get unexpected xml format: 18"});
}

TEST(ManifestLimits, TheMostSegmentsAreAllRead) {
    const Parsed parsed = Parse(WithSegments(kMostSegments));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.mpd->m_segmentDurations.size(), kMostSegments);
    EXPECT_EQ(parsed.mpd->m_totalDuration, kMostSegments);
}

TEST(ManifestLimits, OneSegmentMoreIsRefused) {
    const Parsed parsed = Parse(WithSegments(kMostSegments + 1));
    EXPECT_EQ(parsed.result, E_FAIL);
    EXPECT_EQ(parsed.log, Lines{"[Error] MpdParser::parse more than 500000 segments in SegmentTimeline"});
}

TEST(ManifestLimits, ARepeatCountAddsNoSegmentHoweverLarge) {
    const Parsed parsed = Parse(TimelineManifest(R"(<S d="1" r="2147483647"/><S d="1" r="-1"/>)"));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.mpd->m_segmentDurations, (std::vector<DWORD>{1, 1}));
}

TEST(ManifestLimits, ManyEmptyElementsAreRefusedBeforeTheyTakeMemory) {
    std::string elements;
    for (size_t i = 0; i <= kMostXmlItems; ++i) {
        elements += "<a/>";
    }
    const Parsed parsed = Parse(Manifest(elements));
    EXPECT_EQ(parsed.result, E_FAIL);
    EXPECT_EQ(parsed.log, Lines{"[Error] MpdParser::parse manifest has more than 2000000 tags and attributes"});
}

TEST(ManifestLimits, ABodyWithoutLengthMayHaveTheAssumedOne) {
    auto client = std::make_unique<FakeHttpClient>();
    client->announceLength = false;
    client->body = Manifest("");
    client->body.resize(DownloadNetKernelStream::kAssumedLength, ' ');
    EXPECT_EQ(Parse(std::move(client)).result, S_OK);
}

TEST(ManifestLimits, ALongerOneIsRefused) {
    auto client = std::make_unique<FakeHttpClient>();
    client->announceLength = false;
    client->body = Manifest("");
    client->body.resize(DownloadNetKernelStream::kAssumedLength + 1, ' ');
    const Parsed parsed = Parse(std::move(client));
    EXPECT_EQ(parsed.result, E_FAIL);
    EXPECT_EQ(parsed.log, Lines{"[Error] MpdParser::parse failed to get mpd data from url"});
}

TEST(ManifestLimits, AnAnnouncedLengthMayBeLongerThanTheAssumedOne) {
    std::string body = Manifest("");
    body.resize(2 * DownloadNetKernelStream::kAssumedLength, ' ');
    EXPECT_EQ(Parse(std::move(body)).result, S_OK);
}

}  // namespace
}  // namespace kvmpd::test
