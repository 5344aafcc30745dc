// Names in the records and out arguments of the interfaces.

#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "platform/com.h"

namespace kvmpd {

// Copies a name into a record's field, cut to fit, always terminated.
template <std::size_t Size>
void CopyName(std::wstring_view name, WCHAR (&field)[Size]) {
    const std::size_t length = std::min(name.size(), Size - 1);
    std::copy_n(name.data(), length, field);
    field[length] = L'\0';
}

// A terminated copy in task memory, which the receiver frees; null when there is no memory.
inline WCHAR* TaskCopy(std::wstring_view text) {
    auto* copy = static_cast<WCHAR*>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
    if (copy != nullptr) {
        std::copy_n(text.data(), text.size(), copy);
        copy[text.size()] = L'\0';
    }
    return copy;
}

}  // namespace kvmpd
