#include <gtest/gtest.h>

#include <limits>

#include "stream/BufferHandler.h"
#include "tests/stream/RingTestAccess.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

using Access = BufferHandlerTestAccess;

class BufferHandlerOfSixteen : public testing::Test {
  protected:
    static constexpr DWORD kSize = 16;
    static constexpr DWORD kUntouched = 12345;

    BufferHandlerOfSixteen() { EXPECT_EQ(m_handler.Init(kSize), S_OK); }

    HRESULT Write(LONGLONG fileOffset, DWORD length) {
        m_written = kUntouched;
        return m_handler.WriteBinaryFromFile(m_file.Name(), fileOffset, length, m_written);
    }
    /// Reads and compares with the file, which the tests feed from its beginning; the bytes copied.
    DWORD Read(LONGLONG position, DWORD length) {
        std::vector<BYTE> bytes(length);
        const DWORD count = m_handler.ReadBuffer(position, bytes.data(), length);
        bytes.resize(count);
        if (count > 0) {
            EXPECT_EQ(bytes, Pattern(static_cast<size_t>(position), count));
        }
        return count;
    }
    void ExpectRange(LONGLONG start, LONGLONG end) {
        EXPECT_EQ(m_handler.StartPos(), start);
        EXPECT_EQ(m_handler.EndPos(), end);
        EXPECT_EQ(end - start, static_cast<LONGLONG>(Access::Ring(m_handler)->Used()));
    }

    PatternFile m_file{256};
    BufferHandler m_handler;
    DWORD m_written = 0;
};

TEST(BufferHandlerWithoutRing, ReadsNothingAndRefusesAWrite) {
    const PatternFile file(8);
    BufferHandler handler;
    BYTE byte = 0;
    DWORD written = 7;
    const LogCapture log(3);
    EXPECT_FALSE(handler.HasRing());
    EXPECT_EQ(handler.ReadBuffer(5, &byte, 1), 0u);
    EXPECT_TRUE(log.Contains(" BufferHandler::ReadBuffer position: 5, length: 1"));
    EXPECT_EQ(Access::LastAccess(handler), 0);
    EXPECT_EQ(handler.WriteBinaryFromFile(file.Name(), 0, 1, written), E_FAIL);
    EXPECT_EQ(handler.WriteBinaryFromFile(file.Name(), 0, 0, written), S_OK);
    EXPECT_EQ(written, 7u);
    handler.Clear();
}

TEST(BufferHandlerLife, LogsItsClearingAndItsEnd) {
    const LogCapture log(6);
    {
        BufferHandler handler;
        handler.Init(4);
        handler.Clear();
        EXPECT_TRUE(log.Contains(" BufferHandler::Clear "));
        EXPECT_TRUE(log.Contains(" CRingBuffer::Clear "));
    }
    EXPECT_TRUE(log.Contains(" BufferHandler::~BufferHandler "));
    EXPECT_TRUE(log.Contains(" CRingBuffer::Destroy "));
}

TEST_F(BufferHandlerOfSixteen, InitMakesANewEmptyRing) {
    ASSERT_EQ(Write(0, 9), S_OK);
    EXPECT_EQ(m_handler.Init(32), S_OK);
    EXPECT_EQ(Access::Ring(m_handler)->Free(), 31u);
}

TEST_F(BufferHandlerOfSixteen, ServesReadsByPositionAgainAndAgain) {
    ASSERT_EQ(Write(0, 10), S_OK);
    EXPECT_EQ(m_written, 10u);
    ExpectRange(0, 10);
    EXPECT_EQ(Read(0, 4), 4u);
    EXPECT_EQ(Read(0, 4), 4u);
    EXPECT_EQ(Read(5, 4), 4u);
    EXPECT_EQ(Read(2, 1), 1u);
    ExpectRange(0, 10);
}

TEST_F(BufferHandlerOfSixteen, LogsEveryRequest) {
    const LogCapture log(3);
    Read(123456789012, 8);
    EXPECT_TRUE(log.Contains(" BufferHandler::ReadBuffer position: 123456789012, length: 8"));
}

