// Carries notifications from the component's threads to the host's callback, on a thread of its own, so that no sender
// ever waits for the host.
//
// At most 100 tasks wait; a slow host loses the oldest ones. Tasks are delivered one at a time in the order queued. The
// queue lock is a leaf and is never held during a callback. Without a callback there is no thread and events are
// dropped; tasks that wait when the callback is taken away go to the next one.
//
// SetCallback and CloseThread wait for the callback in progress, so they must not be called from inside one.
#pragma once

#include <deque>
#include <memory>
#include <string>

#include "common/Locks.h"
#include "download/WorkerProcessor.h"
#include "events/EventTask.h"

namespace kvmpd {

class MPDEventHandler : public WorkerProcessor {
  public:
    MPDEventHandler();
    ~MPDEventHandler() override;

    /// Replaces the host's callback (null: none) and restarts delivery. A callback is held by one reference.
    HRESULT SetCallback(IKVMPDCallback* callback);

    /// Whether a callback is registered. Any thread may ask.
    bool HasCallback() const { return m_callback.load(std::memory_order_acquire) != nullptr; }

    void OnStreamDwordEvent(DWORD id, LONG param1, LONG param2);
    void onStreamStringEvent(DWORD id, std::wstring text);
    void OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total);

  protected:
    DWORD ThreadProc() override;

  private:
    template <class Task, class... Arguments>
    void Queue(Arguments&&... arguments);
    std::shared_ptr<EventTask> TakeOldest();

    const UniqueEvent m_workEvent;  // manual-reset; set while tasks wait
    Mutex m_queueLock;              // a leaf
    std::deque<std::shared_ptr<EventTask>> m_tasks GUARDED_BY(m_queueLock);

    Mutex m_control;  // one SetCallback at a time; held while the thread is joined, never taken by it
    /// Written under m_control while no thread runs; read by the delivery thread and by senders.
    std::atomic<IKVMPDCallback*> m_callback{nullptr};
};

}  // namespace kvmpd
