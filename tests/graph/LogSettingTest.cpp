// The machine's registry and the debugger's channel behind the component's log.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr const wchar_t* kKey = L"Software\\Kavotra\\MpdSource";

/// The "log" value for as long as this lives; the keys made for it are removed again.
class Setting {
  public:
    Setting(DWORD type, const void* data, size_t size, HKEY hive = HKEY_LOCAL_MACHINE) : m_hive(hive) {
        HKEY key = nullptr;
        EXPECT_EQ(RegCreateKeyExW(hive, kKey, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(RegSetValueExW(key, L"log", 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size)),
                  ERROR_SUCCESS);
        RegCloseKey(key);
    }
    explicit Setting(std::int32_t level) : Setting(REG_DWORD, &level, sizeof(level)) {}
    explicit Setting(const std::wstring& text) : Setting(REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t)) {}
    ~Setting() {
        RegDeleteKeyW(m_hive, kKey);
        RegDeleteKeyW(m_hive, L"Software\\Kavotra");
    }
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

  private:
    const HKEY m_hive;
};

/// A text that the debugged process handed over, in its own memory.
std::string TextOf(HANDLE process, const OUTPUT_DEBUG_STRING_INFO& info) {
    std::string bytes(info.nDebugStringLength * (info.fUnicode ? 2u : 1u), '\0');
    SIZE_T read = 0;
    ReadProcessMemory(process, info.lpDebugStringData, bytes.data(), bytes.size(), &read);
    if (info.fUnicode) {
        std::string narrow;
        for (size_t i = 0; i + 1 < read; i += 2) {
            narrow += bytes[i];
        }
        bytes = narrow;
    }
    return bytes.c_str();
}

/// Runs the probe under a debugger, this one, and returns the component's lines.
std::vector<std::string> LinesOfTheProbe() {
    std::vector<std::string> lines;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    std::wstring command = L"log_probe.exe";
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, DEBUG_ONLY_THIS_PROCESS, nullptr, nullptr,
                        &startup, &process)) {
        ADD_FAILURE() << "the probe does not start: error " << GetLastError();
        return lines;
    }
    for (DEBUG_EVENT event{};;) {
        if (!WaitForDebugEvent(&event, 60'000)) {
            ADD_FAILURE() << "the probe hangs: error " << GetLastError();
            TerminateProcess(process.hProcess, 1);
            break;
        }
        DWORD handled = DBG_CONTINUE;
        if (event.dwDebugEventCode == OUTPUT_DEBUG_STRING_EVENT) {
            if (const std::string text = TextOf(process.hProcess, event.u.DebugString); text.starts_with("[MpdSrc]")) {
                lines.push_back(text);
            }
        } else if (event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT &&
                   event.u.Exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT) {
            handled = DBG_EXCEPTION_NOT_HANDLED;
        } else if (event.dwDebugEventCode == CREATE_PROCESS_DEBUG_EVENT) {
            CloseHandle(event.u.CreateProcessInfo.hFile);
        } else if (event.dwDebugEventCode == LOAD_DLL_DEBUG_EVENT) {
            CloseHandle(event.u.LoadDll.hFile);
        }
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId, handled);
        if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT) {
            EXPECT_EQ(event.u.ExitProcess.dwExitCode, 0u);
            break;
        }
    }
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return lines;
}

bool Has(const std::vector<std::string>& lines, const char* text) {
    return std::ranges::count(lines, std::string("[MpdSrc]") + text + "\n") > 0;
}

constexpr const char* kLevel3 = " KVMPDFilter::Run ";
constexpr const char* kLevel4 = " SegmentQueue::SegmentQueue ";
constexpr const char* kNarrow = " KVMPDFilter::SetCacheFileFolder : C:\\probe";  // level 4
constexpr const char* kLevel6 = " KVMPDFilter::GetCurFile ";

void ExpectLevels(bool three, bool four, bool six) {
    const std::vector<std::string> lines = LinesOfTheProbe();
    EXPECT_EQ(Has(lines, kLevel3), three);
    EXPECT_EQ(Has(lines, kLevel4), four);
    EXPECT_EQ(Has(lines, kNarrow), four);
    EXPECT_EQ(Has(lines, kLevel6), six);
    const bool cut = std::ranges::any_of(lines, [](const std::string& line) {
        return line.starts_with("[MpdSrc] KVMPDFilter::Load xxx") && line.size() == 8 + 1014 + 1 &&
               line.ends_with("x\n");
    });
    EXPECT_EQ(cut, three);
    EXPECT_EQ(lines.empty(), !three && !four && !six);
}

TEST(LogSetting, WithoutAValueNothingIsWritten) {
    ExpectLevels(false, false, false);
}

TEST(LogSetting, AKeyWithoutTheValueWritesNothing) {
    const Setting setting(6);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_SET_VALUE, &key), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteValueW(key, L"log"), ERROR_SUCCESS);
    RegCloseKey(key);
    ExpectLevels(false, false, false);
}

TEST(LogSetting, ThreeWritesErrorsAndControl) {
    const Setting setting(3);
    ExpectLevels(true, false, false);
}

TEST(LogSetting, FourWritesConstructionAsWell) {
    const Setting setting(4);
    ExpectLevels(true, true, false);
}

TEST(LogSetting, SixWritesEverything) {
    const Setting setting(6);
    ExpectLevels(true, true, true);
}

TEST(LogSetting, ANegativeValueWritesNothing) {
    const Setting setting(-1);
    ExpectLevels(false, false, false);
}

TEST(LogSetting, TheTypeIsNotLookedAtInFourBytes) {
    const Setting setting(L"6");  // the code of the digit, 0x36, and the end of the text
    ExpectLevels(true, true, true);
}

TEST(LogSetting, ALongerTextIsNoNumber) {
    const Setting setting(L"66");
    ExpectLevels(false, false, false);
}

TEST(LogSetting, AnEmptyTextIsZero) {
    const Setting setting(L"");
    ExpectLevels(false, false, false);
}

TEST(LogSetting, EightBytesAreTooMany) {
    const std::uint64_t value = 6;
    const Setting setting(REG_QWORD, &value, sizeof(value));
    ExpectLevels(false, false, false);
}

TEST(LogSetting, FewerBytesFillTheLowerOnes) {
    const std::array<BYTE, 1> value{3};
    const Setting setting(REG_BINARY, value.data(), value.size());
    ExpectLevels(true, false, false);
}

TEST(LogSetting, TheUsersOwnHiveIsNotConsulted) {
    const std::int32_t value = 6;
    const Setting setting(REG_DWORD, &value, sizeof(value), HKEY_CURRENT_USER);
    ExpectLevels(false, false, false);
}

}  // namespace
