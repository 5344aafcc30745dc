#include "origin/FileMedia.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>

#include "origin/LiveOrigin.h"
#include "tests/origin/ProbedSegment.h"
#include "tests/support/TempDir.h"

namespace kvmpd::origin {
namespace {

constexpr int kHeight = 90;
constexpr std::uint32_t kSegmentMs = 500;

SegmentTime Timed(std::int64_t number) {
    return {number, (number - 1) * kSegmentMs, kSegmentMs};
}

class MediaFromAFile : public testing::Test {
  protected:
    std::string Written(const std::string& name, const std::string& bytes) {
        const auto path = dir_.Path() / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path.string();
    }

    // A second of the test card's picture.
    std::string VideoFile() {
        TestCardOptions card;
        card.qualities = {QualityOfHeight(kHeight)};
        return Written("video.mp4", *TestCard(card).Segment(kHeight, {1, 0, 1000}));
    }

    // Three tenths of a second of its sound: all of the beep and some silence.
    std::string SoundFile() {
        return Written("sound.m4a", AudioTrack(kAudioBitrate, TestCardSound).Segment(0, 300, {}));
    }

    FileMediaOptions Options(const std::string& path) {
        FileMediaOptions options;
        options.path = path;
        options.heights = {72, kHeight, 360};
        options.timeline.durationsMs = {kSegmentMs};
        return options;
    }

    static std::string Served(FileMedia& media, int id, std::int64_t count) {
        std::string bytes;
        for (std::int64_t number = 1; number <= count; ++number) {
            const Bytes segment = media.Segment(id, Timed(number));
            bytes += segment ? *segment : std::string();
        }
        return bytes;
    }

    static std::string ErrorOf(const FileMediaOptions& options) {
        try {
            FileMedia media(options);
        } catch (const OriginError& error) {
            return error.what();
        }
        return "opened";
    }

  private:
    test::TempDir dir_;
};

TEST_F(MediaFromAFile, OffersTheHeightsThatAreNotAboveItsOwn) {
    FileMedia media(Options(VideoFile()));
    const auto& video = media.Sets().at(1).representations;
    ASSERT_EQ(video.size(), 2u);
    EXPECT_EQ(video[0].height, 72u);
    EXPECT_EQ(video[1].height, 90u);
    EXPECT_EQ(video[1].width, 160u);
}

TEST_F(MediaFromAFile, OffersItsOwnHeightWhenAllOthersAreAboveIt) {
    FileMediaOptions options = Options(VideoFile());
    options.heights = {360, 720};
    FileMedia media(options);
    ASSERT_EQ(media.Sets().at(1).representations.size(), 1u);
    EXPECT_EQ(media.Sets().at(1).representations[0].height, 90u);
}

TEST_F(MediaFromAFile, GoesOnWithContinuousTimesAtItsEnd) {
    FileMedia media(Options(VideoFile()));
    const std::string bytes = Served(media, kHeight, 5);
    const ProbedMedia probed = Probe(bytes);
    ASSERT_EQ(probed.packets.size(), 63u);
    for (std::size_t i = 0; i < probed.packets.size(); ++i) {
        EXPECT_EQ(probed.packets[i].dts, static_cast<std::int64_t>(i) * 3600);
    }
    // The flash at the second's start comes again with each pass.
    const auto brightness = BrightnessOfPictures(bytes, 0.5, 0.15);
    for (const std::size_t second : {0u, 25u, 50u}) {
        EXPECT_GT(brightness.at(second + 1), 180);
        EXPECT_LT(brightness.at(second + 10), 180);
    }
}

TEST_F(MediaFromAFile, HasSilenceWhenTheFileHasNoSound) {
    FileMedia media(Options(VideoFile()));
    const auto samples = DecodedSamples(Served(media, kAudioRepresentationId, 3));
    ASSERT_GT(samples.size(), 70'000u);
    EXPECT_EQ(std::ranges::count_if(samples, [](float sample) { return std::abs(sample) > 0.001F; }), 0);
}

TEST_F(MediaFromAFile, ShowsTheTestCardWhenTheFileHasNoPictureAndRepeatsItsSound) {
    FileMedia media(Options(SoundFile()));
    EXPECT_EQ(media.Sets().at(1).representations.size(), 3u);
    EXPECT_EQ(Probe(Served(media, kHeight, 2)).packets.size(), 25u);
    // Fifteen frames are 320 ms: the beep is heard again in each of these passes.
    const auto samples = DecodedSamples(Served(media, kAudioRepresentationId, 4));
    for (const std::size_t pass : {1u, 2u, 3u}) {
        const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(pass * 320 * 48);
        EXPECT_GT(*std::max_element(begin + 20 * 48, begin + 80 * 48), 0.3F) << pass;
        EXPECT_LT(*std::max_element(begin + 150 * 48, begin + 250 * 48), 0.05F) << pass;
    }
}

TEST_F(MediaFromAFile, EncodesItsHistoryAtOnceAndNoFurtherThanAsked) {
    FileMedia media(Options(VideoFile()));
    EXPECT_TRUE(media.WaitForHistory());
    media.Prepare(Timed(4));
    EXPECT_TRUE(media.Segment(kHeight, Timed(5)));
}

TEST_F(MediaFromAFile, ForgetsWhatItIsToldTo) {
    FileMedia media(Options(VideoFile()));
    ASSERT_TRUE(media.WaitForHistory());
    media.Forget(Timed(3));
    EXPECT_FALSE(media.Segment(kHeight, Timed(2)));
    EXPECT_TRUE(media.Segment(kHeight, Timed(3)));
}

TEST_F(MediaFromAFile, ClosingEndsTheWaitForASegment) {
    FileMedia media(Options(VideoFile()));
    media.Close();
    EXPECT_FALSE(media.Segment(kHeight, Timed(1000)));
}

TEST_F(MediaFromAFile, SaysWhatIsWrongWithTheFile) {
    EXPECT_EQ(ErrorOf(Options("/nowhere/film.mkv")), "cannot open /nowhere/film.mkv: No such file or directory");
    const std::string garbage = Written("garbage.bin", "no media");
    EXPECT_EQ(ErrorOf(Options(garbage)), "cannot open " + garbage + ": Invalid data found when processing input");
}

}  // namespace
}  // namespace kvmpd::origin
