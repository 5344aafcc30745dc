#include <pthread.h>

#include <cstdlib>
#include <new>

#include "platform/posix/win32_api.h"

namespace {

static_assert(sizeof(pthread_mutex_t) <= sizeof(CRITICAL_SECTION));
static_assert(alignof(pthread_mutex_t) <= alignof(CRITICAL_SECTION));

pthread_mutex_t* MutexOf(LPCRITICAL_SECTION section) {
    return std::launder(reinterpret_cast<pthread_mutex_t*>(section->storage));
}

// A critical section cannot report a failure, and none can happen in a correct program.
void Require(int result) {
    if (result != 0) {
        std::abort();
    }
}

}  // namespace

void InitializeCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutexattr_t attributes;
    Require(pthread_mutexattr_init(&attributes));
    Require(pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE));
    Require(pthread_mutex_init(::new (static_cast<void*>(section->storage)) pthread_mutex_t, &attributes));
    pthread_mutexattr_destroy(&attributes);
}

void EnterCriticalSection(LPCRITICAL_SECTION section) {
    Require(pthread_mutex_lock(MutexOf(section)));
}

BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section) {
    return pthread_mutex_trylock(MutexOf(section)) == 0 ? TRUE : FALSE;
}

void LeaveCriticalSection(LPCRITICAL_SECTION section) {
    Require(pthread_mutex_unlock(MutexOf(section)));
}

void DeleteCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_destroy(MutexOf(section));
}
