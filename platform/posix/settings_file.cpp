#include "platform/posix/settings_file.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>

#include "platform/posix/utf8.h"
#include "platform/posix/win32_api.h"

namespace kvmpd::platform {
namespace {

std::string_view Trim(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<SettingValue> ParseNumber(std::string_view text) {
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hexadecimal ? 2 : 0);
    std::uint64_t magnitude = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
    const std::uint64_t limit = negative ? std::uint64_t{1} << 31 : std::numeric_limits<DWORD>::max();
    if (error != std::errc{} || stop != end || magnitude > limit) {
        return std::nullopt;
    }
    const auto number = static_cast<DWORD>(negative ? 0 - magnitude : magnitude);
    SettingValue value{REG_DWORD, std::vector<BYTE>(sizeof(number))};
    std::memcpy(value.data.data(), &number, sizeof(number));
    return value;
}

// UTF-16 in this machine's byte order, terminator included.
SettingValue TextValue(std::string_view text) {
    std::u16string units;
    while (!text.empty()) {
        const DecodedCharacter character = DecodeUtf8(text);
        text.remove_prefix(character.length);
        if (character.value < 0x10000) {
            units.push_back(static_cast<char16_t>(character.value));
        } else {
            const char32_t offset = character.value - 0x10000;
            units.push_back(static_cast<char16_t>(0xD800 + (offset >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
        }
    }
    SettingValue value{REG_SZ, std::vector<BYTE>((units.size() + 1) * sizeof(char16_t))};
    std::memcpy(value.data.data(), units.c_str(), value.data.size());
    return value;
}

// The line up to a '#' that is not inside quotes.
std::string_view WithoutComment(std::string_view line) {
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '"') {
            quoted = !quoted;
        } else if (line[i] == '#' && !quoted) {
            return line.substr(0, i);
        }
    }
    return line;
}

}  // namespace

bool EqualsIgnoringAsciiCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return AsciiLower(x) == AsciiLower(y); });
}

std::optional<SettingValue> ParseSettingValue(std::string_view text) {
    text = Trim(text);
    if (!text.starts_with('"')) {
        return ParseNumber(text);
    }
    if (text.find('"', 1) != text.size() - 1 || text.size() < 2) {
        return std::nullopt;
    }
    return TextValue(text.substr(1, text.size() - 2));
}

Settings Settings::Parse(std::string_view fileText) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (fileText.starts_with(kByteOrderMark)) {
        fileText.remove_prefix(kByteOrderMark.size());
    }
    Settings settings;
    while (!fileText.empty()) {
        const std::size_t lineEnd = fileText.find('\n');
        const std::string_view line = WithoutComment(fileText.substr(0, lineEnd));
        fileText.remove_prefix(lineEnd == std::string_view::npos ? fileText.size() : lineEnd + 1);

        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        const std::string_view name = Trim(line.substr(0, equals));
        std::optional<SettingValue> value = ParseSettingValue(line.substr(equals + 1));
        if (!name.empty() && value) {
            settings.Set(name, std::move(*value));
        }
    }
    return settings;
}

void Settings::Set(std::string_view name, SettingValue value) {
    for (Entry& entry : m_entries) {
        if (EqualsIgnoringAsciiCase(entry.name, name)) {
            entry.value = std::move(value);
            return;
        }
    }
    m_entries.push_back({std::string(name), std::move(value)});
}

const SettingValue* Settings::Find(std::string_view name) const {
    for (const Entry& entry : m_entries) {
        if (EqualsIgnoringAsciiCase(entry.name, name)) {
            return &entry.value;
        }
    }
    return nullptr;
}

}  // namespace kvmpd::platform
