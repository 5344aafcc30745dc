#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/support.h"

using namespace platform_test;

namespace {

// Standard error is a pair of sockets that keeps the borders between writes, for as long as this lives.
class CapturedWrites {
  public:
    CapturedWrites() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_ends), 0);
        m_before = dup(STDERR_FILENO);
        dup2(m_ends[0], STDERR_FILENO);
    }
    ~CapturedWrites() {
        dup2(m_before, STDERR_FILENO);
        close(m_before);
        close(m_ends[0]);
        close(m_ends[1]);
    }
    CapturedWrites(const CapturedWrites&) = delete;
    CapturedWrites& operator=(const CapturedWrites&) = delete;

    // What has been written so far, one text for each write().
    std::vector<std::string> Take() {
        std::vector<std::string> writes;
        std::string buffer(16384, '\0');
        for (;;) {
            const ssize_t length = recv(m_ends[1], buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (length <= 0) {
                return writes;
            }
            writes.push_back(buffer.substr(0, static_cast<std::size_t>(length)));
        }
    }

  private:
    int m_ends[2] = {-1, -1};
    int m_before = -1;
};

using Writes = std::vector<std::string>;

}  // namespace

TEST(PosixDebugOutput, LeavesTheLastErrorAlone) {
    CapturedWrites captured;
    SetLastError(4711);
    OutputDebugStringA("a line of the narrow debug output\n");
    OutputDebugStringW(L"a line of the wide debug output\n");
    EXPECT_TRUE(LastErrorIs(4711));
}

TEST(PosixDebugOutput, ALineIsOneWrite) {
    CapturedWrites captured;
    OutputDebugStringA("[MpdSrc] KVMPDFilter::Run \n");
    OutputDebugStringW(L"[MpdSrc] KVMPDFilter::Stop \n");
    EXPECT_EQ(captured.Take(), (Writes{"[MpdSrc] KVMPDFilter::Run \n", "[MpdSrc] KVMPDFilter::Stop \n"}));
}

TEST(PosixDebugOutput, SeveralLinesAreSeveralWritesAndTheRestAnother) {
    CapturedWrites captured;
    OutputDebugStringW(L"one\n\ntwo\nrest");
    EXPECT_EQ(captured.Take(), (Writes{"one\n", "\n", "two\n", "rest"}));
}

TEST(PosixDebugOutput, WideTextBecomesUtf8) {
    CapturedWrites captured;
    OutputDebugStringW(L"\u00E4\u20AC\U0001F600\n");
    EXPECT_EQ(captured.Take(), Writes{"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\n"});
}

TEST(PosixDebugOutput, WhatIsNoCharacterBecomesTheReplacementCharacter) {
    const wchar_t text[] = {L'a',
                            static_cast<wchar_t>(0xD800),
                            static_cast<wchar_t>(0xDFFF),
                            static_cast<wchar_t>(0x110000),
                            static_cast<wchar_t>(-1),
                            L'\n',
                            0};
    CapturedWrites captured;
    OutputDebugStringW(text);
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(captured.Take(), Writes{"a" + replacement + replacement + replacement + replacement + "\n"});
}

TEST(PosixDebugOutput, NarrowTextIsWrittenAsItIs) {
    CapturedWrites captured;
    OutputDebugStringA("\xFF\x80\n");
    EXPECT_EQ(captured.Take(), Writes{"\xFF\x80\n"});
}

TEST(PosixDebugOutput, TheLongestLogLineIsStillOneWrite) {
    CapturedWrites captured;
    const std::wstring line = std::wstring(1022, L'\u20AC') + L'\n';
    OutputDebugStringW(line.c_str());
    const Writes writes = captured.Take();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].size(), 3u * 1022 + 1);
}

TEST(PosixDebugOutput, ALongerLineIsCutBetweenCharacters) {
    CapturedWrites captured;
    OutputDebugStringW((std::wstring(2000, L'\u20AC') + L'\n').c_str());
    const Writes writes = captured.Take();
    ASSERT_EQ(writes.size(), 2u);
    EXPECT_EQ(writes[0].size(), 4095u);
    EXPECT_EQ(writes[0].size() + writes[1].size(), 6001u);
}

TEST(PosixDebugOutput, LinesOfSeveralThreadsDoNotMix) {
    std::string all;
    {
        CapturedWrites captured;
        std::vector<std::thread> threads;
        for (wchar_t letter = L'a'; letter < L'i'; ++letter) {
            threads.emplace_back([letter] {
                for (int i = 0; i < 10; ++i) {
                    OutputDebugStringW((std::wstring(50, letter) + L'\n').c_str());
                }
            });
        }
        std::size_t lines = 0;
        while (lines < 80) {
            for (const std::string& text : captured.Take()) {
                ++lines;
                all += text;
            }
            Sleep(1);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    std::istringstream stream(all);
    std::string line;
    int lines = 0;
    while (std::getline(stream, line)) {
        EXPECT_EQ(line, std::string(50, line.at(0)));
        ++lines;
    }
    EXPECT_EQ(lines, 80);
}

// A host whose log pipe has gone must not die of a log line, and must not lose signals of its own.
TEST(PosixDebugOutput, AClosedPipeIsNoFault) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const int before = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    auto* const oldAction = std::signal(SIGPIPE, SIG_DFL);
    errno = 17;
    SetLastError(4711);
    OutputDebugStringW(L"nobody reads this\n");
    const int errnoAfter = errno;
    dup2(before, STDERR_FILENO);
    std::signal(SIGPIPE, oldAction);
    close(before);
    close(ends[1]);
    EXPECT_EQ(errnoAfter, 17);
    EXPECT_TRUE(LastErrorIs(4711));
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}