TEST_F(BufferHandlerOfSixteen, DoesNotServeARequestThatEndsAtTheNewestByte) {
    ASSERT_EQ(Write(0, 10), S_OK);
    const LogCapture log(3);
    EXPECT_EQ(Read(6, 4), 0u);
    EXPECT_TRUE(
        log.Contains("[Error] BufferHandler::ReadBuffer failed to get data from buffer for data in 6 that buffer range "
                     "is in 0 ~ 10"));
    EXPECT_EQ(Read(6, 3), 3u);
}

struct Range {
    LONGLONG position;
    DWORD length;
};

class BufferHandlerOutOfRange : public BufferHandlerOfSixteen, public testing::WithParamInterface<Range> {};

TEST_P(BufferHandlerOutOfRange, IsNotServedButRemembered) {
    ASSERT_EQ(Write(0, 15), S_OK);
    Read(10, 0);
    ASSERT_EQ(Write(15, 5), S_OK);
    ExpectRange(5, 20);
    std::vector<BYTE> destination(1);
    EXPECT_EQ(m_handler.ReadBuffer(GetParam().position, destination.data(), GetParam().length), 0u);
    EXPECT_EQ(static_cast<ULONGLONG>(Access::LastAccess(m_handler)),
              static_cast<ULONGLONG>(GetParam().position) + GetParam().length);
}

INSTANTIATE_TEST_SUITE_P(Requests, BufferHandlerOutOfRange,
                         testing::Values(Range{4, 4}, Range{4, 100}, Range{-3, 2}, Range{19, 1}, Range{20, 0},
                                         Range{20, 1}, Range{25, 5}, Range{5, 0xFFFFFFFF}, Range{6, 0xFFFFFFFF},
                                         Range{std::numeric_limits<LONGLONG>::min(), 9},
                                         Range{std::numeric_limits<LONGLONG>::max(), 9}));

TEST_F(BufferHandlerOfSixteen, HasNothingToServeWhileItIsEmpty) {
    EXPECT_EQ(Read(0, 0), 0u);
    EXPECT_EQ(Read(0, 1), 0u);
    m_handler.StartAt(50);
    EXPECT_EQ(Read(50, 0), 0u);
}

TEST_F(BufferHandlerOfSixteen, LeavesTheCountAloneForAnEmptyWrite) {
    EXPECT_EQ(Write(0, 0), S_OK);
    EXPECT_EQ(m_written, kUntouched);
}

TEST_F(BufferHandlerOfSixteen, AWriteThatDoesNotFitIsPartlyDone) {
    Read(0, 4);
    EXPECT_EQ(Write(0, 40), S_OK);
    EXPECT_EQ(m_written, 15u);
    ExpectRange(0, 15);
}

TEST_F(BufferHandlerOfSixteen, AFullRingRefusesWhileTheReaderStandsAtItsStart) {
    ASSERT_EQ(Write(0, 15), S_OK);
    const LogCapture log(6);
    EXPECT_EQ(Write(15, 4), E_OUTOFMEMORY);
    EXPECT_EQ(m_written, kUntouched);
    EXPECT_TRUE(log.Contains(" BufferHandler::WriteBinaryFromFile max write size is 0. Need to free 0."));
    EXPECT_TRUE(
        log.Contains(" BufferHandler::WriteBinaryFromFile does not read buffer due to last access position is 0 and "
                     "buffer start position is 0"));
    ExpectRange(0, 15);
}

TEST_F(BufferHandlerOfSixteen, FreesOnlyWhatAWriteNeeds) {
    ASSERT_EQ(Write(0, 15), S_OK);
    EXPECT_EQ(Read(0, 8), 8u);
    const LogCapture log(6);
    EXPECT_EQ(Write(15, 3), S_OK);
    EXPECT_TRUE(log.Contains(" BufferHandler::WriteBinaryFromFile max write size is 0. Need to free 8."));
    EXPECT_TRUE(log.Contains(" BufferHandler::WriteBinaryFromFile increase 3 start position from 0"));
    EXPECT_EQ(m_written, 3u);
    ExpectRange(3, 18);
    EXPECT_EQ(Read(3, 14), 14u);
}

