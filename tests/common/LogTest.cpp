#include "common/Log.h"

#include <algorithm>
#include <array>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/common/Allocations.h"
#include "tests/support/LogCapture.h"

namespace kvmpd {
namespace {

using test::LogCapture;

constexpr size_t kLineSize = 1024;
constexpr size_t kLongestMessage = 1014;

std::array<char, kLineSize> g_narrowLine;
std::array<wchar_t, kLineSize> g_wideLine;

void KeepNarrow(const char* line) {
    std::copy_n(line, kLineSize, g_narrowLine.begin());
}
void KeepWide(const wchar_t* line) {
    std::copy_n(line, kLineSize, g_wideLine.begin());
}

/// Keeps the whole buffer of the last line in each width.
class LogLine : public testing::Test {
  protected:
    LogLine() {
        LogTestHooks::Redirect(&KeepNarrow, &KeepWide);
        LogTestHooks::SetLevel(6);
        g_narrowLine.fill('?');
        g_wideLine.fill(L'?');
    }
    ~LogLine() override {
        LogTestHooks::SetLevel(0);
        LogTestHooks::Redirect(nullptr, nullptr);
    }
};

/// A whole buffer that holds `text` and zeros.
template <class Char>
std::array<Char, kLineSize> BufferOf(const std::basic_string<Char>& text) {
    std::array<Char, kLineSize> buffer{};
    std::ranges::copy(text, buffer.begin());
    return buffer;
}

TEST_F(LogLine, IsPrefixMessageAndLineFeedInABufferOfZeros) {
    LogA(3, " KVMPDFilter::SetCacheFileFolder : %s", "/tmp");
    EXPECT_EQ(g_narrowLine, BufferOf<char>("[MpdSrc] KVMPDFilter::SetCacheFileFolder : /tmp\n"));
    Log(3, L"[Error] KVMPDFilter::Backdoor Unknown ID: %lu", DWORD{77});
    EXPECT_EQ(g_wideLine, BufferOf<wchar_t>(L"[MpdSrc][Error] KVMPDFilter::Backdoor Unknown ID: 77\n"));
}

TEST_F(LogLine, EmptyMessageIsPrefixAndLineFeed) {
    LogA(3, "");
    EXPECT_EQ(g_narrowLine, BufferOf<char>("[MpdSrc]\n"));
    Log(3, L"");
    EXPECT_EQ(g_wideLine, BufferOf<wchar_t>(L"[MpdSrc]\n"));
}

TEST_F(LogLine, MessageOf1014CharactersIsWrittenWhole) {
    LogA(3, "%s", std::string(kLongestMessage, 'n'));
    EXPECT_EQ(g_narrowLine, BufferOf("[MpdSrc]" + std::string(kLongestMessage, 'n') + "\n"));
    Log(3, L"%s", std::wstring(kLongestMessage, L'w'));
    EXPECT_EQ(g_wideLine, BufferOf(L"[MpdSrc]" + std::wstring(kLongestMessage, L'w') + L"\n"));
}

TEST_F(LogLine, LongerMessageIsCutTo1014CharactersAndStillEndsWithALineFeed) {
    LogA(3, "%s", std::string(kLongestMessage, 'n') + "END");
    EXPECT_EQ(g_narrowLine, BufferOf("[MpdSrc]" + std::string(kLongestMessage, 'n') + "\n"));
    Log(3, L"%s and %d", std::wstring(kLongestMessage + 5000, L'w'), 5);
    EXPECT_EQ(g_wideLine, BufferOf(L"[MpdSrc]" + std::wstring(kLongestMessage, L'w') + L"\n"));
}

TEST_F(LogLine, NumberAtTheCutIsCutInTheMiddle) {
    LogA(3, "%s%d", std::string(kLongestMessage - 2, 'n'), 12345);
    EXPECT_EQ(g_narrowLine, BufferOf("[MpdSrc]" + std::string(kLongestMessage - 2, 'n') + "12\n"));
}

TEST_F(LogLine, WritingKeepsTheLastError) {
    SetLastError(1234);
    Log(3, L" text %s", "narrow");
    LogA(3, " text %s", L"wide");
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST_F(LogLine, WritingUsesNoHeapMemory) {
    const std::wstring url(3000, L'u');
    const std::string path(3000, 'p');
    const test::AllocationCount heap;
    Log(3, L" %s %s %lld 0x%08X %p", url, path, LONGLONG{5}, E_FAIL, static_cast<const void*>(&url));
    LogA(3, " %s %s %lld 0x%08X", path, url, LONGLONG{5}, E_FAIL);
    Log(7, L" %s above the verbosity", url);
    EXPECT_EQ(heap.Count(), 0u);
}

struct Verbosity {
    LONG configured;
    std::vector<std::string> written;
};

class LogVerbosity : public testing::TestWithParam<Verbosity> {};

TEST_P(LogVerbosity, WritesTheLevelsThatAreNotAboveIt) {
    const LogCapture log(GetParam().configured);
    for (LONG level = 3; level <= 6; ++level) {
        Log(level, L" wide %d", level);
        LogA(level, " narrow %d", level);
    }
    EXPECT_EQ(log.Lines(), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, LogVerbosity,
    testing::Values(
        Verbosity{-1, {}}, Verbosity{0, {}}, Verbosity{2, {}}, Verbosity{3, {" wide 3", " narrow 3"}},
        Verbosity{5, {" wide 3", " narrow 3", " wide 4", " narrow 4", " wide 5", " narrow 5"}},
        Verbosity{6, {" wide 3", " narrow 3", " wide 4", " narrow 4", " wide 5", " narrow 5", " wide 6", " narrow 6"}},
        Verbosity{1000,
                  {" wide 3", " narrow 3", " wide 4", " narrow 4", " wide 5", " narrow 5", " wide 6", " narrow 6"}}),
    [](const testing::TestParamInfo<Verbosity>& row) {
        return row.param.configured < 0 ? "Minus" + std::to_string(-row.param.configured)
                                        : std::to_string(row.param.configured);
    });

TEST(LogComparison, OfLevelAndVerbosityIsSigned) {
    const LogCapture log(-5);
    Log(-5, L" equal");
    Log(-4, L" above");
    EXPECT_EQ(log.Lines(), std::vector<std::string>{" equal"});
}

TEST(LogComparison, GetLogLevelAnswersTheVerbosity) {
    const LogCapture log(5);
    EXPECT_EQ(GetLogLevel(), 5);
}

TEST(LogThreads, LinesOfSeveralThreadsDoNotMix) {
    const LogCapture log(6);
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([thread] {
                for (int line = 0; line < kLines; ++line) {
                    Log(6, L" thread %d line %d of %s", thread, line, std::wstring(100, L'x'));
                }
            });
        }
    }
    std::vector<std::string> expected;
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int line = 0; line < kLines; ++line) {
            expected.push_back(" thread " + std::to_string(thread) + " line " + std::to_string(line) + " of " +
                               std::string(100, 'x'));
        }
    }
    std::vector<std::string> lines = log.Lines();
    std::ranges::sort(lines);
    std::ranges::sort(expected);
    EXPECT_EQ(lines, expected);
}

}  // namespace
}  // namespace kvmpd
