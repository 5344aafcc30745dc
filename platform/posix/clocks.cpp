#include "platform/posix/clocks.h"

#include <sched.h>
#include <unistd.h>

#include <cerrno>

#include "platform/win32.h"

namespace kvmpd::platform {

timespec MonotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

timespec MonotonicDeadline(DWORD milliseconds) {
    timespec moment = MonotonicNow();
    moment.tv_sec += static_cast<time_t>(milliseconds / 1000);
    moment.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (moment.tv_nsec >= 1'000'000'000) {
        moment.tv_nsec -= 1'000'000'000;
        ++moment.tv_sec;
    }
    return moment;
}

}  // namespace kvmpd::platform

ULONGLONG GetTickCount64() {
    const timespec now = kvmpd::platform::MonotonicNow();
    return static_cast<ULONGLONG>(now.tv_sec) * 1000 + static_cast<ULONGLONG>(now.tv_nsec) / 1'000'000;
}

LONGLONG ClockMs() {
    return static_cast<LONGLONG>(GetTickCount64());
}

void Sleep(DWORD milliseconds) {
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    if (milliseconds == INFINITE) {
        for (;;) {
            pause();
        }
    }
    const timespec deadline = kvmpd::platform::MonotonicDeadline(milliseconds);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
    }
}
