#include "events/MPDEventHandler.h"

#include <new>

#include "common/ComPtr.h"
#include "common/Log.h"

namespace kvmpd {
namespace {

constexpr size_t kMostTasks = 100;

}  // namespace

MPDEventHandler::MPDEventHandler()
    : m_workEvent(CreateEventW(nullptr, /*manual_reset=*/TRUE, /*initial_state=*/FALSE, nullptr)) {}

MPDEventHandler::~MPDEventHandler() {
    Log(6, L" MPDEventHandler::~MPDEventHandler ");
    SetCallback(nullptr);
    Log(6, L" MPDEventHandler::~MPDEventHandler finish");
    if (IKVMPDCallback* kept = m_callback.exchange(nullptr)) {
        kept->Release();
    }
}

HRESULT MPDEventHandler::SetCallback(IKVMPDCallback* callback) {
    ComPtr<IKVMPDCallback> old;  // released when the lock has been left: the host's Release may call anything
    const MutexLock lock(m_control);
    Log(3, L" MPDEventHandler::SetCallback ");
    const HRESULT closed = CloseThread();
    if (FAILED(closed)) {
        Log(3, L"[Error] MPDEventHandler::SetCallback Fail to close callback thread!");
        return closed;
    }
    if (callback != m_callback.load(std::memory_order_relaxed)) {
        if (callback) {
            callback->AddRef();
        }
        old.Attach(m_callback.exchange(callback));
    }
    return callback ? StartThread() : closed;
}

void MPDEventHandler::OnStreamDwordEvent(DWORD id, LONG param1, LONG param2) {
    if (!IsThreadRunning()) {
        return;
    }
    Log(4, L" MPDEventHandler::OnStreamDwordEvent Call to client event: %lu param1: %d param2: %d", id, param1, param2);
    Queue<DwordStreamEventTask>(id, param1, param2);
}

void MPDEventHandler::onStreamStringEvent(DWORD id, std::wstring text) {
    if (!IsThreadRunning()) {
        return;
    }
    Log(4, L" MPDEventHandler::onStreamStringEvent Call to client event: %lu param1: %s", id, text);
    Queue<StreamStringEventTask>(id, std::move(text));
}

void MPDEventHandler::OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) {
    if (!IsThreadRunning()) {
        return;
    }
    Log(4, L" MPDEventHandler::OnBuffering Call to client buffering play: %lld. buffered: %lld, total: %lld", play,
        buffered, total);
    Queue<BufferedEventTask>(play, buffered, total);
}

template <class Task, class... Arguments>
void MPDEventHandler::Queue(Arguments&&... arguments) {
    // A notification for which there is no memory is skipped; the stream goes on.
    try {
        auto task = std::make_shared<Task>(std::forward<Arguments>(arguments)...);
        std::shared_ptr<EventTask> dropped;
        const MutexLock lock(m_queueLock);
        m_tasks.push_back(std::move(task));
        if (m_tasks.size() > kMostTasks) {
            dropped = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        SetEvent(m_workEvent.get());
    } catch (const std::bad_alloc&) {
        Log(3, L"[Error] MPDEventHandler::Queue out of memory, event skipped");
    }
}

std::shared_ptr<EventTask> MPDEventHandler::TakeOldest() {
    const MutexLock lock(m_queueLock);
    std::shared_ptr<EventTask> task;
    if (!m_tasks.empty()) {
        task = std::move(m_tasks.front());
        m_tasks.pop_front();
    }
    if (m_tasks.empty()) {
        ResetEvent(m_workEvent.get());
    }
    return task;
}

DWORD MPDEventHandler::ThreadProc() {
    Log(3, L" MPDEventHandler::ThreadProc ");
    const HANDLE handles[] = {StopEvent(), m_workEvent.get()};
    while (WaitForMultipleObjects(2, handles, /*wait_all=*/FALSE, INFINITE) == WAIT_OBJECT_0 + 1) {
        IKVMPDCallback* const callback = m_callback.load(std::memory_order_acquire);
        if (!callback) {
            continue;
        }
        if (const std::shared_ptr<EventTask> task = TakeOldest()) {
            task->Run(*callback);
        }
    }
    return 0;
}

}  // namespace kvmpd
