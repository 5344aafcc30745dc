// From segments to a finished file, without a pump: what the demuxer takes apart and what the recording makes of it.

#include <gtest/gtest.h>

#include <fstream>

#include "app/BoxReader.h"
#include "app/FragmentAssembler.h"
#include "app/FragmentDemuxer.h"
#include "app/Recording.h"
#include "tests/app/TestMedia.h"
#include "tests/support/TempDir.h"

namespace kvmpd::app {
namespace {

using test::Bytes;
using test::MediaShape;

std::vector<Bytes> Fragments(const std::vector<Bytes>& segments) {
    test::FakeSource source;
    for (const Bytes& segment : segments) {
        test::Append(source.video, segment);
    }
    BoxReader reader(source, 0);
    FragmentAssembler assembler;
    std::vector<Bytes> fragments;
    Box box;
    while (reader.Next(box) == ReadStatus::kOk) {
        if (auto file = assembler.Accept(std::move(box))) {
            fragments.push_back(std::move(*file));
        }
    }
    return fragments;
}

DemuxedFragment Demux(const Bytes& file, Track track) {
    DemuxedFragment fragment;
    std::string error;
    EXPECT_TRUE(DemuxFragment(file, track, fragment, error)) << error;
    return fragment;
}

double Seconds(std::int64_t time, AVRational timeBase) {
    return static_cast<double>(time) * av_q2d(timeBase);
}

TEST(FragmentDemuxerVideo, KeepsTheStreamsDecodeTimes) {
    const auto fragments = Fragments(test::MakeVideoSegments({.segments = 2, .startSeconds = 1'000'000}));
    ASSERT_EQ(fragments.size(), 2u);
    for (std::size_t n = 0; n < 2; ++n) {
        const DemuxedFragment fragment = Demux(fragments[n], Track::kVideo);
        ASSERT_EQ(fragment.packets.size(), 25u);
        EXPECT_NEAR(Seconds(fragment.packets.front()->dts, fragment.timeBase), 1'000'000.0 + static_cast<double>(n),
                    1e-6);
        EXPECT_EQ(fragment.packets.front()->pts, fragment.packets.front()->dts);
        EXPECT_TRUE(fragment.packets.front()->flags & AV_PKT_FLAG_KEY);
        EXPECT_EQ(fragment.parameters->width, 64);
        EXPECT_GT(fragment.parameters->extradata_size, 0);
    }
}

TEST(FragmentDemuxerAudio, KnowsTheSampleRateAndTheTimes) {
    const auto fragments = Fragments(test::MakeAudioSegments({.segments = 2, .startSeconds = 50}));
    ASSERT_EQ(fragments.size(), 2u);
    const DemuxedFragment first = Demux(fragments[0], Track::kAudio);
    const DemuxedFragment second = Demux(fragments[1], Track::kAudio);
    EXPECT_EQ(first.parameters->sample_rate, test::kSampleRate);
    EXPECT_EQ(first.parameters->ch_layout.nb_channels, 1);
    EXPECT_NEAR(Seconds(first.packets.front()->dts, first.timeBase), 50, 0.03);
    const AVPacket& last = *first.packets.back();
    EXPECT_EQ(last.dts + last.duration, second.packets.front()->dts);
}

TEST(FragmentDemuxerErrors, AreSaidInWords) {
    DemuxedFragment fragment;
    std::string error;
    EXPECT_FALSE(
        DemuxFragment(test::ToBytes("this is no media at all, whatever it is"), Track::kVideo, fragment, error));
    EXPECT_FALSE(error.empty());
    const auto audio = Fragments(test::MakeAudioSegments({.segments = 1}));
    EXPECT_FALSE(DemuxFragment(audio.front(), Track::kVideo, fragment, error));
    EXPECT_EQ(error, "there is no video track in it");
}

TEST(FragmentDemuxerErrors, EveryCutOfAFragmentIsHarmless) {
    const Bytes whole = Fragments(test::MakeVideoSegments({.segments = 1})).front();
    for (std::size_t length = 0; length < whole.size(); length += 97) {
        DemuxedFragment fragment;
        std::string error;
        if (!DemuxFragment(std::span(whole).first(length), Track::kVideo, fragment, error)) {
            EXPECT_FALSE(error.empty());
        }
        EXPECT_LE(fragment.packets.size(), 25u);
    }
}

class RecordingToAFile : public testing::Test {
  protected:
    std::string Path() const { return (m_dir.Path() / "out.mkv").string(); }

