#include "origin/ManifestWriter.h"

#include <gtest/gtest.h>
#include <tinyxml2.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "origin/PatternMedia.h"

namespace kvmpd::origin {
namespace {

using tinyxml2::XMLElement;

Manifest ThreeSegments() {
    Manifest manifest;
    manifest.sets = PatternMedia::DefaultSets();
    manifest.startNumber = 120;
    manifest.segments = {{120, 240'000, 2000}, {121, 242'000, 2000}, {122, 244'000, 1500}};
    manifest.availabilityStart = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'700'000'000'250));
    manifest.timeShiftBufferDepthMs = 60'000;
    manifest.mediaBase = "http://127.0.0.1:8080/media/";
    return manifest;
}

std::vector<const XMLElement*> Children(const XMLElement* parent, const char* name = nullptr) {
    std::vector<const XMLElement*> children;
    for (auto* child = parent->FirstChildElement(name); child; child = child->NextSiblingElement(name)) {
        children.push_back(child);
    }
    return children;
}

std::vector<std::string> Names(const XMLElement* parent) {
    std::vector<std::string> names;
    for (const XMLElement* child : Children(parent)) {
        names.emplace_back(child->Name());
    }
    return names;
}

class WrittenManifest : public testing::Test {
  protected:
    const XMLElement* Read(const std::string& text) {
        EXPECT_EQ(document_.Parse(text.data(), text.size()), tinyxml2::XML_SUCCESS) << document_.ErrorStr();
        return document_.FirstChildElement("MPD");
    }
    const XMLElement* Period(const std::string& text) { return Read(text)->FirstChildElement("Period"); }