TEST_F(BufferHandlerOfSixteen, FreesNoMoreThanTheReaderHasPassed) {
    ASSERT_EQ(Write(0, 15), S_OK);
    EXPECT_EQ(Read(0, 2), 2u);
    EXPECT_EQ(Write(15, 10), S_OK);
    EXPECT_EQ(m_written, 2u);
    ExpectRange(2, 17);
    EXPECT_EQ(Write(17, 8), E_OUTOFMEMORY);
}

TEST_F(BufferHandlerOfSixteen, FreesNothingWhileThereIsRoom) {
    ASSERT_EQ(Write(0, 10), S_OK);
    EXPECT_EQ(Read(0, 8), 8u);
    EXPECT_EQ(Write(10, 5), S_OK);
    ExpectRange(0, 15);
}

TEST_F(BufferHandlerOfSixteen, FreesEverythingForAReaderBeyondTheEnd) {
    ASSERT_EQ(Write(0, 15), S_OK);
    EXPECT_EQ(Read(100, 4), 0u);
    EXPECT_EQ(Write(15, 40), S_OK);
    EXPECT_EQ(m_written, 15u);
    ExpectRange(15, 30);
    EXPECT_EQ(Read(15, 14), 14u);
}

TEST_F(BufferHandlerOfSixteen, DoesNotWaitForAReaderThatWentBackBeforeTheStart) {
    ASSERT_EQ(Write(0, 15), S_OK);
    EXPECT_EQ(Read(0, 10), 10u);
    ASSERT_EQ(Write(15, 10), S_OK);
    ExpectRange(10, 25);
    EXPECT_EQ(Read(2, 4), 0u);
    const LogCapture log(6);
    EXPECT_EQ(Write(25, 4), S_OK);
    EXPECT_TRUE(log.Contains(" BufferHandler::WriteBinaryFromFile max write size is 0. Need to free -4."));
    ExpectRange(14, 29);
}

TEST_F(BufferHandlerOfSixteen, LogsWhatItCannotFree) {
    ASSERT_EQ(Write(0, 15), S_OK);
    EXPECT_EQ(Read(0, 10), 10u);
    ASSERT_EQ(Write(15, 10), S_OK);
    EXPECT_EQ(Read(2, 4), 0u);
    const LogCapture log(3);
    EXPECT_EQ(Write(25, 100), E_OUTOFMEMORY);
    EXPECT_TRUE(log.Contains("[Error] BufferHandler::WriteBinaryFromFile failed to read binary 100 to free buffer -4"));
    ExpectRange(10, 25);
}

TEST_F(BufferHandlerOfSixteen, KeepsItsRangeWhenTheFileFails) {
    ASSERT_EQ(Write(0, 5), S_OK);
    EXPECT_EQ(Write(250, 10), E_ACCESSDENIED);
    EXPECT_EQ(m_written, kUntouched);
    ExpectRange(0, 5);
    m_written = kUntouched;
    EXPECT_EQ(m_handler.WriteBinaryFromFile(m_file.NoSuchFile(), 0, 3, m_written), E_ACCESSDENIED);
    EXPECT_EQ(m_written, kUntouched);
    ExpectRange(0, 5);
    EXPECT_EQ(Write(5, 5), S_OK);
    EXPECT_EQ(Read(0, 9), 9u);
}

TEST_F(BufferHandlerOfSixteen, ClearingSetsAllPositionsToZero) {
    ASSERT_EQ(Write(0, 15), S_OK);
    EXPECT_EQ(Read(0, 4), 4u);
    m_handler.Clear();
    ExpectRange(0, 0);
    EXPECT_EQ(Access::LastAccess(m_handler), 0);
}

TEST_F(BufferHandlerOfSixteen, ARingThatIsStartedAtAPositionHoldsTheStreamFromThereOn) {
    m_handler.StartAt(40);
    ExpectRange(40, 40);
    ASSERT_EQ(Write(40, 15), S_OK);
    ExpectRange(40, 55);
    EXPECT_EQ(Read(42, 8), 8u);
    EXPECT_EQ(Read(39, 2), 0u);
}

}  // namespace
}  // namespace kvmpd::test
