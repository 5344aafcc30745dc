#include "origin/AudioTrack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "origin/TestCard.h"
#include "tests/origin/ProbedSegment.h"

namespace kvmpd::origin {
namespace {

TEST(AudioTrack, SegmentsHoldTheFramesThatStartInThemWithoutGapOrRepeat) {
    AudioTrack track(kAudioBitrate, TestCardSound);
    std::string bytes;
    for (std::int64_t i = 0; i < 4; ++i) {
        const std::string segment = track.Segment(i * 2000, (i + 1) * 2000, {});
        EXPECT_EQ(TopLevelBoxes(segment), "ftyp moov moof mdat");
        // The first frame that starts at or after the segment's first sample.
        EXPECT_EQ(FirstDecodeTime(segment), (i * 96'000 + 1023) / 1024 * 1024);
        bytes += segment;
    }
    const ProbedMedia media = Probe(bytes);
    EXPECT_EQ(media.codec, "aac");
    EXPECT_EQ(media.sampleRate, kAudioRate);
    ASSERT_EQ(media.packets.size(), 375u);
    for (std::size_t i = 0; i < media.packets.size(); ++i) {
        EXPECT_EQ(media.packets[i].dts, static_cast<std::int64_t>(i) * 1024);
    }
}

TEST(AudioTrack, GivesTheSameBytesInAnyOrderOfAsking) {
    AudioTrack forwards(kAudioBitrate, TestCardSound);
    AudioTrack backwards(kAudioBitrate, TestCardSound);
    const std::string second = backwards.Segment(2000, 4000, {});
    const std::string first = backwards.Segment(0, 2000, {});
    EXPECT_EQ(forwards.Segment(0, 2000, {}), first);
    EXPECT_EQ(forwards.Segment(2000, 4000, {}), second);
}

TEST(AudioTrack, StopsBeforeItEncodesOn) {
    AudioTrack track(kAudioBitrate, TestCardSound);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_EQ(track.Segment(0, 2000, stop.get_token()), "");
}

TEST(TestCardSound, BeepsForATenthOfEachSecond) {
    AudioTrack track(kAudioBitrate, TestCardSound);
    const std::vector<float> samples = DecodedSamples(track.Segment(0, 3000, {}));
    ASSERT_GT(samples.size(), 140'000u);
    const auto loudest = [&](std::size_t fromMs, std::size_t toMs) {
        float level = 0;
        for (std::size_t i = fromMs * 48; i < toMs * 48; ++i) {
            level = std::max(level, std::abs(samples[i]));
        }
        return level;
    };
    for (const std::size_t second : {1000u, 2000u}) {
        EXPECT_GT(loudest(second + 10, second + 90), 0.4F);
        EXPECT_LT(loudest(second + 150, second + 900), 0.01F);
    }
    // 1 kHz changes its sign twice a millisecond.
    int changes = 0;
    for (std::size_t i = 1010 * 48; i < 1090 * 48; ++i) {
        changes += (samples[i] < 0) != (samples[i + 1] < 0) ? 1 : 0;
    }
    EXPECT_NEAR(changes, 160, 2);
}

}  // namespace
}  // namespace kvmpd::origin
