// Numbers in manifests, read as the standard library's stoi and stoll read them in base 10, without their exceptions: a
// manifest has tens of thousands of numbers, and one that is not a number is no reason to unwind.
//
// Leading white space and one sign are allowed; reading stops at the first character that is not a digit, so "25.9" is
// 25 and "30000/1001" is 30000.
#pragma once

#include "platform/win32.h"

namespace kvmpd {

template <class Integer>
struct NumberText {
    Integer value = 0;            ///< 0 when `error` is set.
    const char* error = nullptr;  ///< Null, or the description that the standard conversion's exception carries.
};

NumberText<LONG> ReadInt(const char* text);
NumberText<LONGLONG> ReadLongLong(const char* text);

}  // namespace kvmpd
