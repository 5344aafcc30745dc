#include "app/BoxReader.h"

#include <gtest/gtest.h>

#include "tests/app/FakeSource.h"

namespace kvmpd::app {
namespace {

using test::Append;
using test::Bytes;
using test::FakeSource;
using test::MakeBox;
using test::MakeLongBox;

TEST(BoxReaderBoxes, AreReadWhole) {
    FakeSource source;
    Append(source.video, MakeBox("ftyp", {1, 2, 3}));
    Append(source.video, MakeBox("free", {}));
    BoxReader reader(source, 0);
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.type, FourCc("ftyp"));
    EXPECT_EQ(box.position, 0);
    EXPECT_EQ(box.bytes, MakeBox("ftyp", {1, 2, 3}));
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.type, FourCc("free"));
    EXPECT_EQ(box.position, 11);
    EXPECT_EQ(box.bytes.size(), 8u);
    EXPECT_EQ(reader.Position(), 19);
}

TEST(BoxReaderBoxes, ReadHeaderThenExactlyTheBody) {
    FakeSource source;
    source.video = MakeBox("mdat", Bytes(600'000, 7));
    BoxReader reader(source, 0);
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.bytes, source.video);
    ASSERT_GE(source.reads.size(), 2u);
    EXPECT_EQ(source.reads.front().length, 8u);
    std::int64_t next = 0;
    for (const auto& read : source.reads) {
        EXPECT_EQ(read.position, next);
        next += static_cast<std::int64_t>(read.length);
    }
    EXPECT_EQ(next, static_cast<std::int64_t>(source.video.size()));
}

TEST(BoxReaderBoxes, MayHaveA64BitSize) {
    FakeSource source;
    Append(source.video, MakeLongBox("mdat", {9, 9}));
    Append(source.video, MakeBox("free", {}));
    BoxReader reader(source, 0);
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.type, FourCc("mdat"));
    EXPECT_EQ(box.bytes, MakeLongBox("mdat", {9, 9}));
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.type, FourCc("free"));
}

TEST(BoxReaderBoxes, OfAudioLieAboveTheBase) {
    FakeSource source;
    source.audio = MakeBox("ftyp", {5});
    BoxReader reader(source, kAudioPositionBase);
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(source.reads.front().position, kAudioPositionBase);
    EXPECT_EQ(box.position, 0);
    EXPECT_EQ(reader.Position(), 9);
}

TEST(BoxReaderWaiting, GoesOnWhereItLeftOff) {
    FakeSource source;
    const Bytes whole = MakeBox("mdat", Bytes(300'000, 3));
    source.audio.assign(whole.begin(), whole.begin() + 262'200);  // audio, of which nothing can be asked in advance
    BoxReader reader(source, kAudioPositionBase);
    Box box;
    EXPECT_EQ(reader.Next(box), ReadStatus::kNotYet);
    EXPECT_FALSE(reader.AtBoundary());
    const std::size_t before = source.reads.size();
    const std::int64_t reached = source.reads.back().position;
    source.audio = whole;
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.bytes, whole);
    EXPECT_EQ(source.reads.at(before).position, reached);  // nothing was read twice
    EXPECT_TRUE(reader.AtBoundary());
}

TEST(BoxReaderWaiting, KeepsItsPlaceThroughErrors) {
    FakeSource source;
    source.video = MakeBox("ftyp", {1});
    BoxReader reader(source, 0);
    Box box;
    for (const ReadStatus status : {ReadStatus::kReleased, ReadStatus::kFailed, ReadStatus::kInterrupted}) {
        source.nextResult = status;
        EXPECT_EQ(reader.Next(box), status);
    }
    EXPECT_EQ(reader.Next(box), ReadStatus::kOk);
}

TEST(BoxReaderProbe, AsksForTheNextHeaderWithoutReading) {
    FakeSource source;
    Append(source.video, MakeBox("ftyp", {1}));
    BoxReader reader(source, 0);
    EXPECT_EQ(reader.ProbeNext(), ReadStatus::kOk);
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(reader.ProbeNext(), ReadStatus::kNotYet);
    EXPECT_EQ(source.waits, 0);
}

class NoBox : public testing::TestWithParam<Bytes> {};

TEST_P(NoBox, IsNotTakenForOne) {
    FakeSource source;
    source.video = GetParam();
    source.video.resize(source.video.size() + 64);
    BoxReader reader(source, 0);
    Box box;
    EXPECT_EQ(reader.Next(box), ReadStatus::kUnreadable);
    EXPECT_EQ(reader.Position(), 0);
}

INSTANTIATE_TEST_SUITE_P(Bytes, NoBox,
                         testing::Values(test::ToBytes("<!DOCTYPE html><html>"), test::ToBytes("Not Found"),
                                         test::ToBytes("    {\"error\": 404}"),
                                         Bytes{0, 0, 0, 7, 'f', 't', 'y', 'p'},     // smaller than its header
                                         Bytes{0, 0, 0, 0, 'm', 'd', 'a', 't'},     // "to the end of the file"
                                         Bytes{0, 0, 0, 16, 0, 1, 2, 3},            // no type
                                         Bytes{0x40, 0, 0, 0, 'm', 'd', 'a', 't'},  // a gigabyte
                                         test::ToBytes("\n\n<html><body>"), test::ToBytes("\r\n<html><body>"),
                                         MakeLongBox("mdat", {}, 15), MakeLongBox("mdat", {}, 0),
                                         MakeLongBox("mdat", {}, 0xFFFFFFFFFFFFFFFF)));

TEST(BoxReaderSkipping, FindsTheNextSegment) {
    FakeSource source;
    source.video = test::ToBytes("<html>no such segment</html>");
    const auto garbage = static_cast<std::int64_t>(source.video.size());
    Append(source.video, MakeBox("ftyp", {1}));
    BoxReader reader(source, 0);
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kUnreadable);
    ASSERT_EQ(reader.SkipToNextBox(), ReadStatus::kOk);
    EXPECT_EQ(reader.SkippedBytes(), garbage);
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.type, FourCc("ftyp"));
    EXPECT_EQ(box.position, garbage);
}

