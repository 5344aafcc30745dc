#include "app/Text.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace kvmpd::app {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Takes one code point from the front of text; text is not empty.
char32_t TakeCodePoint(std::string_view& text) {
    const auto lead = static_cast<unsigned char>(text.front());
    std::size_t length = 1;
    char32_t value = lead;
    char32_t least = 0;
    if (lead >= 0xF0 && lead < 0xF5) {
        length = 4, value = lead & 0x07u, least = 0x10000;
    } else if (lead >= 0xE0 && lead < 0xF0) {
        length = 3, value = lead & 0x0Fu, least = 0x800;
    } else if (lead >= 0xC2 && lead < 0xE0) {
        length = 2, value = lead & 0x1Fu, least = 0x80;
    } else if (lead >= 0x80) {
        text.remove_prefix(1);
        return kReplacement;
    }
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
        if ((next & 0xC0u) != 0x80u) {
            text.remove_prefix(1);
            return kReplacement;
        }
        value = (value << 6) | (next & 0x3Fu);
    }
    const bool bad = value < least || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF);
    text.remove_prefix(bad ? 1 : length);
    return bad ? kReplacement : value;
}

void AppendUtf8(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        c = kReplacement;
    }
    const auto tail = [&](unsigned shift) { out += static_cast<char>(0x80u | ((c >> shift) & 0x3Fu)); };
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0u | (c >> 6));
        tail(0);
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0u | (c >> 12));
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xF0u | (c >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

}  // namespace

std::wstring WideFromUtf8(std::string_view text) {
    std::wstring wide;
    while (!text.empty()) {
        wide += static_cast<wchar_t>(TakeCodePoint(text));
    }
    return wide;
}

std::string Utf8FromWide(std::wstring_view text) {
    std::string narrow;
    for (const wchar_t c : text) {
        AppendUtf8(narrow, static_cast<char32_t>(c));
    }
    return narrow;
}

std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text) {
    constexpr double kYear = 366.0 * 24 * 3600;
    double seconds = 0;
    double previousUnit = 2 * 3600.0;
    bool any = false;
    while (!text.empty()) {
        if (std::isdigit(static_cast<unsigned char>(text.front())) == 0) {
            return std::nullopt;
        }
        double number = 0;
        const auto [end, error] =
            std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
        if (error != std::errc{}) {
            return std::nullopt;
        }
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        double unit = 1;
        if (!text.empty()) {
            const char letter = text.front();
            unit = letter == 'h' ? 3600 : letter == 'm' ? 60 : letter == 's' ? 1 : 0;
            text.remove_prefix(1);
        } else if (any) {
            return std::nullopt;  // "1m30": seconds, or a slip of the finger?
        }
        if (unit <= 0 || unit >= previousUnit) {
            return std::nullopt;
        }
        previousUnit = unit;
        seconds += number * unit;
        any = true;
    }
    if (!any || !std::isfinite(seconds) || seconds > kYear) {
        return std::nullopt;
    }
    const auto milliseconds = static_cast<std::int64_t>(std::llround(seconds * 1000));
    if (milliseconds <= 0) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(milliseconds);
}

bool IsHttpUrl(std::string_view url) {
    const auto startsWith = [&](std::string_view scheme) {
        if (url.size() < scheme.size()) {
            return false;
        }
        for (std::size_t i = 0; i < scheme.size(); ++i) {
            if (std::tolower(static_cast<unsigned char>(url[i])) != scheme[i]) {
                return false;
            }
        }
        return true;
    };
    const std::size_t host = startsWith("http://") ? 7 : startsWith("https://") ? 8 : std::string_view::npos;
    if (host == std::string_view::npos || host >= url.size()) {
        return false;
    }
    for (const char c : url) {
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7F) {
            return false;
        }
    }
    const char first = url[host];
    return first != '/' && first != '?' && first != '#' && first != ':' && first != '@';
}

std::string FormatClock(std::int64_t milliseconds, bool withMilliseconds) {
    const char* sign = milliseconds < 0 ? "-" : "";
    const std::int64_t total = milliseconds < 0 ? -milliseconds : milliseconds;
    const auto hours = static_cast<long long>(total / 3600000);
    const auto minutes = static_cast<int>(total / 60000 % 60);
    const auto seconds = static_cast<int>(total / 1000 % 60);
    std::string text = hours != 0 ? Format("%s%lld:%02d:%02d", sign, hours, minutes, seconds)
                                  : Format("%s%d:%02d", sign, minutes, seconds);
    if (withMilliseconds) {
        text += Format(".%03d", static_cast<int>(total % 1000));
    }
    return text;
}

std::string FormatBytes(std::int64_t bytes) {
    const auto value = static_cast<double>(bytes);
    if (bytes < 1000) {
        return Format("%lld B", static_cast<long long>(bytes));
    }
    if (value < 1e6) {
        return Format("%.1f kB", value / 1e3);
    }
    return value < 1e9 ? Format("%.1f MB", value / 1e6) : Format("%.2f GB", value / 1e9);
}

std::string FormatBitRate(std::int64_t bitsPerSecond) {
    const auto value = static_cast<double>(bitsPerSecond);
    return value < 1e6 ? Format("%.0f kbit/s", value / 1e3) : Format("%.2f Mbit/s", value / 1e6);
}

std::string Format(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text;
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

}  // namespace kvmpd::app
