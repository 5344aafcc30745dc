#include <climits>
#include <cstring>
#include <cwchar>
#include <string_view>

#include "platform/posix/last_error.h"
#include "platform/posix/utf8.h"
#include "platform/posix/win32_api.h"

namespace {

using namespace kvmpd::platform;

// Counts what is written and stops writing, not counting, where the room ends.
template <typename Character>
class Output {
  public:
    // `size` 0 asks for the count alone.
    Output(Character* buffer, int size) : m_buffer(buffer), m_size(size) {}

    void Put(const Character* text, std::size_t length) {
        if (m_size != 0 && !m_full) {
            m_full = length > static_cast<std::size_t>(m_size) - m_count;
            if (!m_full) {
                std::memcpy(m_buffer + m_count, text, length * sizeof(Character));
            }
        }
        m_count += length;
    }

    // The function's result.
    int Finish() const {
        if (m_full) {
            return FailWith(ERROR_INSUFFICIENT_BUFFER);
        }
        if (m_count > INT_MAX) {
            return FailWith(ERROR_INVALID_PARAMETER);
        }
        return static_cast<int>(m_count);
    }

  private:
    Character* const m_buffer;
    const int m_size;
    std::size_t m_count = 0;
    bool m_full = false;
};

bool IsKnownCodePage(UINT codePage) {
    return codePage == CP_UTF8 || codePage == CP_ACP;
}

// What both functions refuse. A length of 0 is refused, a negative one means up to the terminator and with it.
bool AreArgumentsValid(const void* source, int sourceLength, const void* target, int targetSize) {
    return source != nullptr && sourceLength != 0 && targetSize >= 0 && (target != nullptr || targetSize == 0) &&
           source != target;
}

}  // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int textBytes, LPWSTR wide, int wideSize) {
    if (!AreArgumentsValid(text, textBytes, wide, wideSize) || !IsKnownCodePage(codePage)) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    const DWORD allowed = MB_ERR_INVALID_CHARS | (codePage == CP_ACP ? MB_PRECOMPOSED : 0);
    if ((flags & ~allowed) != 0) {
        return FailWith(ERROR_INVALID_FLAGS);
    }
    std::string_view rest(text, textBytes < 0 ? std::strlen(text) + 1 : static_cast<std::size_t>(textBytes));
    Output<wchar_t> output(wide, wideSize);
    while (!rest.empty()) {
        const DecodedCharacter character = DecodeUtf8(rest);
        if (!character.valid && (flags & MB_ERR_INVALID_CHARS) != 0) {
            return FailWith(ERROR_NO_UNICODE_TRANSLATION);
        }
        const auto value = static_cast<wchar_t>(character.value);
        output.Put(&value, 1);
        rest.remove_prefix(character.length);
    }
    return output.Finish();
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideChars, LPSTR text, int textSize,
                        LPCSTR defaultChar, LPBOOL usedDefaultChar) {
    if (!AreArgumentsValid(wide, wideChars, text, textSize) || !IsKnownCodePage(codePage)) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    // UTF-8 has a form for every character, so there is nothing to default.
    if (defaultChar != nullptr || usedDefaultChar != nullptr) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    if ((flags & ~WC_ERR_INVALID_CHARS) != 0) {
        return FailWith(ERROR_INVALID_FLAGS);
    }
    const std::wstring_view source(wide, wideChars < 0 ? std::wcslen(wide) + 1 : static_cast<std::size_t>(wideChars));
    Output<char> output(text, textSize);
    for (const wchar_t unit : source) {
        auto value = static_cast<char32_t>(unit);
        if (!IsScalarValue(value)) {
            if ((flags & WC_ERR_INVALID_CHARS) != 0) {
                return FailWith(ERROR_NO_UNICODE_TRANSLATION);
            }
            value = kReplacementCharacter;
        }
        char encoded[kMaxUtf8Length];
        output.Put(encoded, EncodeUtf8(value, encoded));
    }
    return output.Finish();
}