TEST(BoxReaderSkipping, DoesNotWaitForVideoThatIsNotThere) {
    FakeSource source;
    source.video = test::ToBytes("garbage without an end in sight");
    BoxReader reader(source, 0);
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kUnreadable);
    EXPECT_EQ(reader.SkipToNextBox(), ReadStatus::kNotYet);
    EXPECT_EQ(source.waits, 0);
    Append(source.video, MakeBox("moof", {}));
    EXPECT_EQ(reader.SkipToNextBox(), ReadStatus::kOk);
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.type, FourCc("moof"));
}

TEST(BoxReaderSkipping, PassesAHeaderWhoseLongSizeIsNonsense) {
    FakeSource source;
    source.video = MakeLongBox("moof", {}, 3);
    Append(source.video, MakeBox("ftyp", {}));
    BoxReader reader(source, 0);
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kUnreadable);
    ASSERT_EQ(reader.SkipToNextBox(), ReadStatus::kOk);
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.type, FourCc("ftyp"));
}

Bytes Segment(std::size_t mediaBytes, std::uint8_t fill) {
    Bytes segment = MakeBox("ftyp", Bytes(16, 'i'));
    Append(segment, MakeBox("moov", Bytes(600, 2)));
    Append(segment, MakeBox("moof", Bytes(80, 3)));
    Append(segment, MakeBox("mdat", Bytes(mediaBytes, fill)));
    return segment;
}

Bytes Cut(Bytes bytes, std::size_t missing) {
    bytes.resize(bytes.size() - missing);
    return bytes;
}

// Reads on until nothing more is there; the boxes that are whole, in order. Flaws are counted.
std::vector<Box> ReadAll(BoxReader& reader, int& flaws, bool canProbe = true) {
    std::vector<Box> boxes;
    for (;;) {
        Box box;
        if (canProbe && reader.AtBoundary() && reader.ProbeNext() != ReadStatus::kOk) {
            return boxes;
        }
        ReadStatus status = reader.Next(box);
        if (status == ReadStatus::kOk) {
            boxes.push_back(std::move(box));
            continue;
        }
        if (status == ReadStatus::kUnreadable) {
            ++flaws;
            status = reader.SkipToNextBox();
        }
        if (status != ReadStatus::kOk) {
            return boxes;
        }
    }
}

struct CutCase {
    const char* name;
    std::size_t mediaBytes;
    std::size_t missing;
};

class CutShort : public testing::TestWithParam<CutCase> {
  protected:
    void LosesNothingOfTheNextOne(bool audio) {
        FakeSource source;
        Bytes& track = audio ? source.audio : source.video;
        BoxReader reader(source, audio ? kAudioPositionBase : 0);
        const Bytes first = Cut(Segment(GetParam().mediaBytes, 7), GetParam().missing);
        track = first;
        Append(track, Segment(5000, 8));
        Append(track, Segment(3000, 9));
        int flaws = 0;
        const std::vector<Box> boxes = ReadAll(reader, flaws, /*canProbe=*/!audio);
        EXPECT_EQ(flaws, 1);
        // All boxes of the second and third segment are there, in their places.
        ASSERT_GE(boxes.size(), 8u);
        Bytes read;
        for (std::size_t n = boxes.size() - 8; n < boxes.size(); ++n) {
            Append(read, boxes[n].bytes);
        }
        EXPECT_EQ(read, Bytes(track.begin() + static_cast<std::ptrdiff_t>(first.size()), track.end()));
        EXPECT_EQ(boxes[boxes.size() - 8].position, static_cast<std::int64_t>(first.size()));
        EXPECT_EQ(reader.Position(), static_cast<std::int64_t>(track.size()));
    }
};

