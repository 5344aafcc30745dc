// The monotonic clock that waits, sleeps and tick counts of this folder run on.
#ifndef PLATFORM_POSIX_CLOCKS_H_
#define PLATFORM_POSIX_CLOCKS_H_

#include <ctime>

#include "platform/posix/win32_types.h"

namespace kvmpd::platform {

timespec MonotonicNow();

// The moment `milliseconds` from now on the monotonic clock.
timespec MonotonicDeadline(DWORD milliseconds);

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_CLOCKS_H_
