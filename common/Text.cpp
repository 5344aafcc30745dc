#include "common/Text.h"

#include <algorithm>
#include <cwctype>

#include "platform/win32.h"

namespace kvmpd {
namespace {

wchar_t FoldCase(wchar_t character) {
    if (character >= L'A' && character <= L'Z') {
        return static_cast<wchar_t>(character - L'A' + L'a');
    }
    return character < 0x80 ? character : static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(character)));
}

}  // namespace

std::wstring Utf8ToWide(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    const int size = static_cast<int>(text.size());
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    std::wstring wide(static_cast<size_t>(std::max(length, 0)), L'\0');
    if (length > 0) {
        MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), length);
    }
    return wide;
}

std::string WideToUtf8(std::wstring_view text) {
    if (text.empty()) {
        return {};
    }
    const int size = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<size_t>(std::max(length, 0)), '\0');
    if (length > 0) {
        WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(), length, nullptr, nullptr);
    }
    return narrow;
}

bool EqualsIgnoreCase(std::wstring_view left, std::wstring_view right) {
    return std::ranges::equal(left, right, {}, FoldCase, FoldCase);
}

}  // namespace kvmpd