TEST_P(CutShort, AVideoSegmentLosesNothingOfTheNextOne) {
    LosesNothingOfTheNextOne(/*audio=*/false);
}

TEST_P(CutShort, AnAudioSegmentLosesNothingOfTheNextOne) {
    LosesNothingOfTheNextOne(/*audio=*/true);
}

// The box's end is not there although its header is; of video so much can be seen without waiting.
TEST_P(CutShort, AVideoSegmentIsNoticedBeforeTheNextOneExists) {
    FakeSource source;
    source.video = Cut(Segment(GetParam().mediaBytes, 7), GetParam().missing);
    BoxReader reader(source, 0);
    int flaws = 0;
    for (const Box& box : ReadAll(reader, flaws)) {
        EXPECT_NE(box.type, FourCc("mdat"));
    }
    EXPECT_EQ(flaws, 1);
    EXPECT_EQ(reader.WhatIsWrong(), BoxReader::Flaw::kCutShort);
    Append(source.video, Segment(100, 8));
    ASSERT_EQ(reader.SkipToNextBox(), ReadStatus::kOk);
    EXPECT_EQ(ReadAll(reader, flaws).size(), 4u);
    EXPECT_EQ(flaws, 1);
    EXPECT_EQ(source.waits, 0);
}

INSTANTIATE_TEST_SUITE_P(Segments, CutShort,
                         testing::Values(CutCase{"InTheMiddle", 4000, 1000}, CutCase{"ByOneByte", 4000, 1},
                                         CutCase{"BySevenBytes", 4000, 7}, CutCase{"ByEightBytes", 4000, 8},
                                         CutCase{"ByAlmostAll", 4000, 3999}, CutCase{"Large", 700'000, 300'000},
                                         CutCase{"InItsMoof", 4000, 4050}, CutCase{"InItsMoov", 4000, 4300},
                                         CutCase{"ByMoreThanTheNextOnes", 2'000'000, 1'900'000}),
                         [](const auto& tested) { return std::string(tested.param.name); });

// One segment that follows is enough; the reader does not hold out for all that the cut one announced.
TEST(BoxReaderCutAudio, GoesOnWithTheNextSegmentAlone) {
    FakeSource source;
    source.audio = Cut(Segment(900'000, 7), 890'000);
    Append(source.audio, Segment(1000, 8));
    BoxReader reader(source, kAudioPositionBase);
    int flaws = 0;
    EXPECT_EQ(ReadAll(reader, flaws, /*canProbe=*/false).back().bytes.size(), 1008u);
    EXPECT_EQ(flaws, 1);
}

TEST(BoxReaderReleased, GoesOnWithTheEarliestThatIsThere) {
    for (const bool audio : {false, true}) {
        FakeSource source;
        Bytes& track = audio ? source.audio : source.video;
        for (int n = 0; n < 40; ++n) {
            Append(track, Segment(9'000, 1));
        }
        const std::size_t segment = track.size() / 40;
        BoxReader reader(source, audio ? kAudioPositionBase : 0);
        Box box;
        ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
        source.released = static_cast<std::int64_t>(31 * segment);
        ASSERT_EQ(reader.Next(box), ReadStatus::kReleased);
        ASSERT_EQ(reader.MoveToEarliest(), ReadStatus::kOk);
        EXPECT_EQ(reader.Position(), source.released);
        ASSERT_EQ(reader.SkipToNextBox(), ReadStatus::kOk);
        int flaws = 0;
        EXPECT_EQ(ReadAll(reader, flaws, !audio).size(), 9u * 4u);
        EXPECT_EQ(flaws, 0);
    }
}

TEST(BoxReaderReleased, WaitsWhereNothingIsLeft) {
    FakeSource source;
    source.video = Segment(50'000, 1);
    BoxReader reader(source, 0);
    source.released = static_cast<std::int64_t>(source.video.size());
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kReleased);
    ASSERT_EQ(reader.MoveToEarliest(), ReadStatus::kOk);
    EXPECT_EQ(reader.SkipToNextBox(), ReadStatus::kNotYet);
    Append(source.video, Segment(100, 2));
    EXPECT_EQ(reader.SkipToNextBox(), ReadStatus::kOk);
    EXPECT_EQ(source.waits, 0);
}

TEST(BoxReaderRestart, BeginsAtZeroAgain) {
    FakeSource source;
    Append(source.video, MakeBox("ftyp", {1}));
    source.video.push_back(0);
    BoxReader reader(source, 0);
    Box box;
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(reader.Next(box), ReadStatus::kNotYet);
    source.video = MakeBox("moov", {2});
    reader.Restart();
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.type, FourCc("moov"));
    EXPECT_EQ(box.position, 0);
}

}  // namespace
}  // namespace kvmpd::app
