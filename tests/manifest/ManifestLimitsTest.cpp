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

/// A manifest with as many lists of files as the most segments may have. With the most segments it has 22.5 MB; making
/// and reading it took 0.8 s and 248 MiB at the peak, measured once in a build at -O1.
std::string WithFiles(size_t segments) {
    std::string names;
    for (size_t i = 1; i <= segments; ++i) {
        names += "<SegmentURL media=\"" + std::to_string(i) + "\"/>";
    }
    std::string sets;
    for (size_t list = 0; list < kListsOfMostSegments; ++list) {
        sets += list == 0 ? R"(<AdaptationSet id="1" mimeType="audio/mp4">)" : "";
        sets += list == 1 ? R"(<AdaptationSet id="2" mimeType="video/mp4">)" : "";
        sets += "<Representation id=\"" + std::to_string(list + 1) +
                "\" bandwidth=\"1\" width=\"1\" height=\"1\" frameRate=\"1\"><BaseURL>http://origin/a/</BaseURL>"
                "<SegmentList>" +
                names + "</SegmentList></Representation>";
        sets += list == 0 || list + 1 == kListsOfMostSegments ? "</AdaptationSet>" : "";
    }
    std::string manifest = WithSegments(segments);
    manifest.insert(manifest.rfind("</Period>"), sets);
    return manifest;
}

const Lines kTooDeep{"[Error] MpdParser::parse manifest has more than 98 elements within each other"};
const Lines kTooManySegments{"[Error] MpdParser::parse more than 100000 segments in SegmentTimeline"};

TEST(ManifestLimits, TheDeepestXmlIsRead) {
    const Parsed parsed = Parse(Nested(kDeepestXml));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.log, Lines{});
}

TEST(ManifestLimits, OneElementDeeperIsRefused) {
    const Parsed parsed = Parse(Nested(kDeepestXml + 1));
    EXPECT_EQ(parsed.result, E_FAIL);
    EXPECT_EQ(parsed.log, kTooDeep);
}

TEST(ManifestLimits, AnEmptyElementWithinTheDeepestIsOneDeeper) {
    std::string manifest = Nested(kDeepestXml);
    manifest.insert(manifest.find("</x>"), "<y a='1' />");
    EXPECT_EQ(Parse(manifest).log, kTooDeep);
}

TEST(ManifestLimits, XmlThatIsFarDeeperIsRefused) {
    const Parsed parsed = Parse(Nested(100'000));
    EXPECT_EQ(parsed.result, E_FAIL);
    EXPECT_EQ(parsed.log, kTooDeep);
}

TEST(ManifestLimits, ElementsBesideEachOtherAreNotDeep) {
    std::string elements;
    for (int i = 0; i < 3 * kDeepestXml; ++i) {
        elements += "<x></x><x a='/'><y/></x >";
    }
    EXPECT_EQ(Parse(Manifest(elements)).result, S_OK);
}

TEST(ManifestLimits, WhatLooksLikeElementsInCommentsTextAndValuesIsNotDeep) {
    std::string tags;
    for (int i = 0; i < 3 * kDeepestXml; ++i) {
        tags += "<x>";
    }
    const Parsed parsed =
        Parse(Manifest("<!--" + tags + "--><a><![CDATA[" + tags + "]]></a><b c='" + tags + "' d=\"" + tags + "\"/>"));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.log, Lines{});
}

TEST(ManifestLimits, MalformedXmlIsStillToldByTheLibrarysNumber) {
    EXPECT_EQ(Parse(Nested(kDeepestXml).substr(0, 200)).log,
              Lines{"[Error] MpdParser::parse get unexpected xml format: 14"});
}

TEST(ManifestLimits, TheMostSegmentsAreAllRead) {
    const Parsed parsed = Parse(WithSegments(kMostSegments));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.mpd->m_segmentDurations.size(), kMostSegments);
    EXPECT_EQ(parsed.mpd->m_totalDuration, kMostSegments);
}

TEST(ManifestLimits, TheMostSegmentsAreReadWithTheirFilesInEveryQuality) {
    const Parsed parsed = Parse(WithFiles(kMostSegments));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.log, Lines{});
    ASSERT_EQ(parsed.mpd->m_adaptationSets.size(), 2u);
    EXPECT_EQ(SegmentUrl(parsed.Set(0).m_representations.at(0), kMostSegments - 1), "http://origin/a/100000");
    EXPECT_EQ(SegmentUrl(parsed.Set(1).m_representations.at(kListsOfMostSegments - 2), kMostSegments - 1),
              "http://origin/a/100000");
}

TEST(ManifestLimits, OneSegmentMoreIsRefused) {
    const Parsed parsed = Parse(WithSegments(kMostSegments + 1));
    EXPECT_EQ(parsed.result, E_FAIL);
    EXPECT_EQ(parsed.log, kTooManySegments);
}

TEST(ManifestLimits, OneSegmentMoreIsRefusedForThatWithItsFilesToo) {
    EXPECT_EQ(Parse(WithFiles(kMostSegments + 1)).log, kTooManySegments);
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
