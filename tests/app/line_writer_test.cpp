#include "app/LineWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <string>
#include <thread>

namespace kvmpd::app {
namespace {

using Kind = LineWriter::Kind;

constexpr LineWriter::Clock::time_point kAtOnce{};

class LinesToAPipe : public testing::Test {
  protected:
    void SetUp() override {
        std::signal(SIGPIPE, SIG_IGN);
        int ends[2] = {-1, -1};
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        m_reader = ends[0];
        m_writer = ends[1];
        ASSERT_GE(::fcntl(m_writer, F_SETPIPE_SZ, 4096), 0);
    }
    void TearDown() override {
        m_lines.reset();
        CloseReader();
        ::close(m_writer);
    }

    void Open(std::size_t most) { m_lines = std::make_unique<LineWriter>(most); }
    void CloseReader() {
        if (m_reader >= 0) {
            ::close(m_reader);
            m_reader = -1;
        }
    }

    // More than the pipe holds, so that the thread that writes is held up.
    void FillThePipe() { EXPECT_TRUE(m_lines->Write(m_writer, std::string(10'000, 'x') + "\n", Kind::kLine)); }

    // What comes up to and with this text.
    std::string ReadUntil(const std::string& text) {
        std::string got;
        char bytes[4096];
        std::size_t searched = 0;
        while (got.find(text, searched) == std::string::npos) {
            searched = got.size() - std::min(got.size(), text.size());
            const ssize_t count = ::read(m_reader, bytes, sizeof(bytes));
            if (count <= 0) {
                ADD_FAILURE() << "the pipe has ended";
                break;
            }
            got.append(bytes, static_cast<std::size_t>(count));
        }
        return got;
    }

    int m_reader = -1;
    int m_writer = -1;
    std::unique_ptr<LineWriter> m_lines = std::make_unique<LineWriter>();
};

TEST_F(LinesToAPipe, AreWrittenInTheirOrder) {
    for (int n = 0; n < 100; ++n) {
        EXPECT_TRUE(m_lines->Write(m_writer, std::to_string(n) + "\n", Kind::kLine));
    }
    std::string expected;
    for (int n = 0; n < 100; ++n) {
        expected += std::to_string(n) + "\n";
    }
    EXPECT_EQ(ReadUntil("99\n"), expected);
    EXPECT_TRUE(m_lines->Drain(LineWriter::Clock::now() + std::chrono::minutes(1), /*patient=*/false));
}

// A pager that shows its first page reads no further.
TEST_F(LinesToAPipe, HoldNobodyUpWhileNobodyReads) {
    FillThePipe();
    for (int n = 0; n < 10'000; ++n) {
        ASSERT_TRUE(m_lines->Write(m_writer, "event " + std::to_string(n) + "\n", Kind::kLine));
    }
    EXPECT_FALSE(m_lines->Drain(kAtOnce, /*patient=*/false)) << "the pipe is full";
    const std::string got = ReadUntil("event 9999\n");
    EXPECT_NE(got.find("\nevent 0\nevent 1\n"), std::string::npos) << "none is lost";
}

TEST_F(LinesToAPipe, OfProgressGiveWayToNewerProgress) {
    FillThePipe();
    for (int n = 0; n < 1'000; ++n) {
        EXPECT_TRUE(m_lines->Write(m_writer, "progress " + std::to_string(n) + "\n", Kind::kProgress));
        if (n == 500) {
            EXPECT_TRUE(m_lines->Write(m_writer, "event\n", Kind::kLine));
        }
    }
    EXPECT_TRUE(m_lines->Write(m_writer, "end\n", Kind::kLine));
    const std::string got = ReadUntil("end\n");
    EXPECT_NE(got.find("\nevent\nprogress 999\nend\n"), std::string::npos) << got.substr(10'000);
}

TEST_F(LinesToAPipe, AreBounded) {
    Open(20'000);
    FillThePipe();
    const std::string line(999, 'y');
    int taken = 0;
    while (m_lines->Write(m_writer, line + "\n", Kind::kLine)) {
        ASSERT_LT(++taken, 10);
    }
    ReadUntil("x\n");  // the first, and with it room for ten more
    EXPECT_EQ(taken, 9);
    while (!m_lines->Write(m_writer, "later\n", Kind::kLine)) {
    }
    ReadUntil("later\n");
}

TEST_F(LinesToAPipe, EndWithoutAReader) {
    FillThePipe();
    m_lines.reset();  // the thread is in the middle of a line
}

TEST_F(LinesToAPipe, AreSwallowedWhenTheReaderIsGone) {
    FillThePipe();
    CloseReader();
    EXPECT_TRUE(m_lines->Write(m_writer, "more\n", Kind::kLine));
    EXPECT_TRUE(m_lines->Drain(LineWriter::Clock::now() + std::chrono::minutes(1), /*patient=*/false));
}

TEST_F(LinesToAPipe, OfAPatientEndReachAReaderThatGoesOn) {
    std::string lines;
    for (int n = 0; n < 3'000; ++n) {
        lines += std::to_string(n) + "\n";
        ASSERT_TRUE(m_lines->Write(m_writer, std::to_string(n) + "\n", Kind::kLine));
    }
    std::string got;
    std::thread reader([&] { got = ReadUntil("2999\n"); });
    EXPECT_TRUE(m_lines->Drain(kAtOnce, /*patient=*/true, std::chrono::minutes(1)));
    reader.join();
    EXPECT_EQ(got, lines);
}

}  // namespace
}  // namespace kvmpd::app
