#include "common/Log.h"

#include "common/Handle.h"

namespace kvmpd {
namespace {

constexpr wchar_t kSettingsKey[] = L"Software\\Kavotra\\MpdSource";
constexpr wchar_t kVerbosityValue[] = L"log";

constexpr char kPrefix[] = "[MpdSrc]";
constexpr size_t kPrefixLength = sizeof(kPrefix) - 1;
constexpr size_t kLineSize = 1024;
// Behind the prefix: the message, its terminator, and one character kept back for the line feed.
constexpr size_t kMessageSpace = kLineSize - 1 - kPrefixLength;

constinit std::atomic<LogTestHooks::NarrowSink> g_narrowSink{nullptr};
constinit std::atomic<LogTestHooks::WideSink> g_wideSink{nullptr};

void Send(const char* line) {
    if (const auto sink = g_narrowSink.load(std::memory_order_acquire)) {
        sink(line);
    } else {
        OutputDebugStringA(line);
    }
}

void Send(const wchar_t* line) {
    if (const auto sink = g_wideSink.load(std::memory_order_acquire)) {
        sink(line);
    } else {
        OutputDebugStringW(line);
    }
}

template <class Char>
void WriteLine(const Char* format, std::span<const LogArgument> arguments) {
    const DWORD error = GetLastError();  // a log call between a failing call and its report must not hide the cause
    Char line[kLineSize] = {};
    for (size_t i = 0; i < kPrefixLength; ++i) {
        line[i] = static_cast<Char>(kPrefix[i]);
    }
    const size_t length = FormatLog(std::span<Char>(line + kPrefixLength, kMessageSpace), format, arguments);
    line[kPrefixLength + length] = '\n';
    line[kPrefixLength + length + 1] = 0;
    Send(line);
    SetLastError(error);
}

}  // namespace

namespace detail {

constinit Verbosity g_verbosity;

LONG LearnLogLevel() {
    const LONG level = ReadLogLevelFromRegistry();
    g_verbosity.level.store(level, std::memory_order_relaxed);
    g_verbosity.known.store(true, std::memory_order_release);
    return level;
}

void WriteLog(const char* format, std::span<const LogArgument> arguments) {
    WriteLine(format, arguments);
}
void WriteLog(const wchar_t* format, std::span<const LogArgument> arguments) {
    WriteLine(format, arguments);
}

}  // namespace detail

LONG ReadLogLevelFromRegistry() {
    const DWORD error = GetLastError();
    LONG level = 0;
    UniqueRegKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, 0, KEY_READ, key.put()) == ERROR_SUCCESS) {
        LONG value = 0;
        DWORD size = sizeof(value);
        // The type is not looked at: any value of at most four bytes counts.
        if (RegQueryValueExW(key.get(), kVerbosityValue, nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size) ==
            ERROR_SUCCESS) {
            level = value;
        }
    }
    SetLastError(error);
    return level;
}

void LogTestHooks::Redirect(NarrowSink narrow, WideSink wide) {
    g_narrowSink.store(narrow, std::memory_order_release);
    g_wideSink.store(wide, std::memory_order_release);
}

void LogTestHooks::SetLevel(LONG level) {
    detail::g_verbosity.level.store(level, std::memory_order_relaxed);
    detail::g_verbosity.known.store(true, std::memory_order_release);
}

void LogTestHooks::ForgetLevel() {
    detail::g_verbosity.known.store(false, std::memory_order_release);
}

}  // namespace kvmpd
