#pragma once

#include <functional>
#include <utility>

#include "download/WorkerProcessor.h"

namespace kvmpd::test {

/// A worker whose body is the test's. The body is called with the stop event.
class TestWorker : public WorkerProcessor {
  public:
    using Body = std::function<DWORD(HANDLE stopEvent)>;

    explicit TestWorker(Body body) : m_body(std::move(body)) {}
    ~TestWorker() override { TestWorker::CloseThread(); }

    using WorkerProcessor::StopEvent;
    using WorkerProcessor::ThreadHandle;

    /// Waits until the thread has ended by itself; its exit code.
    DWORD WaitForExitCode() const {
        DWORD code = 0;
        WaitForSingleObject(ThreadHandle(), INFINITE);
        GetExitCodeThread(ThreadHandle(), &code);
        return code;
    }

  protected:
    DWORD ThreadProc() override { return m_body(StopEvent()); }

  private:
    const Body m_body;
};

/// A body that ends when it is told to.
inline DWORD UntilStopped(HANDLE stopEvent) {
    return WaitForSingleObject(stopEvent, INFINITE);
}

}  // namespace kvmpd::test
