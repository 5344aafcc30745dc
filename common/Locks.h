// The component's locks, annotated for clang's thread-safety analysis.
//
//   CritSec   a re-entrant lock over the platform's critical section: the engine's and the filter's outer locks, which
//             an operation may enter again through another public operation.
//   Mutex     a plain lock. Most are leaves: nothing that the holder calls leaves the class, so it never needs
//   re-entry.
//             The few that only control threads take (a worker's life cycle) say so.
//   CondVar   waits on a Mutex. A wait names its condition in a loop at the caller; the stop flag is part of it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "common/ThreadAnnotations.h"
#include "platform/win32.h"

namespace kvmpd {

class CAPABILITY("critical section") CritSec {
  public:
    CritSec() { InitializeCriticalSection(&m_section); }
    ~CritSec() { DeleteCriticalSection(&m_section); }
    CritSec(const CritSec&) = delete;
    CritSec& operator=(const CritSec&) = delete;

    void Lock() ACQUIRE() { EnterCriticalSection(&m_section); }
    void Unlock() RELEASE() { LeaveCriticalSection(&m_section); }

  private:
    CRITICAL_SECTION m_section;
};

class SCOPED_CAPABILITY CritSecLock {
  public:
    explicit CritSecLock(CritSec& section) ACQUIRE(section) : m_section(section) { m_section.Lock(); }
    ~CritSecLock() RELEASE() { m_section.Unlock(); }
    CritSecLock(const CritSecLock&) = delete;
    CritSecLock& operator=(const CritSecLock&) = delete;

  private:
    CritSec& m_section;
};

class CAPABILITY("mutex") Mutex {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() ACQUIRE() { m_mutex.lock(); }
    void Unlock() RELEASE() { m_mutex.unlock(); }

  private:
    friend class CondVar;
    std::mutex m_mutex;
};

class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~MutexLock() RELEASE() { m_mutex.Unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& m_mutex;
};

class CondVar {
  public:
    /// Releases `mutex`, sleeps until notified (or spuriously), holds `mutex` again on return.
    void Wait(Mutex& mutex) REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.m_mutex, std::adopt_lock);
        m_condition.wait(lock);
        lock.release();
    }

    /// As Wait, but for at most `milliseconds`; false when the time ran out without a notification.
    bool WaitFor(Mutex& mutex, DWORD milliseconds) REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.m_mutex, std::adopt_lock);
        const auto result = m_condition.wait_for(lock, std::chrono::milliseconds(milliseconds));
        lock.release();
        return result == std::cv_status::no_timeout;
    }

    void NotifyOne() { m_condition.notify_one(); }
    void NotifyAll() { m_condition.notify_all(); }

  private:
    std::condition_variable m_condition;
};

}  // namespace kvmpd
