#include "tests/stream/PlatformFaults.h"

#include <pthread.h>
#include <sys/types.h>

#include <cerrno>

namespace {

thread_local int t_threadsUntilFailure = 0;
thread_local int t_allocationsUntilFailure = 0;
thread_local size_t t_failingSize = 0;
thread_local size_t t_overstatement = 0;

/// Whether this is the one that a countdown means.
bool IsDue(int& countdown) {
    return countdown > 0 && --countdown == 0;
}

}  // namespace

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument);
ssize_t __real_pread(int file, void* buffer, size_t count, off_t offset);
void* __real_calloc(size_t count, size_t size);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
    return IsDue(t_threadsUntilFailure) ? EAGAIN : __real_pthread_create(thread, attributes, start, argument);
}

ssize_t __wrap_pread(int file, void* buffer, size_t count, off_t offset) {
    const ssize_t result = __real_pread(file, buffer, count, offset);
    return result > 0 ? result + static_cast<ssize_t>(t_overstatement) : result;
}

void* __wrap_calloc(size_t count, size_t size) {
    if (t_allocationsUntilFailure > 0 && count * size == t_failingSize && IsDue(t_allocationsUntilFailure)) {
        return nullptr;
    }
    return __real_calloc(count, size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace kvmpd::test {

FailingThreadCreation::FailingThreadCreation(int which) {
    t_threadsUntilFailure = which;
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

OverstatingReads::OverstatingReads(size_t more) {
    t_overstatement = more;
}

OverstatingReads::~OverstatingReads() {
    t_overstatement = 0;
}

}  // namespace kvmpd::test
