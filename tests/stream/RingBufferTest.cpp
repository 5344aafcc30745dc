#include <gtest/gtest.h>

#include <limits>

#include "stream/CRingBuffer.h"
#include "tests/stream/RingTestAccess.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

using Access = CRingBufferTestAccess;

class RingBuffer : public testing::Test {
  protected:
    static constexpr DWORD kSize = 16;

    RingBuffer() { EXPECT_TRUE(m_ring.Create(kSize)); }

    HRESULT Write(LONGLONG fileOffset, DWORD count) {
        return m_ring.WriteBinaryFromFile(m_file.Name(), fileOffset, count);
    }
    HRESULT Discard(DWORD count) { return m_ring.ReadBinary(nullptr, count); }
    std::vector<BYTE> Peek(DWORD offset, DWORD count) {
        std::vector<BYTE> bytes(count);
        EXPECT_EQ(m_ring.PeekBinary(bytes.data(), offset, count), S_OK);
        return bytes;
    }
    std::vector<BYTE> Read(DWORD count) {
        std::vector<BYTE> bytes(count);
        EXPECT_EQ(m_ring.ReadBinary(bytes.data(), count), S_OK);
        return bytes;
    }
    /// Puts both indexes at `index` with nothing between them.
    void MoveTo(DWORD index) {
        ASSERT_EQ(Write(0, index), S_OK);
        ASSERT_EQ(Discard(index), S_OK);
    }

    PatternFile m_file{256};
    CRingBuffer m_ring;
};

TEST(RingBufferWithoutArray, HoldsNothingAndTakesNothing) {
    const PatternFile file(8);
    CRingBuffer ring;
    BYTE byte = 0;
    EXPECT_FALSE(ring.HasArray());
    EXPECT_EQ(ring.Used(), 0u);
    EXPECT_EQ(ring.Free(), 0u);
    EXPECT_EQ(ring.WriteBinaryFromFile(file.Name(), 0, 1), E_FAIL);
    EXPECT_EQ(ring.ReadBinary(&byte, 1), E_FAIL);
    EXPECT_EQ(ring.PeekBinary(&byte, 0, 1), E_FAIL);
    EXPECT_EQ(ring.ReadBinary(&byte, 0), S_OK);
    EXPECT_EQ(ring.PeekBinary(&byte, 0, 0), S_OK);
    ring.Clear();
    EXPECT_EQ(ring.Used(), 0u);
}

TEST(RingBufferLife, LogsItsBirthItsClearingAndItsEnd) {
    const LogCapture log(6);
    {
        CRingBuffer ring;
        EXPECT_TRUE(log.Contains(" CRingBuffer::CRingBuffer "));
        ring.Clear();
        EXPECT_TRUE(log.Contains(" CRingBuffer::Clear "));
        EXPECT_FALSE(log.Contains(" CRingBuffer::Destroy "));
    }
    EXPECT_TRUE(log.Contains(" CRingBuffer::Destroy "));
}