  private:
    tinyxml2::XMLDocument document_;
};

TEST_F(WrittenManifest, SaysThatItIsLiveAndWhenItBegan) {
    const XMLElement* mpd = Read(WriteManifest(ThreeSegments()));
    ASSERT_NE(mpd, nullptr);
    EXPECT_STREQ(mpd->Attribute("type"), "dynamic");
    EXPECT_STREQ(mpd->Attribute("xmlns"), "urn:mpeg:dash:schema:mpd:2011");
    EXPECT_STREQ(mpd->Attribute("availabilityStartTime"), "2023-11-14T22:13:20.250Z");
    EXPECT_STREQ(mpd->Attribute("minimumUpdatePeriod"), "PT2.000S");
    EXPECT_STREQ(mpd->Attribute("timeShiftBufferDepth"), "PT60.000S");
    EXPECT_NE(mpd->Attribute("minBufferTime"), nullptr);
    EXPECT_NE(mpd->Attribute("profiles"), nullptr);
}

TEST_F(WrittenManifest, HasThePeriodsListBeforeTheSetsAndAudioBeforeVideo) {
    const XMLElement* period = Period(WriteManifest(ThreeSegments()));
    EXPECT_EQ(Names(period), (std::vector<std::string>{"SegmentList", "AdaptationSet", "AdaptationSet"}));
    const auto sets = Children(period, "AdaptationSet");
    EXPECT_STREQ(sets[0]->Attribute("mimeType"), "audio/mp4");
    EXPECT_STREQ(sets[1]->Attribute("mimeType"), "video/mp4");
    EXPECT_STREQ(sets[1]->Attribute("id"), "1");
}

TEST_F(WrittenManifest, ListsOneEntryForEachSegment) {
    const XMLElement* list = Period(WriteManifest(ThreeSegments()))->FirstChildElement("SegmentList");
    EXPECT_STREQ(list->Attribute("startNumber"), "120");
    EXPECT_STREQ(list->Attribute("timescale"), "1000");
    const auto entries = Children(list->FirstChildElement("SegmentTimeline"), "S");
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_STREQ(entries[0]->Attribute("d"), "2000");
    EXPECT_STREQ(entries[0]->Attribute("t"), "240000");
    EXPECT_STREQ(entries[2]->Attribute("d"), "1500");
    EXPECT_EQ(entries[2]->Attribute("t"), nullptr);
}

TEST_F(WrittenManifest, GivesEveryRepresentationAnAbsoluteBaseAndANamePerSegment) {
    ManifestStyle style;
    style.mediaPrefix = "sq/";
    style.basePadding = "expire/17%2C3/";
    const XMLElement* period = Period(WriteManifest(ThreeSegments(), style));
    for (const XMLElement* set : Children(period, "AdaptationSet")) {
        for (const XMLElement* representation : Children(set, "Representation")) {
            const std::string id = representation->Attribute("id");
            EXPECT_EQ(representation->FirstChildElement("BaseURL")->GetText(),
                      "http://127.0.0.1:8080/media/" + id + "/expire/17%2C3/");
            const auto names = Children(representation->FirstChildElement("SegmentList"), "SegmentURL");
            ASSERT_EQ(names.size(), 3u);
            EXPECT_EQ(names[1]->Attribute("media"), std::string("sq/121") + (id == "1" ? ".m4a" : ".mp4"));
        }
    }
}

TEST_F(WrittenManifest, DescribesTheQualities) {
    const XMLElement* period = Period(WriteManifest(ThreeSegments()));
    const XMLElement* video = Children(period, "AdaptationSet")[1]->FirstChildElement("Representation");
    EXPECT_STREQ(video->Attribute("id"), "360");
    EXPECT_STREQ(video->Attribute("width"), "640");
    EXPECT_STREQ(video->Attribute("height"), "360");
    EXPECT_STREQ(video->Attribute("bandwidth"), "800000");
    EXPECT_STREQ(video->Attribute("frameRate"), "25");
    EXPECT_STREQ(video->Attribute("codecs"), "avc1.64001e");
    const XMLElement* audio = Children(period, "AdaptationSet")[0]->FirstChildElement("Representation");
    EXPECT_EQ(audio->Attribute("width"), nullptr);
    EXPECT_EQ(Names(audio), (std::vector<std::string>{"AudioChannelConfiguration", "BaseURL", "SegmentList"}));
}

TEST_F(WrittenManifest, EscapesWhatXmlReserves) {
    Manifest manifest = ThreeSegments();
    manifest.mediaBase = "http://host/a?b=1&c=\"<>/";
    const XMLElement* period = Period(WriteManifest(manifest));
    const XMLElement* audio = Children(period, "AdaptationSet")[0]->FirstChildElement("Representation");
    EXPECT_STREQ(audio->FirstChildElement("BaseURL")->GetText(), "http://host/a?b=1&c=\"<>/1/");
}

TEST_F(WrittenManifest, CanCarryForeignAttributesAndFurtherSets) {
    ManifestStyle style;
    style.foreignAttributes = true;
    style.extraSets = {{"video/webm", {PatternMedia::DefaultSets()[1].representations[0]}}};
    const XMLElement* mpd = Read(WriteManifest(ThreeSegments(), style));
    EXPECT_NE(mpd->Attribute("xmlns:x"), nullptr);
    const XMLElement* period = mpd->FirstChildElement("Period");
    const XMLElement* timeline = period->FirstChildElement("SegmentList")->FirstChildElement("SegmentTimeline");
    EXPECT_STREQ(timeline->FirstChildElement("S")->Attribute("x:ingest"), "240000");
    EXPECT_STREQ(Children(period, "AdaptationSet")[2]->Attribute("mimeType"), "video/webm");
}

class LargeManifest : public WrittenManifest {};

TEST_F(LargeManifest, LooksLikeATwoHourWindow) {
    const std::string text = MakeLargeManifest();
    EXPECT_GT(text.size(), 1'200'000u);
    EXPECT_LT(text.size(), 3'200'000u);
    const XMLElement* mpd = Read(text);
    EXPECT_EQ(mpd->Attribute("xmlns:x"), nullptr);
    const XMLElement* period = mpd->FirstChildElement("Period");
    const auto entries = Children(period->FirstChildElement("SegmentList")->FirstChildElement("SegmentTimeline"), "S");
    ASSERT_EQ(entries.size(), 3600u);
    std::size_t foreign = 0;
    std::set<int> durations;
    for (const XMLElement* entry : entries) {
        durations.insert(entry->IntAttribute("d"));
        foreign += entry->Attribute("x:ingest") != nullptr ? 1u : 0u;
        EXPECT_EQ(entry->Attribute("t"), nullptr);
    }
    EXPECT_GE(*durations.begin(), 101);
    EXPECT_LE(*durations.rbegin(), 5250);
    EXPECT_GT(durations.size(), 20u);
    EXPECT_GT(foreign, 100u);
    EXPECT_LT(foreign, 3600u);

    const auto sets = Children(period, "AdaptationSet");
    ASSERT_EQ(sets.size(), 3u);
    EXPECT_STREQ(sets[0]->Attribute("mimeType"), "audio/mp4");
    EXPECT_STREQ(sets[1]->Attribute("mimeType"), "video/mp4");
    std::size_t representations = 0;
    for (const XMLElement* set : sets) {
        for (const XMLElement* representation : Children(set, "Representation")) {
            ++representations;
            EXPECT_EQ(Children(representation->FirstChildElement("SegmentList"), "SegmentURL").size(), 3600u);
            const std::string base = representation->FirstChildElement("BaseURL")->GetText();
            EXPECT_TRUE(base.starts_with("https://"));
            EXPECT_TRUE(base.ends_with("/"));
            EXPECT_NEAR(static_cast<double>(base.size()), 700.0, 8.0);
            EXPECT_NE(base.find('%'), std::string::npos);
        }
    }
    EXPECT_EQ(representations, 15u);
    std::vector<int> heights;
    for (const XMLElement* representation : Children(sets[1], "Representation")) {
        heights.push_back(representation->IntAttribute("height"));
    }
    EXPECT_FALSE(std::ranges::is_sorted(heights));
}

TEST_F(LargeManifest, IsTheSameForTheSameOptionsAndAnotherForAnotherSeed) {
    const LargeManifestOptions small{.segments = 50, .representations = 3};
    LargeManifestOptions other = small;
    other.seed = 2;
    EXPECT_EQ(MakeLargeManifest(small), MakeLargeManifest(small));
    EXPECT_NE(MakeLargeManifest(small), MakeLargeManifest(other));
}

}  // namespace
}  // namespace kvmpd::origin
