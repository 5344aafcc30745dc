#include "app/Progress.h"

#include <gtest/gtest.h>

namespace kvmpd::app {
namespace {

ProgressState SomeState() {
    ProgressState state;
    state.segmentsRead = 7;
    state.segmentNumber = 1234;
    state.buffering = BufferingEvent{-30'000, 16'000, 18'500};
    state.recordedMs = 14'000;
    state.bytes = 3'200'000;
    state.mediaBytes = 3'500'000;
    return state;
}

TEST(ProgressLineText, SaysWhereTheRecordingIs) {
    EXPECT_EQ(ProgressLine(SomeState()),
              "segment 1234 (7 read) | recorded 0:14 | behind live 4.5 s | cached 0:00-0:16 | 3.2 MB | 2.00 Mbit/s");
}

TEST(ProgressLineText, CountsWhenTheNumberIsNotKnown) {
    ProgressState state;
    state.segmentsRead = 2;
    EXPECT_EQ(ProgressLine(state), "2 segments read | recorded 0:00 | 0 B | 0 kbit/s");
}

TEST(ProgressCache, StartsWhereTheComponentHasMedia) {
    ProgressState state = SomeState();
    EXPECT_EQ(state.CachedFromMs(), 0);  // before the first segment there is only the manifest
    state.buffering = BufferingEvent{5'000, 16'000, 18'500};
    EXPECT_EQ(state.CachedFromMs(), 5'000);
    state.maxCacheMs = 10'000;
    EXPECT_EQ(state.CachedFromMs(), 6'000);  // the cache keeps no more
    state.buffering.reset();
    EXPECT_EQ(state.CachedFromMs(), std::nullopt);
}

TEST(ProgressBehindLive, IsNeverNegative) {
    ProgressState state = SomeState();
    state.recordedMs = 20'000;
    EXPECT_EQ(state.BehindLiveMs(), 0);
}

// What the stream has by then is not known.
TEST(ProgressBehindLive, IsNotToldWhileTheStreamStandsStill) {
    ProgressState state = SomeState();
    state.segmentMs = 2'000;
    state.sinceSegmentMs = 5'999;
    EXPECT_EQ(state.BehindLiveMs(), 4'500);
    state.sinceSegmentMs = 12'900;
    EXPECT_EQ(state.BehindLiveMs(), std::nullopt);
    EXPECT_EQ(
        ProgressLine(state),
        "segment 1234 (7 read) | recorded 0:14 | no new segment for 12 s | cached 0:00-0:16 | 3.2 MB | 2.00 Mbit/s");
    EXPECT_EQ(ProgressJson(state, 15'250),
              R"({"type":"progress","time":15.250,"segments":7,"segment":1234,"recorded":14.000,"bytes":3200000,)"
              R"("bit_rate":2000000,"stands_still":12.900,"cache_start":0.000,"cache_end":16.000})");
}

TEST(ProgressAsJson, HasTheSameNumbers) {
    EXPECT_EQ(ProgressJson(SomeState(), 15'250),
              R"({"type":"progress","time":15.250,"segments":7,"segment":1234,"recorded":14.000,"bytes":3200000,)"
              R"("bit_rate":2000000,"behind_live":4.500,"cache_start":0.000,"cache_end":16.000})");
}

Recording::Summary SomeSummary() {
    Recording::Summary summary;
    summary.tracks[0] = {.packets = 500, .repeated = 0, .gaps = 0, .missingUs = 0, .endUs = 0, .atLimit = false};
    summary.tracks[1] = {.packets = 937, .repeated = 3, .gaps = 1, .missingUs = 21'000, .endUs = 0, .atLimit = false};
    summary.durationMs = 20'040;
    summary.recordedMs = 20'000;
    summary.bytes = 5'000'000;
    summary.width = 1280;
    summary.height = 720;
    summary.videoCodec = "h264";
    summary.audioCodec = "aac";
    summary.sampleRate = 48000;
    summary.channels = 2;
    return summary;
}

TEST(SummaryForPeople, SaysWhatTheFileHolds) {
    EXPECT_EQ(SummaryText(SomeSummary(), "demo.mkv"),
              "recorded demo.mkv\n"
              "  duration  20.040 s\n"
              "  video     h264 1280x720, 500 packets\n"
              "  audio     aac 48000 Hz, 2 channels, 937 packets\n"
              "  size      5000000 bytes (2.00 Mbit/s)\n"
              "  gaps      none in the video; 1 in the audio, 0.021 s missing\n"
              "  repeated  3 packets came a second time and were left out\n");
}

TEST(SummaryForPeople, ListsTheFirstGaps) {
    Recording::Summary summary = SomeSummary();
    summary.gaps.assign(12, {.track = Track::kAudio, .fromUs = 4'000'000, .toUs = 6'500'000});
    summary.gaps[0].cause = LossCause::kDownloadFailed;
    const std::string text = SummaryText(summary, "demo.mkv");
    EXPECT_NE(text.find("\n            0:04.000 to 0:06.500 of the audio (a download failed)\n"), std::string::npos);
    EXPECT_NE(text.find("\n            and others\n"), std::string::npos) << text;
}

TEST(SummaryForPeople, TellsOfAStreamThatStoodStillAtTheEnd) {
    const std::string still =
        SummaryText(SomeSummary(), "demo.mkv", {.agoMs = 134'000, .failedDownloads = 0, .segmentMs = 2'000});
    EXPECT_NE(still.find("\n  ending    nothing new was recorded in the last 134.0 s\n"), std::string::npos) << still;
    const std::string failed =
        SummaryText(SomeSummary(), "demo.mkv", {.agoMs = 4'000, .failedDownloads = 2, .segmentMs = 2'000});
    EXPECT_NE(failed.find("\n  ending    nothing new was recorded in the last 4.0 s, and 2 downloads of what followed "
                          "failed\n"),
              std::string::npos)
        << failed;
    for (const LastMedia& last : {LastMedia{}, LastMedia{.agoMs = 17'900, .failedDownloads = 0, .segmentMs = 6'000}}) {
        EXPECT_EQ(SummaryText(SomeSummary(), "demo.mkv", last).find("ending"), std::string::npos);
    }
}

TEST(SummaryForPrograms, SaysWhenMediaCameLast) {
    const std::string text = SummaryJson(SomeSummary(), "-", "asked", 21'500, {.agoMs = 134'000, .failedDownloads = 2});
    EXPECT_NE(text.find(R"("since_media":134.000,"failed_since_media":2})"), std::string::npos) << text;
}

TEST(SummaryForPeople, NamesTheBreaksOfTheClock) {
    Recording::Summary summary = SomeSummary();
    summary.clockRestarts = {{.atUs = 4'000'000, .fromUs = 70'000'000, .toUs = 0}};
    const std::string text = SummaryText(summary, "demo.mkv");
    EXPECT_NE(text.find("\n  clock     the stream's clock went from 1:10.000 to 0:00.000; the recording goes on at "
                        "0:04.000\n"),
              std::string::npos)
        << text;
}

TEST(SummaryForPrograms, ListsTheGaps) {
    Recording::Summary summary = SomeSummary();
    summary.gaps = {{.track = Track::kVideo, .fromUs = 0, .toUs = 1'000'000, .cause = LossCause::kNotMedia},
                    {.track = Track::kAudio, .fromUs = 4'000'000, .toUs = 6'500'000, .cause = LossCause::kCutShort}};
    const std::string text = SummaryJson(summary, "demo.mkv", "asked", 21'500);
    EXPECT_NE(text.find(R"("gaps":[{"track":"video","from":0.000,"to":1.000,"cause":"not-media"},)"
                        R"({"track":"audio","from":4.000,"to":6.500,"cause":"cut-short"}],)"),
              std::string::npos)
        << text;
}

TEST(SummaryForPrograms, IsOneObject) {
    EXPECT_EQ(
        SummaryJson(SomeSummary(), "-", "asked", 21'500),
        R"({"type":"summary","time":21.500,"output":"-","end":"asked","duration":20.040,"bytes":5000000,)"
        R"("video_codec":"h264","width":1280,"height":720,"audio_codec":"aac","sample_rate":48000,"channels":2,)"
        R"("video_packets":500,"video_gaps":0,"video_missing":0.000,"video_repeated":0,)"
        R"("audio_packets":937,"audio_gaps":1,"audio_missing":0.021,"audio_repeated":3,"gaps":[],"clock_restarts":[]})");
}

TEST(SummaryForPrograms, ListsTheBreaksOfTheClock) {
    Recording::Summary summary = SomeSummary();
    summary.clockRestarts = {{.atUs = 4'000'000, .fromUs = 1'004'000'000, .toUs = 0}};
    const std::string text = SummaryJson(summary, "demo.mkv", "asked", 21'500);
    EXPECT_NE(text.find(R"("clock_restarts":[{"at":4.000,"from":1004.000,"to":0.000}]})"), std::string::npos) << text;
}

}  // namespace
}  // namespace kvmpd::app
