// Conversions between the component's wide text and UTF-8, and the comparison of URLs without regard to case.
#pragma once

#include <string>
#include <string_view>

namespace kvmpd {

/// Wide text for UTF-8 `text`; bytes that are not UTF-8 become U+FFFD. Throws std::bad_alloc only.
std::wstring Utf8ToWide(std::string_view text);

/// UTF-8 for wide `text`; what is not a Unicode scalar value becomes U+FFFD. Throws std::bad_alloc only.
std::string WideToUtf8(std::wstring_view text);

/// Compares without regard to the case of each character, independent of the process's locale for ASCII letters.
bool EqualsIgnoreCase(std::wstring_view left, std::wstring_view right);

}  // namespace kvmpd
