#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <memory>
#include <new>
#include <utility>

#include "platform/posix/last_error.h"
#include "platform/posix/waits.h"
#include "platform/posix/win32_api.h"

namespace kvmpd::platform {
namespace {

std::atomic<DWORD> g_lastThreadId{0};
thread_local constinit DWORD t_threadId = 0;

DWORD NewThreadId() {
    return g_lastThreadId.fetch_add(1, std::memory_order_relaxed) + 1;
}

class Thread final : public Waitable {
  public:
    Thread(LPTHREAD_START_ROUTINE start, LPVOID parameter) : m_start(start), m_parameter(parameter) {}
    ~Thread() override;

    // The last error, NO_ERROR once the thread runs. Called once, before the thread's handle is given to anyone.
    static DWORD Start(const std::shared_ptr<Thread>& thread, SIZE_T stackSize);

    DWORD Id() const { return m_id; }
    DWORD ExitCode() const;

    // Waitable
    bool IsSignalled() const override PLATFORM_REQUIRES(g_waitLock) { return m_ended; }
    void AfterWait() override;

  private:
    static void* Main(void* argument) noexcept;
    void End(DWORD exitCode);

    const LPTHREAD_START_ROUTINE m_start;
    const LPVOID m_parameter;
    const DWORD m_id = NewThreadId();

    bool m_ended PLATFORM_GUARDED_BY(g_waitLock) = false;
    DWORD m_exitCode PLATFORM_GUARDED_BY(g_waitLock) = STILL_ACTIVE;

    Lock m_joinLock;  // held during the join, which is short: m_ended has been set before
    pthread_t m_native PLATFORM_GUARDED_BY(m_joinLock){};
    bool m_joinable PLATFORM_GUARDED_BY(m_joinLock) = false;
};

Thread::~Thread() {
    const LockHold hold(m_joinLock);
    if (m_joinable) {
        pthread_detach(m_native);
    }
}

void* Thread::Main(void* argument) noexcept {
    const std::unique_ptr<std::shared_ptr<Thread>> self(static_cast<std::shared_ptr<Thread>*>(argument));
    t_threadId = (*self)->m_id;
    (*self)->End((*self)->m_start((*self)->m_parameter));
    return nullptr;
}

void Thread::End(DWORD exitCode) {
    const LockHold hold(g_waitLock);
    m_exitCode = exitCode;
    m_ended = true;
    ServeWaits();
}

DWORD Thread::ExitCode() const {
    const LockHold hold(g_waitLock);
    return m_exitCode;
}

// Makes the end complete for whoever waited for it: the thread's stack and its thread-local objects are gone, so the
// caller may unload or destroy whatever they used.
void Thread::AfterWait() {
    const LockHold hold(m_joinLock);
    if (m_joinable && !pthread_equal(m_native, pthread_self())) {
        pthread_join(m_native, nullptr);
        m_joinable = false;
    }
}

// Signals that a thread causes by its own fault stay deliverable, and so does the profiler's; every other is the
// business of the program's own threads.
sigset_t SignalsForOtherThreads() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF}) {
        sigdelset(&signals, own);
    }
    return signals;
}

class ThreadAttributes {
  public:
    explicit ThreadAttributes(SIZE_T stackSize) {
        pthread_attr_init(&m_attributes);
        if (stackSize != 0) {
            const auto page = static_cast<SIZE_T>(sysconf(_SC_PAGESIZE));
            const SIZE_T size = std::max(stackSize, static_cast<SIZE_T>(PTHREAD_STACK_MIN));
            pthread_attr_setstacksize(&m_attributes, (size + page - 1) / page * page);
        }
    }
    ~ThreadAttributes() { pthread_attr_destroy(&m_attributes); }
    ThreadAttributes(const ThreadAttributes&) = delete;
    ThreadAttributes& operator=(const ThreadAttributes&) = delete;

    const pthread_attr_t* get() const { return &m_attributes; }

  private:
    pthread_attr_t m_attributes;
};

DWORD Thread::Start(const std::shared_ptr<Thread>& thread, SIZE_T stackSize) {
    const ThreadAttributes attributes(stackSize);
    auto argument = std::make_unique<std::shared_ptr<Thread>>(thread);
    const LockHold hold(thread->m_joinLock);
    const sigset_t blocked = SignalsForOtherThreads();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const int error = pthread_create(&thread->m_native, attributes.get(), &Thread::Main, argument.get());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) {
        return ERROR_MAX_THRDS_REACHED;
    }
    static_cast<void>(argument.release());  // the new thread's now
    thread->m_joinable = true;
    return NO_ERROR;
}

}  // namespace
}  // namespace kvmpd::platform

using kvmpd::platform::FailWith;
using kvmpd::platform::Thread;

HANDLE CreateThread(LPSECURITY_ATTRIBUTES /*attributes*/, SIZE_T stackSize, LPTHREAD_START_ROUTINE start,
                    LPVOID parameter, DWORD flags, LPDWORD threadId) {
    if (start == nullptr || (flags & ~STACK_SIZE_PARAM_IS_A_RESERVATION) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    try {
        const auto thread = std::make_shared<Thread>(start, parameter);
        const HANDLE handle = OpenHandle(thread);
        if (!handle) {
            return nullptr;
        }
        DWORD error = ERROR_NOT_ENOUGH_MEMORY;
        try {
            error = Thread::Start(thread, stackSize);
        } catch (const std::bad_alloc&) {
        }
        if (error != NO_ERROR) {
            CloseHandle(handle);
            SetLastError(error);
            return nullptr;
        }
        if (threadId) {
            *threadId = thread->Id();
        }
        return handle;
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
}

BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode) {
    if (exitCode == nullptr) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    const std::shared_ptr<Thread> object = kvmpd::platform::ObjectOf<Thread>(thread);
    if (!object) {
        return FALSE;
    }
    *exitCode = object->ExitCode();
    return TRUE;
}

DWORD GetCurrentThreadId() {
    using kvmpd::platform::t_threadId;
    if (t_threadId == 0) {
        t_threadId = kvmpd::platform::NewThreadId();
    }
    return t_threadId;
}
