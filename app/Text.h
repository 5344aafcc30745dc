// Text as the host needs it: UTF-8 outside, wide characters (one code point each) where the component asks for them,
// and numbers for people to read.

#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvmpd::app {

// Ill-formed input becomes U+FFFD, one per bad byte.
std::wstring WideFromUtf8(std::string_view text);
std::string Utf8FromWide(std::wstring_view text);

// A length of media as people write it: "20", "20s", "1.5s", "1m30s", "2h", "90m". Nothing for anything else, for zero
// and for more than a year.
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);

// http or https, with a host, and no blank or control character.
bool IsHttpUrl(std::string_view url);

// 83 -> "0:00.083", 83000 -> "1:23.000", 3723004 -> "1:02:03.004"; a negative length has a minus sign in front.
std::string FormatClock(std::int64_t milliseconds, bool withMilliseconds);

// 999 -> "999 B", 1500 -> "1.5 kB", 3200000 -> "3.2 MB".
std::string FormatBytes(std::int64_t bytes);

// 950000 -> "950 kbit/s", 2100000 -> "2.10 Mbit/s".
std::string FormatBitRate(std::int64_t bitsPerSecond);

// printf into a std::string; for numbers and short texts.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);

}  // namespace kvmpd::app