TEST(RingBufferLife, LogsNothingOfItBelowLevelSix) {
    const LogCapture log(5);
    { CRingBuffer().Clear(); }
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(RingBuffer, IsCreatedEmptyAndZeroed) {
    EXPECT_TRUE(m_ring.HasArray());
    EXPECT_EQ(m_ring.Used(), 0u);
    EXPECT_EQ(Access::Array(m_ring), std::vector<BYTE>(kSize));
    EXPECT_EQ(Access::Spare(m_ring), std::vector<BYTE>(kSize));
}

TEST_F(RingBuffer, CreatingAgainMakesFreshArraysAndLeavesTheIndexes) {
    ASSERT_EQ(Write(0, 5), S_OK);
    EXPECT_TRUE(m_ring.Create(32));
    EXPECT_EQ(Access::Size(m_ring), 32u);
    EXPECT_EQ(Access::Array(m_ring), std::vector<BYTE>(32));
    EXPECT_EQ(Access::WriteIndex(m_ring), 5u);
    EXPECT_EQ(m_ring.Used(), 5u);
}

TEST_F(RingBuffer, AcceptsOneByteLessThanItsSize) {
    EXPECT_EQ(m_ring.Free(), kSize - 1);
    EXPECT_EQ(Write(0, kSize), E_FAIL);
    EXPECT_EQ(m_ring.Used(), 0u);
    EXPECT_EQ(Write(0, kSize - 1), S_OK);
    EXPECT_EQ(m_ring.Used(), kSize - 1);
    EXPECT_EQ(m_ring.Free(), 0u);
    EXPECT_EQ(Write(0, 1), E_FAIL);
    EXPECT_EQ(Peek(0, kSize - 1), Pattern(0, kSize - 1));
}

TEST_F(RingBuffer, CountsUsedAndFreeWhenTheContentWraps) {
    MoveTo(12);
    ASSERT_EQ(Write(0, 10), S_OK);
    EXPECT_EQ(Access::ReadIndex(m_ring), 12u);
    EXPECT_EQ(Access::WriteIndex(m_ring), 6u);
    EXPECT_EQ(m_ring.Used(), 10u);
    EXPECT_EQ(m_ring.Free(), 5u);
}

TEST_F(RingBuffer, AWriteThatEndsAtTheArraysEndLeavesTheWriteIndexAtZero) {
    MoveTo(6);
    EXPECT_EQ(Write(0, 10), S_OK);
    EXPECT_EQ(Access::WriteIndex(m_ring), 0u);
    EXPECT_EQ(m_ring.Used(), 10u);
    EXPECT_EQ(Peek(0, 10), Pattern(0, 10));
}

TEST_F(RingBuffer, AReadUpToTheArraysEndLeavesTheReadIndexThereAndTheNextReadWraps) {
    MoveTo(6);
    ASSERT_EQ(Write(0, 10), S_OK);
    ASSERT_EQ(Write(10, 4), S_OK);
    EXPECT_EQ(Read(10), Pattern(0, 10));
    EXPECT_EQ(Access::ReadIndex(m_ring), kSize);
    EXPECT_EQ(m_ring.Used(), 4u);
    EXPECT_EQ(m_ring.Free(), kSize - 1 - 4);
    EXPECT_EQ(Peek(1, 3), Pattern(11, 3));
    EXPECT_EQ(Read(4), Pattern(10, 4));
    EXPECT_EQ(Access::ReadIndex(m_ring), 4u);
    EXPECT_EQ(m_ring.Used(), 0u);
}

TEST_F(RingBuffer, KeepsWorkingWhenItIsEmptyWithTheReadIndexAtTheArraysEnd) {
    MoveTo(6);
    ASSERT_EQ(Write(0, 10), S_OK);
    ASSERT_EQ(Discard(10), S_OK);
    // The write index went back to 0 and the read index did not: the ring counts as full of nothing readable.
    EXPECT_EQ(Access::ReadIndex(m_ring), kSize);
    EXPECT_EQ(Access::WriteIndex(m_ring), 0u);
    EXPECT_EQ(m_ring.Used(), 0u);
    EXPECT_EQ(m_ring.Free(), kSize - 1);
    EXPECT_EQ(Write(20, kSize - 1), S_OK);
    EXPECT_EQ(Read(kSize - 1), Pattern(20, kSize - 1));
}

TEST_F(RingBuffer, ReadsAcrossTheArraysEnd) {
    MoveTo(12);
    ASSERT_EQ(Write(0, 10), S_OK);
    EXPECT_EQ(Read(7), Pattern(0, 7));
    EXPECT_EQ(Access::ReadIndex(m_ring), 3u);
    EXPECT_EQ(Read(3), Pattern(7, 3));
}

TEST_F(RingBuffer, RefusesToReadMoreThanItHoldsAndConsumesNothing) {
    ASSERT_EQ(Write(0, 5), S_OK);
    BYTE bytes[6] = {};
    EXPECT_EQ(m_ring.ReadBinary(bytes, 6), E_FAIL);
    EXPECT_EQ(m_ring.Used(), 5u);
    EXPECT_EQ(Read(5), Pattern(0, 5));
}

TEST_F(RingBuffer, DiscardsWithoutADestination) {
    ASSERT_EQ(Write(0, 9), S_OK);
    EXPECT_EQ(Discard(4), S_OK);
    EXPECT_EQ(Read(5), Pattern(4, 5));
}

TEST_F(RingBuffer, LogsWhereAReadEnds) {
    ASSERT_EQ(Write(0, 9), S_OK);
    const LogCapture log(6);
    ASSERT_EQ(Discard(4), S_OK);
    EXPECT_TRUE(log.Contains(" CRingBuffer::ReadBinary finish. m_iReadPtr become 4 after read 4 data"));
}

struct PeekCase {
    DWORD start;
    DWORD offset;
    DWORD count;
};

class RingBufferPeek : public RingBuffer, public testing::WithParamInterface<PeekCase> {};

TEST_P(RingBufferPeek, CopiesWithoutConsuming) {
    MoveTo(GetParam().start);
    ASSERT_EQ(Write(100, kSize - 1), S_OK);
    EXPECT_EQ(Peek(GetParam().offset, GetParam().count), Pattern(100 + GetParam().offset, GetParam().count));
    EXPECT_EQ(m_ring.Used(), kSize - 1);
    EXPECT_EQ(Access::ReadIndex(m_ring), GetParam().start);
}

INSTANTIATE_TEST_SUITE_P(Positions, RingBufferPeek,
                         testing::Values(PeekCase{0, 0, 15}, PeekCase{0, 5, 10},   // all before the array's end
                                         PeekCase{10, 2, 4},                       // ends at the array's end
                                         PeekCase{10, 2, 5}, PeekCase{10, 0, 15},  // across it
                                         PeekCase{10, 6, 9},                       // begins at it
                                         PeekCase{10, 7, 8}, PeekCase{14, 14, 1},  // all behind it
                                         PeekCase{3, 15, 0}));

TEST_F(RingBuffer, RefusesToPeekBeyondWhatItHolds) {
    ASSERT_EQ(Write(0, 9), S_OK);
    BYTE bytes[16] = {};
    EXPECT_EQ(m_ring.PeekBinary(bytes, 0, 10), E_FAIL);
    EXPECT_EQ(m_ring.PeekBinary(bytes, 5, 5), E_FAIL);
    EXPECT_EQ(m_ring.PeekBinary(bytes, 10, 0), E_FAIL);
    // A sum that wraps at 32 bits is no way around the test.
    EXPECT_EQ(m_ring.PeekBinary(bytes, 4, std::numeric_limits<DWORD>::max()), E_FAIL);
    EXPECT_EQ(m_ring.PeekBinary(bytes, std::numeric_limits<DWORD>::max(), 4), E_FAIL);
}

TEST_F(RingBuffer, ReadsTheFileFromTheGivenOffset) {
    EXPECT_EQ(Write(77, 11), S_OK);
    EXPECT_EQ(Peek(0, 11), Pattern(77, 11));
}

TEST_F(RingBuffer, SplitsAWriteAtTheArraysEndAndLogsBothParts) {
    MoveTo(12);
    const LogCapture log(6);
    ASSERT_EQ(Write(0, 10), S_OK);
    EXPECT_TRUE(log.Contains(
        " CRingBuffer::WriteBinaryFromFile ReadFile success: 4 bytes. First byte is 0x00000001 to position 12"));
    EXPECT_TRUE(log.Contains(
        " CRingBuffer::WriteBinaryFromFile ReadFile success: 6 bytes. First byte is 0x0000001D to position 0"));
    EXPECT_EQ(Peek(0, 10), Pattern(0, 10));
}

TEST_F(RingBuffer, SaysWhyAFileCannotBeOpened) {
    const LogCapture log(3);
    EXPECT_EQ(m_ring.WriteBinaryFromFile(m_file.NoSuchFile(), 0, 4), E_ACCESSDENIED);
    EXPECT_TRUE(log.Contains("[Error] CRingBuffer::WriteBinaryFromFile Create file fail, error code: 2"));
    EXPECT_EQ(m_ring.Used(), 0u);
    EXPECT_FALSE(Access::HoldsFailedFile(m_ring));
}

TEST_F(RingBuffer, DoesNotLogAFileThatCannotBePositionedAndLeavesItClosed) {
    const LogCapture log(6);
    // The platform says that it failed by a position whose low 32 bits are all ones.
    EXPECT_EQ(Write(0xFFFFFFFF, 4), E_ACCESSDENIED);
    EXPECT_EQ(log.CountPrefix("[Error] CRingBuffer"), 0u);
    EXPECT_FALSE(Access::HoldsFailedFile(m_ring));
    EXPECT_EQ(m_ring.Used(), 0u);
}

TEST_F(RingBuffer, AFileThatEndsEarlyAddsNothing) {
    MoveTo(12);
    ASSERT_EQ(Write(0, 3), S_OK);
    EXPECT_EQ(Write(250, 10), E_ACCESSDENIED);
    EXPECT_EQ(m_ring.Used(), 3u);
    EXPECT_EQ(Peek(0, 3), Pattern(0, 3));
    EXPECT_EQ(Write(3, 10), S_OK);
    EXPECT_EQ(Peek(0, 13), Pattern(0, 13));
}

TEST_F(RingBuffer, KeepsTheFileOfTheLastFailedReadOpenUntilTheNextWrite) {
    ASSERT_EQ(Write(250, 10), E_ACCESSDENIED);
    EXPECT_TRUE(Access::HoldsFailedFile(m_ring));
    ASSERT_EQ(Write(0, 4), S_OK);
    EXPECT_FALSE(Access::HoldsFailedFile(m_ring));
}

TEST_F(RingBuffer, ClosesTheFileOfTheLastFailedReadWhenItIsAskedOrCleared) {
    ASSERT_EQ(Write(250, 10), E_ACCESSDENIED);
    m_ring.CloseFailedFile();
    EXPECT_FALSE(Access::HoldsFailedFile(m_ring));
    ASSERT_EQ(Write(250, 10), E_ACCESSDENIED);
    m_ring.Clear();
    EXPECT_FALSE(Access::HoldsFailedFile(m_ring));
}

TEST_F(RingBuffer, WritesNothingOfAnEmptyRequest) {
    EXPECT_EQ(Write(0, 0), S_OK);
    EXPECT_EQ(m_ring.Used(), 0u);
}

TEST_F(RingBuffer, ClearingZeroesTheWholeArray) {
    MoveTo(12);
    ASSERT_EQ(Write(0, 10), S_OK);
    m_ring.Clear();
    EXPECT_EQ(Access::Array(m_ring), std::vector<BYTE>(kSize));
    EXPECT_EQ(Access::ReadIndex(m_ring), 0u);
    EXPECT_EQ(Access::WriteIndex(m_ring), 0u);
    EXPECT_EQ(m_ring.Used(), 0u);
    EXPECT_EQ(Write(0, kSize - 1), S_OK);
}

TEST_F(RingBuffer, ClearingZeroesWhatAFailedWriteHadPutThere) {
    ASSERT_EQ(Write(250, 10), E_ACCESSDENIED);
    m_ring.Clear();
    EXPECT_EQ(Access::Array(m_ring), std::vector<BYTE>(kSize));
}

}  // namespace
}  // namespace kvmpd::test
