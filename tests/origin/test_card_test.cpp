#include "origin/TestCard.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "tests/origin/ProbedSegment.h"

namespace kvmpd::origin {
namespace {

// Small pictures keep the tests fast; nothing depends on the size.
constexpr int kSmall = 90;
constexpr int kSmaller = 72;
constexpr std::uint32_t kSegmentMs = 1000;

SegmentTime Timed(std::int64_t number) {
    return {number, (number - 1) * kSegmentMs, kSegmentMs};
}

TestCardOptions SmallCard() {
    TestCardOptions options;
    options.qualities = {QualityOfHeight(kSmaller), QualityOfHeight(kSmall)};
    return options;
}

std::string Concatenated(TestCard& card, int id, std::int64_t first, std::int64_t last) {
    std::string bytes;
    for (std::int64_t number = first; number <= last; ++number) {
        bytes += *card.Segment(id, Timed(number));
    }
    return bytes;
}

TEST(TestCardVideo, EverySegmentInitialisesItself) {
    TestCard card(SmallCard());
    for (const std::int64_t number : {1, 2, 40}) {
        const Bytes bytes = card.Segment(kSmall, Timed(number));
        ASSERT_TRUE(bytes);
        EXPECT_EQ(TopLevelBoxes(*bytes), "ftyp moov moof mdat");
        const ProbedMedia media = Probe(*bytes);
        EXPECT_EQ(media.codec, "h264");
        EXPECT_EQ(media.width, 160);
        EXPECT_EQ(media.height, kSmall);
        EXPECT_EQ(media.packets.size(), 25u);
    }
}

TEST(TestCardVideo, EverySegmentStartsWithItsOnlyIdrPicture) {
    TestCard card(SmallCard());
    const ProbedMedia media = Probe(*card.Segment(kSmall, Timed(3)));
    for (std::size_t i = 0; i < media.packets.size(); ++i) {
        EXPECT_EQ(media.packets[i].key, i == 0) << i;
    }
    // Each unit has its length in front; IDR pictures are type 5, and information units may stand before them.
    const std::string& data = media.packets[0].data;
    std::vector<int> types;
    for (std::size_t at = 0; at + 4 < data.size();) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            length = length << 8 | static_cast<unsigned char>(data[at + i]);
        }
        types.push_back(data[at + 4] & 0x1F);
        at += 4 + length;
    }
    ASSERT_FALSE(types.empty());
    EXPECT_EQ(types.back(), 5);
}

