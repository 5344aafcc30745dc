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
    source.video.assign(whole.begin(), whole.begin() + 262'200);  // the header and the first piece of the body
    BoxReader reader(source, 0);
    Box box;
    EXPECT_EQ(reader.Next(box), ReadStatus::kNotYet);
    EXPECT_FALSE(reader.AtBoundary());
    const std::size_t before = source.reads.size();
    source.video = whole;
    ASSERT_EQ(reader.Next(box), ReadStatus::kOk);
    EXPECT_EQ(box.bytes, whole);
    EXPECT_EQ(source.reads.size(), before + 1);  // nothing was read twice
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
