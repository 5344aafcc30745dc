// The base of everything that owns a thread: the manifest loader, the segment downloader, the stream engine and the
// event dispatcher.
//
// One worker, one thread, one stop event. Starting and closing are serialised by a lock that the thread itself never
// takes, so any number of control threads may start and close; a close waits until the thread has ended, without a
// time-out. The worker's own thread must not close it: it would wait for itself.
#pragma once

#include <atomic>

#include "common/Handle.h"
#include "common/Locks.h"
#include "platform/win32.h"

namespace kvmpd {

class WorkerProcessor {
  public:
    WorkerProcessor();
    /// Ends the thread if a derived class has not: by then only the base's own operations may run, so every derived
    /// destructor calls its CloseThread first.
    virtual ~WorkerProcessor();
    WorkerProcessor(const WorkerProcessor&) = delete;
    WorkerProcessor& operator=(const WorkerProcessor&) = delete;

    /// Starts the thread if none runs. 0, also when one runs already; else the failure of thread creation as HRESULT.
    HRESULT StartThread();

    /// Whether a thread exists, ended or not: from a successful StartThread until CloseThread. Any thread may ask.
    bool IsThreadRunning() const { return ThreadHandle() != nullptr; }

  protected:
    /// The thread's body; its result is the thread's exit code.
    virtual DWORD ThreadProc() = 0;

  public:
    /// Signals the stop event and waits for the thread to end. Always 0 here.
    virtual HRESULT CloseThread();

  protected:
    /// Auto-reset; signalled by CloseThread. Null when the system could not make one.
    HANDLE StopEvent() const { return m_hStopEvent.get(); }
    /// The thread, or null. Valid until CloseThread, which closes it.
    HANDLE ThreadHandle() const { return m_hThread.load(std::memory_order_acquire); }

  private:
    static DWORD WINAPI Enter(LPVOID worker);

    /// Guards starting and closing. Held while a thread is joined; no worker thread ever takes it.
    Mutex m_lifecycle;
    /// Written under m_lifecycle, read by any thread.
    std::atomic<HANDLE> m_hThread{nullptr};
    const UniqueEvent m_hStopEvent;
};

}  // namespace kvmpd
