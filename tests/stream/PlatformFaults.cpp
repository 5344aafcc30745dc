#include "tests/stream/PlatformFaults.h"

namespace {

thread_local int t_threadsUntilFailure = 0;
thread_local DWORD t_threadError = 0;
thread_local int t_allocationsUntilFailure = 0;
thread_local size_t t_failingSize = 0;
thread_local DWORD t_overstatement = 0;

/// Whether this is the one that a countdown means.
bool IsDue(int& countdown) {
    return countdown > 0 && --countdown == 0;
}

}  // namespace

extern "C" {

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
HANDLE __real_CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD);
BOOL __real_ReadFile(HANDLE, LPVOID, DWORD, LPDWORD, LPOVERLAPPED);
void* __real_calloc(size_t, size_t);

HANDLE __wrap_CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE start,
                           LPVOID parameter, DWORD flags, LPDWORD id) {
    if (IsDue(t_threadsUntilFailure)) {
        SetLastError(t_threadError);
        return nullptr;
    }
    return __real_CreateThread(attributes, stackSize, start, parameter, flags, id);
}

BOOL __wrap_ReadFile(HANDLE file, LPVOID buffer, DWORD count, LPDWORD read, LPOVERLAPPED overlapped) {
    const BOOL result = __real_ReadFile(file, buffer, count, read, overlapped);
    if (result && read) {
        *read += t_overstatement;
    }
    return result;
}

void* __wrap_calloc(size_t count, size_t size) {
    if (t_allocationsUntilFailure > 0 && count * size == t_failingSize && IsDue(t_allocationsUntilFailure)) {
        return nullptr;
    }
    return __real_calloc(count, size);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace kvmpd::test {

FailingThreadCreation::FailingThreadCreation(int which, DWORD error) {
    t_threadsUntilFailure = which;
    t_threadError = error;
}
FailingThreadCreation::~FailingThreadCreation() {
    t_threadsUntilFailure = 0;
}

FailingAllocation::FailingAllocation(int which, size_t size) {
    t_allocationsUntilFailure = which;
    t_failingSize = size;
}
FailingAllocation::~FailingAllocation() {
    t_allocationsUntilFailure = 0;
}

OverstatingReads::OverstatingReads(DWORD more) {
    t_overstatement = more;
}
OverstatingReads::~OverstatingReads() {
    t_overstatement = 0;
}

}  // namespace kvmpd::test
