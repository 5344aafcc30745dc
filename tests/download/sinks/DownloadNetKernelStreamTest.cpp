#include "download/DownloadNetKernelStream.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "net/HttpLimits.h"
#include "tests/common/Allocations.h"
#include "tests/support/LogCapture.h"

namespace kvmpd {
namespace {

BOOL Write(DownloadNetKernelStream& sink, const std::string& data) {
    return sink.WriteInputStream(reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(data.size()));
}

std::string Stored(const DownloadNetKernelStream& sink) {
    return {sink.Buffer().begin(), sink.Buffer().begin() + static_cast<std::ptrdiff_t>(sink.Written())};
}

TEST(DownloadNetKernelStream, BlocksThatMakeUpTheAnnouncedLengthAreAllStored) {
    test::LogCapture log;
    DownloadNetKernelStream sink;
    EXPECT_EQ(sink.OnContentLength(10), 1);
    EXPECT_EQ(Write(sink, "abcd"), 1);
    EXPECT_EQ(Write(sink, "efgh"), 1);
    EXPECT_EQ(Write(sink, "ij"), 1);
    EXPECT_EQ(sink.OnWriteComplete(), 1);
    EXPECT_EQ(Stored(sink), "abcdefghij");
    EXPECT_EQ(sink.Buffer().size(), 10u);
    EXPECT_EQ(log.Lines(), std::vector<std::string>{" DownloadNetKernelStream::OnWriteComplete "});
}

TEST(DownloadNetKernelStream, ABlockBeyondTheAnnouncedLengthIsRefusedWhole) {
    test::LogCapture log(3);
    DownloadNetKernelStream sink;
    sink.OnContentLength(10);
    EXPECT_EQ(Write(sink, "abcdefgh"), 1);
    EXPECT_EQ(Write(sink, "ijkl"), 0);
    EXPECT_EQ(Stored(sink), "abcdefgh");
    EXPECT_TRUE(
        log.Contains("[Error] DownloadNetKernelStream::WriteInputStream Get too large buffer: 4 data. From: 8, "
                     "total: 10"));
}

TEST(DownloadNetKernelStream, WithoutALengthTheBufferHasTheAssumedOne) {
    test::LogCapture log;
    DownloadNetKernelStream sink;
    EXPECT_EQ(sink.OnContentLength(0), 1);
    EXPECT_EQ(Write(sink, std::string(100, 'x')), 1);
    EXPECT_EQ(sink.Buffer().size(), 5242880u);
    EXPECT_EQ(sink.Written(), 100u);
    EXPECT_TRUE(
        log.Contains(" DownloadNetKernelStream::WriteInputStream get content length failed. Use assume size: 5242880"));
    EXPECT_EQ(sink.OnWriteComplete(), 0);
    EXPECT_TRUE(log.Contains(
        "[Error] DownloadNetKernelStream::OnWriteComplete download unexpected size 100. expected: 5242880"));
}

TEST(DownloadNetKernelStream, TheAssumedLengthIsToldAtLevel6Only) {
    test::LogCapture log(5);
    DownloadNetKernelStream sink;
    Write(sink, "x");
    EXPECT_TRUE(log.Lines().empty());
}

TEST(DownloadNetKernelStream, CompletionIsToldAtLevel4ItsErrorAtLevel3) {
    test::LogCapture log(3);
    DownloadNetKernelStream sink;
    sink.OnContentLength(1);
    EXPECT_EQ(sink.OnWriteComplete(), 0);
    EXPECT_EQ(log.Lines(), std::vector<std::string>{
                               "[Error] DownloadNetKernelStream::OnWriteComplete download unexpected size 0. expected: "
                               "1"});
}

TEST(DownloadNetKernelStream, AnEmptyBlockIsAccepted) {
    DownloadNetKernelStream sink;
    EXPECT_EQ(sink.WriteInputStream(nullptr, 0), 1);
    EXPECT_TRUE(sink.Buffer().empty());
}

TEST(DownloadNetKernelStream, AnEmptyBodyWithoutLengthIsComplete) {
    DownloadNetKernelStream sink;
    sink.OnContentLength(0);
    EXPECT_EQ(sink.OnWriteComplete(), 1);
}

TEST(DownloadNetKernelStream, ALengthThatNoMemoryHoldsIsRefused) {
    test::LogCapture log(3);
    DownloadNetKernelStream sink;
    EXPECT_EQ(sink.OnContentLength(std::numeric_limits<std::uint64_t>::max()), 0);
    EXPECT_TRUE(log.Contains(
        "[Error] DownloadNetKernelStream::OnContentLength announced length is too large: 18446744073709551615"));
    EXPECT_EQ(sink.ContentLength(), 0u);
}

TEST(DownloadNetKernelStream, WithoutMemoryForItsLengthTheBodyCountsAsOneWithoutALength) {
    test::LogCapture log(3);
    DownloadNetKernelStream sink;
    const test::NoMemoryBeyond little(1 << 16);  // the log needs some
    EXPECT_EQ(sink.OnContentLength(1 << 20), 0);
    EXPECT_EQ(log.Lines(), std::vector<std::string>{" DownloadNetKernelStream::OnContentLength out of memory"});
    EXPECT_EQ(sink.ContentLength(), 0u);
    EXPECT_TRUE(sink.Buffer().empty());
}

TEST(DownloadNetKernelStream, TheLargestBodyInMemoryIsAcceptedAndOneByteMoreIsNot) {
    test::LogCapture log(3);
    DownloadNetKernelStream sink;
    EXPECT_EQ(sink.OnContentLength(kLargestBodyInMemory), 1);
    EXPECT_EQ(sink.Buffer().size(), kLargestBodyInMemory);
    EXPECT_TRUE(log.Lines().empty());
    DownloadNetKernelStream refusing;
    EXPECT_EQ(refusing.OnContentLength(kLargestBodyInMemory + 1), 0);
    EXPECT_EQ(log.Lines(),
              std::vector<std::string>{
                  "[Error] DownloadNetKernelStream::OnContentLength announced length is too large: 67108865"});
    EXPECT_TRUE(refusing.Buffer().empty());
}

TEST(DownloadNetKernelStream, OfABodyThatAnnouncesTooMuchNoByteIsTaken) {
    DownloadNetKernelStream sink;
    sink.OnContentLength(kLargestBodyInMemory + 1);
    EXPECT_EQ(Write(sink, "x"), 0);
    EXPECT_EQ(sink.Written(), 0u);
    EXPECT_TRUE(sink.Buffer().empty());
}

}  // namespace
}  // namespace kvmpd
