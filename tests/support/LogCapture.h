#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"

namespace kvmpd::test {

/// Collects what the component logs, process-wide, while it lives; one at a time. Lines are kept as UTF-8 without the
/// prefix and the line feed, so that a test names the text as the code writes it. All operations may be called from any
/// thread.
class LogCapture {
  public:
    /// Sets the verbosity to `level`; the destructor sets it back to 0 (silent).
    explicit LogCapture(LONG level = 6);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> Lines() const;
    /// Whether a line is exactly `text`.
    bool Contains(std::string_view text) const;
    /// How many lines are exactly `text`.
    size_t Count(std::string_view text) const;
    /// How many lines begin with `text`.
    size_t CountPrefix(std::string_view text) const;
    /// Waits until a line begins with `text`; false after `milliseconds` (a bound for broken code, not a pace).
    bool WaitForPrefix(std::string_view text, size_t count = 1, int milliseconds = 20000) const;
    void Clear();
};

}  // namespace kvmpd::test
