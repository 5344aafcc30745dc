#include "download/WorkerProcessor.h"

#include "common/Log.h"

namespace kvmpd {
namespace {

HRESULT ResultFromError(DWORD error) {
    const auto code = static_cast<LONG>(error);
    return code > 0 ? static_cast<HRESULT>(0x80070000u | (error & 0xFFFFu)) : code;
}

}  // namespace

WorkerProcessor::WorkerProcessor()
    : m_hStopEvent(CreateEventW(nullptr, /*manual_reset=*/FALSE, /*initial_state=*/FALSE, nullptr)) {}

WorkerProcessor::~WorkerProcessor() {
    WorkerProcessor::CloseThread();
}

HRESULT WorkerProcessor::StartThread() {
    const MutexLock lock(m_lifecycle);
    if (IsThreadRunning()) {
        return 0;
    }
    ResetEvent(m_hStopEvent.get());
    const HANDLE thread = CreateThread(nullptr, /*stack_size=*/0, &WorkerProcessor::Enter, this, /*flags=*/0, nullptr);
    if (!thread) {
        return ResultFromError(GetLastError());
    }
    m_hThread.store(thread, std::memory_order_release);
    return 0;
}

HRESULT WorkerProcessor::CloseThread() {
    Log(3, L" WorkerProcessor::CloseThread ");
    {
        const MutexLock lock(m_lifecycle);
        SetEvent(m_hStopEvent.get());
        if (const HANDLE thread = m_hThread.load(std::memory_order_relaxed)) {
            WaitForSingleObject(thread, INFINITE);
            CloseHandle(thread);
            m_hThread.store(nullptr, std::memory_order_release);
        }
    }
    Log(3, L" WorkerProcessor::CloseThread Finish");
    return 0;
}

DWORD WINAPI WorkerProcessor::Enter(LPVOID worker) {
    // An exception must not leave the module's thread: it would end the host.
    try {
        return static_cast<WorkerProcessor*>(worker)->ThreadProc();
    } catch (...) {
        Log(3, L"[Error] WorkerProcessor::Enter thread ended by an exception");
        return static_cast<DWORD>(E_UNEXPECTED);
    }
}

}  // namespace kvmpd
