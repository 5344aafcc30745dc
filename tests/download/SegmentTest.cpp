#include "download/Segment.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace kvmpd {
namespace {

using test::LogCapture;
using Lines = std::vector<std::string>;

class SegmentFiles : public testing::Test {
  protected:
    /// Makes a file and answers its path as a segment holds it.
    std::wstring Make(const char* name) const {
        const std::filesystem::path path = m_dir.Path() / name;
        std::ofstream(path) << "media";
        return path.wstring();
    }
    bool Exists(const char* name) const { return std::filesystem::exists(m_dir.Path() / name); }
    std::wstring Missing() const { return (m_dir.Path() / "missing").wstring(); }

  private:
    test::TempDir m_dir;
};

TEST(SegmentRecord, IsEmptyWhenNew) {
    const Segment segment;
    EXPECT_EQ(segment.m_videoUrl, "");
    EXPECT_EQ(segment.m_audioUrl, "");
    EXPECT_EQ(segment.m_duration, 0);
    EXPECT_EQ(segment.m_segmentNumber, 0);
    EXPECT_EQ(segment.m_videoSize, 0);
    EXPECT_EQ(segment.m_videoFile, L"");
    EXPECT_EQ(segment.m_audioSize, 0);
    EXPECT_EQ(segment.m_audioFile, L"");
}

TEST(SegmentRecord, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Segment>);
    EXPECT_FALSE(std::is_copy_assignable_v<Segment>);
}

TEST(SegmentEndMarker, NeedsNoVideoSizeNoDurationAndNoVideoUrl) {
    Segment segment;
    EXPECT_TRUE(segment.IsEndMarker());
    segment.m_audioUrl = "http://host/a";
    segment.m_audioSize = 5;
    segment.m_segmentNumber = 9;
    EXPECT_TRUE(segment.IsEndMarker()) << "only the three tests count";
}

TEST(SegmentEndMarker, IsNotASegmentWithADuration) {
    Segment segment;
    segment.m_duration = 1;
    EXPECT_FALSE(segment.IsEndMarker());
}

TEST(SegmentEndMarker, IsNotASegmentWithAVideoUrl) {
    Segment segment;
    segment.m_videoUrl = "http://host/v";
    EXPECT_FALSE(segment.IsEndMarker());
}

TEST_F(SegmentFiles, SegmentWithAVideoSizeIsNoEndMarker) {
    Segment segment;
    segment.m_videoSize = 1;
    segment.m_videoFile = Make("7.mp4");
    EXPECT_FALSE(segment.IsEndMarker());
}

TEST_F(SegmentFiles, BothAreDeletedVideoFirst) {
    const LogCapture log(6);
    {
        Segment segment;
        segment.m_videoFile = Make("7.mp4");
        segment.m_videoSize = 5;
        segment.m_audioFile = Make("7.m4a");
        segment.m_audioSize = 5;
    }
    EXPECT_FALSE(Exists("7.mp4"));
    EXPECT_FALSE(Exists("7.m4a"));
    EXPECT_EQ(log.Lines(), (Lines{" Segment::~Segment delete file: 1", " Segment::~Segment delete audio file: 1"}));
}

TEST_F(SegmentFiles, OnlyTheAudioIsDeletedWhenOnlyItHasASize) {
    const LogCapture log(6);
    {
        Segment segment;
        segment.m_videoFile = Make("7.mp4");
        segment.m_videoSize = 0;
        segment.m_audioFile = Make("7.m4a");
        segment.m_audioSize = 5;
    }
    EXPECT_TRUE(Exists("7.mp4")) << "a partial file stays";
    EXPECT_FALSE(Exists("7.m4a"));
    EXPECT_EQ(log.Lines(), Lines{" Segment::~Segment delete audio file: 1"});
}

TEST_F(SegmentFiles, OnlyTheVideoIsDeletedWhenOnlyItHasASize) {
    const LogCapture log(6);
    {
        Segment segment;
        segment.m_videoFile = Make("7.mp4");
        segment.m_videoSize = 5;
        segment.m_audioFile = Make("7.m4a");
    }
    EXPECT_FALSE(Exists("7.mp4"));
    EXPECT_TRUE(Exists("7.m4a"));
    EXPECT_EQ(log.Lines(), Lines{" Segment::~Segment delete file: 1"});
}

TEST_F(SegmentFiles, FileThatIsGoneGivesTheLineWithZero) {
    const LogCapture log(6);
    {
        Segment segment;
        segment.m_videoFile = Missing();
        segment.m_videoSize = 5;
        segment.m_audioFile = Missing();
        segment.m_audioSize = 5;
    }
    EXPECT_EQ(log.Lines(), (Lines{" Segment::~Segment delete file: 0", " Segment::~Segment delete audio file: 0"}));
}

TEST_F(SegmentFiles, AreDeletedSilentlyBelowLevelSix) {
    const LogCapture log(5);
    {
        Segment segment;
        segment.m_videoFile = Make("7.mp4");
        segment.m_videoSize = 5;
        segment.m_audioFile = Make("7.m4a");
        segment.m_audioSize = 5;
    }
    EXPECT_FALSE(Exists("7.mp4"));
    EXPECT_FALSE(Exists("7.m4a"));
    EXPECT_EQ(log.Lines(), Lines{});
}

}  // namespace
}  // namespace kvmpd
