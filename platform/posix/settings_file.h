// The settings files that stand in for registry keys.
//
//     # a comment; blank lines are fine
//     log = 5                  a whole number, decimal or 0x hexadecimal, from -2^31 to 2^32 - 1: REG_DWORD
//     name = "some text"       text in double quotes, which it cannot contain: REG_SZ
//
// Value names are told apart without regard to the case of ASCII letters; of two lines with one name the last counts.
// A line of any other form is skipped: one mistyped setting does not take the others with it.
#ifndef PLATFORM_POSIX_SETTINGS_FILE_H_
#define PLATFORM_POSIX_SETTINGS_FILE_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/posix/win32_types.h"

namespace kvmpd::platform {

struct SettingValue {
    DWORD type;  // REG_DWORD or REG_SZ
    std::vector<BYTE> data;
};

// What stands right of the equals sign, without a comment; blanks around it do not count.
std::optional<SettingValue> ParseSettingValue(std::string_view text);

class Settings {
  public:
    static Settings Parse(std::string_view fileText);

    void Set(std::string_view name, SettingValue value);
    const SettingValue* Find(std::string_view name) const;

  private:
    struct Entry {
        std::string name;
        SettingValue value;
    };
    std::vector<Entry> m_entries;
};

bool EqualsIgnoringAsciiCase(std::string_view a, std::string_view b);
constexpr char AsciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_SETTINGS_FILE_H_
