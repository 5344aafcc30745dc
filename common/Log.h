// Levelled diagnostics. Every room reports what it does through Log (wide formats) and LogA (narrow formats); the lines
// go to the operating system's debugger channel and nowhere else.
//
// Whether a line is written is decided by one number, the verbosity: the value "log" under "Software\Kavotra\MpdSource"
// of the machine-wide settings, read once per process. A message is written when its level is not above the verbosity.
// The default is 0 and every message has a level of at least 3, so the component is silent unless it is asked.
//
//   3  errors ("[Error] ..."), lifecycle and control calls
//   4  construction, destruction, settings
//   5  decisions taken while streaming
//   6  traces of every call on the read path
//
// A line is "[MpdSrc]", the message cut to 1014 characters, and a line feed. The functions may be called from any
// thread, hold no lock, use no heap memory and never fail towards their caller. A message above the verbosity costs one
// comparison.
#pragma once

#include <atomic>

#include "common/LogFormat.h"
#include "platform/win32.h"

namespace kvmpd {

/// Reads the verbosity from the machine-wide settings; 0 when there is none or when it is longer than 4 bytes.
LONG ReadLogLevelFromRegistry();

namespace detail {

struct Verbosity {
    std::atomic<bool> known{false};
    std::atomic<LONG> level{0};
};
extern constinit Verbosity g_verbosity;

LONG LearnLogLevel();
void WriteLog(const char* format, std::span<const LogArgument> arguments);
void WriteLog(const wchar_t* format, std::span<const LogArgument> arguments);

template <class Char, class... Arguments>
void FormatAndWrite(const Char* format, const Arguments&... arguments) {
    const std::array<LogArgument, sizeof...(Arguments)> packed{MakeLogArgument(arguments)...};
    WriteLog(format, packed);
}

}  // namespace detail

/// The verbosity. The first call reads it; a change of the setting takes effect in a new process only. Two threads that
/// ask for the first time at once may both read it, which is harmless: they store the same value.
inline LONG GetLogLevel() {
    if (detail::g_verbosity.known.load(std::memory_order_acquire)) {
        return detail::g_verbosity.level.load(std::memory_order_relaxed);
    }
    return detail::LearnLogLevel();
}

/// Writes a wide message: "%s" takes wide text (narrow text is converted).
template <class... Arguments>
void Log(LONG level, LogFormat<wchar_t, std::type_identity_t<Arguments>...> format, const Arguments&... arguments) {
    if (level > GetLogLevel()) {
        return;
    }
    detail::FormatAndWrite(format.Text(), arguments...);
}

/// Writes a narrow message: "%s" takes narrow text (wide text is converted to UTF-8).
template <class... Arguments>
void LogA(LONG level, LogFormat<char, std::type_identity_t<Arguments>...> format, const Arguments&... arguments) {
    if (level > GetLogLevel()) {
        return;
    }
    detail::FormatAndWrite(format.Text(), arguments...);
}

/// For tests: where lines go instead of the debugger channel, and which verbosity holds.
struct LogTestHooks {
    using NarrowSink = void (*)(const char* line);
    using WideSink = void (*)(const wchar_t* line);

    static void Redirect(NarrowSink narrow, WideSink wide);
    static void SetLevel(LONG level);
    /// The next call of GetLogLevel reads the setting again.
    static void ForgetLevel();
};

}  // namespace kvmpd
