// A lock and a condition of this folder's own, annotated for clang's thread-safety analysis. Both may be global: they
// are initialised at compile time and need no destruction, so that threads which outlive main() can still use them.
#ifndef PLATFORM_POSIX_ANNOTATED_LOCK_H_
#define PLATFORM_POSIX_ANNOTATED_LOCK_H_

#include <pthread.h>

#include <ctime>

#ifdef __clang__
#define PLATFORM_TSA(x) __attribute__((x))
#else
#define PLATFORM_TSA(x)
#endif
#define PLATFORM_CAPABILITY(name) PLATFORM_TSA(capability(name))
#define PLATFORM_SCOPED_CAPABILITY PLATFORM_TSA(scoped_lockable)
#define PLATFORM_GUARDED_BY(lock) PLATFORM_TSA(guarded_by(lock))
#define PLATFORM_REQUIRES(lock) PLATFORM_TSA(requires_capability(lock))
#define PLATFORM_EXCLUDES(lock) PLATFORM_TSA(locks_excluded(lock))
#define PLATFORM_ACQUIRE(...) PLATFORM_TSA(acquire_capability(__VA_ARGS__))
#define PLATFORM_RELEASE(...) PLATFORM_TSA(release_capability(__VA_ARGS__))

namespace kvmpd::platform {

// Not re-entrant.
class PLATFORM_CAPABILITY("lock") Lock {
  public:
    constexpr Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void Acquire() PLATFORM_ACQUIRE() { pthread_mutex_lock(&m_mutex); }
    void Release() PLATFORM_RELEASE() { pthread_mutex_unlock(&m_mutex); }

  private:
    friend class Condition;
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

class PLATFORM_SCOPED_CAPABILITY LockHold {
  public:
    explicit LockHold(Lock& lock) PLATFORM_ACQUIRE(lock) : m_lock(lock) { m_lock.Acquire(); }
    ~LockHold() PLATFORM_RELEASE() { m_lock.Release(); }
    LockHold(const LockHold&) = delete;
    LockHold& operator=(const LockHold&) = delete;

  private:
    Lock& m_lock;
};

// Waits on CLOCK_MONOTONIC. Can wake without cause: the caller waits in a loop.
class Condition {
  public:
    Condition() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&m_condition, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~Condition() { pthread_cond_destroy(&m_condition); }
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    void Wait(Lock& lock) PLATFORM_REQUIRES(lock) { pthread_cond_wait(&m_condition, &lock.m_mutex); }

    // False when `deadline` has passed.
    bool WaitUntil(Lock& lock, const timespec& deadline) PLATFORM_REQUIRES(lock) {
        return pthread_cond_timedwait(&m_condition, &lock.m_mutex, &deadline) == 0;
    }

    void Notify() { pthread_cond_signal(&m_condition); }

  private:
    pthread_cond_t m_condition;
};

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_ANNOTATED_LOCK_H_
