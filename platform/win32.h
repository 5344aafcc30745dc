// The door to the operating system: the Windows calls, types and constants that this project uses.
//
// On Windows this is the SDK's own header. Elsewhere it is our declarations of the same names, with Windows' widths,
// error numbers and results; what a call does differently there is said where it is declared. Only what the project
// uses is declared: add a call here together with its conformance test in tests/platform.
#ifndef PLATFORM_WIN32_H_
#define PLATFORM_WIN32_H_

#ifdef _WIN32

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <ctime>

#else

#include "platform/posix/win32_api.h"
#include "platform/posix/win32_types.h"

#endif

// Milliseconds since an arbitrary start, for measuring how long something took. On Windows it is the C
// runtime's clock(), which counts elapsed time there, in 32 bits: after 24.8 days it wraps or stays at -1, and one
// reload comes early or late by a cycle's time. Elsewhere clock() counts processor time, so a monotonic clock stands in
// for it. Any thread.
#ifdef _WIN32
inline LONGLONG ClockMs() {
    return static_cast<LONGLONG>(std::clock()) * 1000 / CLOCKS_PER_SEC;
}
#else
LONGLONG ClockMs();
#endif

#endif  // PLATFORM_WIN32_H_
