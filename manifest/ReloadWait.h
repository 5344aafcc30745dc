// When the manifest is due again. All times are milliseconds.
#pragma once

#include "platform/win32.h"

namespace kvmpd {

/// Time from the start of one reload to the start of the next: the duration of the newest segment, half of it when the
/// reload brought nothing new, and never under a second.
constexpr DWORD ReloadPeriod(DWORD lastDuration, bool noNews) {
    const DWORD period = noNews ? lastDuration >> 1 : lastDuration;
    return period <= 1000 ? 1000 : period;
}

/// What is left of `period` after a cycle that took `elapsed`, at least 100: a slow origin is not asked back to back.
constexpr DWORD ReloadWait(DWORD period, ULONGLONG elapsed) {
    return period > elapsed + 100 ? period - static_cast<DWORD>(elapsed) : 100;
}

}  // namespace kvmpd