TEST(TestCardVideo, DecodeTimesContinueFromSegmentToSegmentAndStartAtZero) {
    TestCard card(SmallCard());
    EXPECT_EQ(FirstDecodeTime(*card.Segment(kSmall, Timed(1))), 0);
    EXPECT_EQ(FirstDecodeTime(*card.Segment(kSmall, Timed(2))), 90'000);
    // Beyond 32 bits: half a day and a bit at 90 kHz.
    EXPECT_EQ(FirstDecodeTime(*card.Segment(kSmall, Timed(50'001))), 4'500'000'000);

    const ProbedMedia media = Probe(Concatenated(card, kSmall, 1, 4));
    ASSERT_EQ(media.packets.size(), 100u);
    for (std::size_t i = 0; i < media.packets.size(); ++i) {
        EXPECT_EQ(media.packets[i].dts, static_cast<std::int64_t>(i) * 3600);
        EXPECT_EQ(media.packets[i].pts, media.packets[i].dts);
    }
}

TEST(TestCardVideo, SegmentsThatFramesDoNotDivideLoseAndRepeatNone) {
    TestCard card(SmallCard());
    std::string bytes;
    std::int64_t start = 0;
    for (std::int64_t number = 1; number <= 7; ++number) {
        const SegmentTime segment{number, start, 333};
        bytes += *card.Segment(kSmall, segment);
        start = segment.EndMs();
    }
    const ProbedMedia media = Probe(bytes);
    ASSERT_EQ(media.packets.size(), 59u);
    for (std::size_t i = 0; i < media.packets.size(); ++i) {
        EXPECT_EQ(media.packets[i].dts, static_cast<std::int64_t>(i) * 3600);
    }
}

TEST(TestCardVideo, TheSameSegmentIsTheSameBytesCachedOrNot) {
    TestCard first(SmallCard());
    TestCardOptions forgetful = SmallCard();
    forgetful.cacheBytes = 1;
    TestCard second(forgetful);
    const Bytes bytes = first.Segment(kSmall, Timed(5));
    EXPECT_EQ(first.Segment(kSmall, Timed(5)), bytes);
    EXPECT_EQ(*second.Segment(kSmall, Timed(5)), *bytes);
    second.Segment(kSmall, Timed(6));
    EXPECT_EQ(*second.Segment(kSmall, Timed(5)), *bytes);
    EXPECT_NE(*second.Segment(kSmall, Timed(6)), *bytes);
}

TEST(TestCardVideo, FlashesForTheFirstTenthOfEachSecond) {
    TestCard card(SmallCard());
    const std::vector<int> brightness = BrightnessOfPictures(*card.Segment(kSmall, Timed(2)), 0.5, 0.15);
    ASSERT_EQ(brightness.size(), 25u);
    for (std::size_t i = 0; i < brightness.size(); ++i) {
        EXPECT_EQ(brightness[i] > 180, i < 3) << "frame " << i << ": " << brightness[i];
    }
}

TEST(TestCardSets, DescribeAudioThenTheQualities) {
    const TestCard card(SmallCard());
    ASSERT_EQ(card.Sets().size(), 2u);
    EXPECT_EQ(card.Sets()[0].mimeType, "audio/mp4");
    EXPECT_EQ(card.Sets()[1].mimeType, "video/mp4");
    const Representation& video = card.Sets()[1].representations.at(1);
    EXPECT_EQ(video.id, kSmall);
    EXPECT_EQ(video.height, 90u);
    EXPECT_EQ(video.frameRate, "25");
    EXPECT_TRUE(video.codecs.starts_with("avc1.42")) << video.codecs;
}

TEST(TestCardSets, AQualityItDoesNotHaveHasNoSegments) {
    TestCard card(SmallCard());
    EXPECT_FALSE(card.Segment(4711, Timed(1)));
}

TEST(TestCardSegments, AskedForByManyAtATimeAreAllTheSame) {
    TestCard card(SmallCard());
    std::vector<std::future<Bytes>> clients;
    for (int i = 0; i < 6; ++i) {
        clients.push_back(std::async(std::launch::async, [&card] { return card.Segment(kSmall, Timed(9)); }));
    }
    const Bytes first = clients[0].get();
    ASSERT_TRUE(first);
    for (std::size_t i = 1; i < clients.size(); ++i) {
        EXPECT_EQ(clients[i].get(), first);
    }
}

TEST(TestCardSegments, AreMadeUntilItIsClosed) {
    TestCard card(SmallCard());
    ASSERT_TRUE(card.Segment(kSmall, Timed(1)));
    card.Close();
    EXPECT_FALSE(card.Segment(kSmall, Timed(2)));
    card.Prepare(Timed(3));
}

TEST(TestCardSegments, OfSoundAreGoneOnceForgottenAndTheLaterOnesAreNot) {
    TestCard card(SmallCard());
    ASSERT_TRUE(card.Segment(kAudioRepresentationId, Timed(1)));
    const std::string third = *card.Segment(kAudioRepresentationId, Timed(3));
    card.Forget(Timed(3));
    EXPECT_FALSE(card.Segment(kAudioRepresentationId, Timed(1)));
    EXPECT_EQ(*card.Segment(kAudioRepresentationId, Timed(3)), third);
}

}  // namespace
}  // namespace kvmpd::origin
