#include "app/StreamEvent.h"

#include <gtest/gtest.h>

#include <vector>

#include "app/HostCallback.h"
#include "common/ComPtr.h"
#include "events/EventIds.h"

namespace kvmpd::app {
namespace {

StreamEvent Numbers(DWORD id, LONG param1, LONG param2) {
    return MakeStreamEvent(id, &param1, &param2);
}

struct EventCase {
    DWORD id;
    LONG param1;
    LONG param2;
    const char* words;
    const char* json;
};

class NumberEvent : public testing::TestWithParam<EventCase> {};

TEST_P(NumberEvent, IsSaidInWordsAndAsJson) {
    const StreamEvent event = Numbers(GetParam().id, GetParam().param1, GetParam().param2);
    EXPECT_EQ(DescribeEvent(event), GetParam().words);
    EXPECT_EQ(EventJson(event, 1500), GetParam().json);
}

INSTANTIATE_TEST_SUITE_P(
    Ids, NumberEvent,
    testing::Values(
        EventCase{kEventManifest, 0, 2000, "manifest loaded, with new segments; the newest lasts 2.000 s",
                  R"({"type":"event","time":1.500,"event":"manifest","result":"loaded","segment_ms":2000})"},
        EventCase{kEventManifest, 1, 0, "a manifest came, but not of the shape that can be followed",
                  R"({"type":"event","time":1.500,"event":"manifest","result":"malformed"})"},
        EventCase{kEventManifest, 2, 0, "the manifest could not be loaded: no answer, no manifest, or too large a one",
                  R"({"type":"event","time":1.500,"event":"manifest","result":"failed"})"},
        EventCase{kEventQualityChosen, 12, 0, "video quality 12 was chosen",
                  R"({"type":"event","time":1.500,"event":"quality","id":12})"},
        EventCase{kEventPosition, 1, 0, "the stream was reset to its live edge; positions restart at 0",
                  R"({"type":"event","time":1.500,"event":"position","reset":true,"seek":false})"},
        EventCase{kEventPosition, 0, 1, "a seek is done; positions restart at 0",
                  R"({"type":"event","time":1.500,"event":"position","reset":false,"seek":true})"},
        EventCase{kEventPosition, 0, 0, "a preferred delay was set; the stream stays where it is",
                  R"({"type":"event","time":1.500,"event":"position","reset":false,"seek":false})"},
        EventCase{kEventDownloadFailed, 0, 0, "a segment could not be downloaded; the stream goes on with the next one",
                  R"({"type":"event","time":1.500,"event":"download_failed"})"},
        EventCase{77, 0, 0, "event 77, which this program does not know",
                  R"({"type":"event","time":1.500,"event":"unknown","id":77})"}));

TEST(TextEvent, CarriesTheQualityList) {
    const wchar_t text[] = L"{11:{'height': 720,'width': 1280,'bandwidth': 2500000,'frameRate': 30}}";
    const StreamEvent event = MakeStreamEvent(kEventQualityList, text, nullptr);
    EXPECT_EQ(DescribeEvent(event), "the manifest offers 1 video quality");
    EXPECT_EQ(EventJson(event, 0), R"({"type":"event","time":0.000,"event":"qualities","qualities":)"
                                   R"([{"id":11,"height":720,"width":1280,"bandwidth":2500000,"frame_rate":30}]})");
}

TEST(TextEvent, IsShownAsItCameWhenItCannotBeRead) {
    const StreamEvent event = MakeStreamEvent(kEventQualityList, L"hm \"x\"", nullptr);
    EXPECT_EQ(DescribeEvent(event), "the list of video qualities cannot be read: hm \"x\"");
    EXPECT_EQ(EventJson(event, 0), R"({"type":"event","time":0.000,"event":"qualities","text":"hm \"x\""})");
}

TEST(BufferingEventText, NamesTheThreeTimes) {
    EXPECT_EQ(DescribeEvent(BufferingEvent{-1000, 4000, 6500}), "cached from -0:01.000 to 0:04.000 of 0:06.500");
    EXPECT_EQ(
        EventJson(BufferingEvent{-1000, 4000, 6500}, 0),
        R"({"type":"event","time":0.000,"event":"buffering","play_ms":-1000,"buffered_ms":4000,"total_ms":6500})");
}

TEST(PositionEventMeaning, PositionsRestartAfterAResetOrASeekOnly) {
    EXPECT_TRUE((PositionEvent{true, false}.PositionsRestart()));
    EXPECT_TRUE((PositionEvent{false, true}.PositionsRestart()));
    EXPECT_FALSE((PositionEvent{false, false}.PositionsRestart()));
}

// At every start with a delay, and at every new source: nobody but this program has done anything.
TEST(PositionEventMeaning, AnAnswerToTheHostsOwnDelayIsNotTold) {
    EXPECT_FALSE(WorthTelling(PositionEvent{false, false}));
    EXPECT_TRUE(WorthTelling(PositionEvent{true, false}));
    EXPECT_TRUE(WorthTelling(PositionEvent{false, true}));
    EXPECT_TRUE(WorthTelling(DownloadFailedEvent{}));
}

struct CollectingSink final : EventSink {
    void OnEvent(const StreamEvent& event) override { events.push_back(event); }
    std::vector<StreamEvent> events;
};

TEST(HostCallbackObject, PassesEventsOnAndAnswersOk) {
    CollectingSink sink;
    kvmpd::ComPtr<HostCallback> callback;
    callback.Attach(new HostCallback(sink));
    LONG one = 11;
    LONG two = 0;
    EXPECT_EQ(callback->OnStreamEvent(kEventQualityChosen, &one, &two), S_OK);
    EXPECT_EQ(callback->OnStreamEvent(kEventDownloadFailed, nullptr, nullptr), S_OK);
    EXPECT_EQ(callback->OnBuffering(1, 2, 3), S_OK);
    ASSERT_EQ(sink.events.size(), 3u);
    EXPECT_EQ(std::get<QualityChosenEvent>(sink.events[0]).id, 11);
    EXPECT_TRUE(std::holds_alternative<DownloadFailedEvent>(sink.events[1]));
    EXPECT_EQ(std::get<BufferingEvent>(sink.events[2]).total, 3);
}

}  // namespace
}  // namespace kvmpd::app