    void Open(const Recording::Options& options) {
        std::string error;
        m_output = OutputFile::Open(Path(), /*overwrite=*/false, error);
        ASSERT_TRUE(m_output) << error;
        m_recording = std::make_unique<Recording>(*m_output, options);
    }

    Recording::Result Add(Track track, const std::vector<Bytes>& segments) {
        Recording::Result result = Recording::Result::kGoOn;
        for (const Bytes& file : Fragments(segments)) {
            result = m_recording->Add(track, Demux(file, track));
        }
        return result;
    }

    test::FileFacts FinishAndInspect() {
        EXPECT_TRUE(m_recording->Finish()) << m_recording->Error();
        return test::Inspect(Path());
    }

    kvmpd::test::TempDir m_dir;
    std::unique_ptr<OutputFile> m_output;
    std::unique_ptr<Recording> m_recording;
};

TEST_F(RecordingToAFile, HoldsEveryPacketAndStartsNearZero) {
    Open({});
    const MediaShape shape{.segments = 3, .startSeconds = 1'700'000'000};
    EXPECT_EQ(Add(Track::kVideo, test::MakeVideoSegments(shape)), Recording::Result::kGoOn);
    EXPECT_FALSE(m_recording->Snapshot().begun);  // not before the audio is known
    EXPECT_EQ(Add(Track::kAudio, test::MakeAudioSegments(shape)), Recording::Result::kGoOn);
    const auto facts = FinishAndInspect();
    const auto summary = m_recording->Snapshot();
    ASSERT_TRUE(facts.opened);
    EXPECT_EQ(facts.videoPackets, 75);
    EXPECT_EQ(facts.videoPackets, summary.tracks[0].packets);
    EXPECT_EQ(facts.audioPackets, summary.tracks[1].packets);
    EXPECT_NEAR(facts.duration, static_cast<double>(summary.durationMs) / 1000, 0.0015);
    EXPECT_NEAR(facts.duration, 3.0, 0.05);
    EXPECT_NEAR(facts.start, 0, 0.001);
    EXPECT_TRUE(facts.firstVideoIsKey);
    EXPECT_EQ(facts.videoCodec, summary.videoCodec);
    EXPECT_EQ(facts.audioCodec, "aac");
    EXPECT_EQ(facts.width, 64);
    EXPECT_EQ(summary.bytes, static_cast<std::int64_t>(std::filesystem::file_size(Path())));
    EXPECT_EQ(summary.tracks[0].gaps + summary.tracks[1].gaps, 0);
}

TEST_F(RecordingToAFile, KeepsTheStreamsClockWhenAsked) {
    Open({.limitUs = {}, .keepTimestamps = true});
    const MediaShape shape{.segments = 1, .startSeconds = 3600};
    Add(Track::kVideo, test::MakeVideoSegments(shape));
    Add(Track::kAudio, test::MakeAudioSegments(shape));
    const auto facts = FinishAndInspect();
    EXPECT_NEAR(facts.start, 3600, 0.001);
    EXPECT_EQ(m_recording->Snapshot().recordedMs / 100, 10);
}

TEST_F(RecordingToAFile, KeepsTheDistanceBetweenSoundAndPicture) {
    Open({});
    auto video = test::MakeVideoSegments({.segments = 2, .startSeconds = 10});
    Add(Track::kVideo, {video[1]});  // the picture starts a second after the sound
    Add(Track::kAudio, test::MakeAudioSegments({.segments = 2, .startSeconds = 10}));
    EXPECT_NEAR(FinishAndInspect().start, 1.0, 0.03);
}

TEST_F(RecordingToAFile, EndsAtTheLimit) {
    Open({.limitUs = 1'500'000});
    const MediaShape shape{.segments = 3};
    EXPECT_EQ(Add(Track::kVideo, test::MakeVideoSegments(shape)), Recording::Result::kGoOn);
    EXPECT_EQ(Add(Track::kAudio, test::MakeAudioSegments(shape)), Recording::Result::kLimitReached);
    const auto facts = FinishAndInspect();
    EXPECT_EQ(facts.videoPackets, 38);  // 1.5 s of 40 ms, the last one begun
    EXPECT_NEAR(facts.duration, 1.5, 0.05);
}

TEST_F(RecordingToAFile, LeavesRepeatedMediaOutAndCountsGaps) {
    Open({});
    const auto video = test::MakeVideoSegments({.segments = 4});
    const auto audio = test::MakeAudioSegments({.segments = 4});
    Add(Track::kVideo, {video[0], video[1], video[0], video[1], video[3]});
    Add(Track::kAudio, {audio[0], audio[1], audio[0], audio[1], audio[3]});
    const auto facts = FinishAndInspect();
    const auto summary = m_recording->Snapshot();
    EXPECT_EQ(facts.videoPackets, 75);
    EXPECT_EQ(summary.tracks[0].repeated, 50);
    EXPECT_EQ(summary.tracks[0].gaps, 1);
    EXPECT_EQ(summary.tracks[0].missingUs, 1'000'000);
    EXPECT_EQ(summary.tracks[1].gaps, 1);
    EXPECT_NEAR(facts.duration, 4.0, 0.05);
}

TEST_F(RecordingToAFile, StopsWhereTheCodecChanges) {
    Open({});
    Add(Track::kVideo, test::MakeVideoSegments({.segments = 1}));
    Add(Track::kAudio, test::MakeAudioSegments({.segments = 1}));
    EXPECT_EQ(Add(Track::kVideo, test::MakeVideoSegments({.segments = 1, .startSeconds = 1, .width = 96})),
              Recording::Result::kCodecChanged);
    EXPECT_EQ(m_recording->Error(), "the stream's video changed from 64x48 to 96x48");
    EXPECT_EQ(FinishAndInspect().videoPackets, 25);
}

TEST_F(RecordingToAFile, TakesNothingAfterItsEnd) {
    Open({});
    const auto video = test::MakeVideoSegments({.segments = 2});
    Add(Track::kVideo, {video[0]});
    Add(Track::kAudio, test::MakeAudioSegments({.segments = 1}));
    EXPECT_TRUE(m_recording->Finish());
    EXPECT_TRUE(m_recording->Finish());
    EXPECT_EQ(Add(Track::kVideo, {video[1]}), Recording::Result::kFinished);
    EXPECT_EQ(test::Inspect(Path()).videoPackets, 25);
}

TEST_F(RecordingToAFile, WithoutMediaLeavesNoFile) {
    Open({});
    EXPECT_TRUE(m_recording->Finish());
    m_recording.reset();
    m_output.reset();
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST(RecordingErrors, SayWhyTheOutputFailed) {
    std::string error;
    const auto output = OutputFile::Open("/dev/full", /*overwrite=*/true, error);
    if (!output) {
        GTEST_SKIP() << "there is no /dev/full here: " << error;
    }
    Recording recording(*output, {});
    const Bytes video = Fragments(test::MakeVideoSegments({.segments = 1})).front();
    const Bytes audio = Fragments(test::MakeAudioSegments({.segments = 1})).front();
    recording.Add(Track::kVideo, Demux(video, Track::kVideo));
    recording.Add(Track::kAudio, Demux(audio, Track::kAudio));
    recording.Finish();
    EXPECT_EQ(output->GetState(), OutputFile::State::kFailed);
    EXPECT_NE(recording.Error().find("\"/dev/full\" failed: No space left on device"), std::string::npos)
        << recording.Error();
}

}  // namespace
}  // namespace kvmpd::app
