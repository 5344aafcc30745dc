// The request queue behind the output pin: queued reads, done by one worker thread, and synchronous ones, done on the
// caller's.
//
// A queued request waits in the work list, is completed by the worker, and waits in the done list until WaitForNext
// hands it out; requests come back in the order in which they were made. Flushing refuses new requests and moves the
// waiting ones to the done list as they are, so that every sample comes back; the request that the worker is completing
// goes before them. Closing moves them at once, before the worker's request, refuses new ones for good and ends the
// worker. The worker is started by the first request: a reader that only reads synchronously costs no thread.
//
// Any thread may call anything, except Close and the destructor, which belong to the owner. The queue's lock is a leaf:
// it is not held while a request is completed. A sample in the queue is kept alive by the queue.

#pragma once

#include <list>

#include "common/ComPtr.h"
#include "common/Handle.h"
#include "common/Locks.h"
#include "filter/CAsyncRequest.h"
#include "platform/com.h"
#include "stream/CAsyncStream.h"

namespace kvmpd {

class CAsyncIo {
  public:
    // stream: outlives every call, not the queue: Close is called before it goes. It may not be constructed yet.
    explicit CAsyncIo(CAsyncStream* stream);
    ~CAsyncIo();
    CAsyncIo(const CAsyncIo&) = delete;
    CAsyncIo& operator=(const CAsyncIo&) = delete;

    // Queues a read. VFW_E_BADALIGN when an aligned one is not aligned; VFW_E_WRONG_STATE while flushing or closed.
    HRESULT Request(LONGLONG position, LONG length, BOOL aligned, BYTE* buffer, IMediaSample* sample, DWORD_PTR user);

    // The oldest completed request, waiting up to `timeout` milliseconds (or INFINITE) for one. Its result is the
    // request's; bytes that were not there yet (S_FALSE) are E_FAIL unless the read ended at the stream's end.
    // VFW_E_TIMEOUT with a null sample: the time ran out; with a sample: the request was flushed. VFW_E_WRONG_STATE
    // with a null sample: flushing or closed, and every request has been handed out. The queue's reference on the
    // sample becomes the caller's.
    HRESULT WaitForNext(DWORD timeout, ComPtr<IMediaSample>* sample, DWORD_PTR* user, LONG* actual);

    // Reads at once, on this thread; *actual receives the bytes read. SyncRead has no alignment to keep.
    HRESULT SyncReadAligned(LONGLONG position, LONG length, BYTE* buffer, LONG* actual, IMediaSample* sample);
    HRESULT SyncRead(LONGLONG position, LONG length, BYTE* buffer);

    // IAsyncReader's flushing. BeginFlush returns when no request is being completed any more.
    HRESULT BeginFlush();
    HRESULT EndFlush();

    HRESULT Length(LONGLONG* total, LONGLONG* available);
    LONG Alignment();
    bool IsStopped();

    // Ends the worker and every wait, for good. Returns when no request touches the stream any more.
    void Close();

  private:
    static DWORD WINAPI ThreadEntry(void* self);
    void Work();

    bool IsAligned(LONGLONG position, LONG length);
    HRESULT StartWorker() REQUIRES(m_lock);
    void AbandonWaitingRequests() REQUIRES(m_lock);
    HRESULT TakeDone(DWORD timeout, std::list<CAsyncRequest>* taken);

    CAsyncStream* const m_stream;

    Mutex m_lock;
    CondVar m_workChanged;  // for the worker
    CondVar m_doneChanged;  // for WaitForNext and BeginFlush
    std::list<CAsyncRequest> m_work GUARDED_BY(m_lock);
    std::list<CAsyncRequest> m_done GUARDED_BY(m_lock);
    bool m_completing GUARDED_BY(m_lock) = false;  // the worker holds a request outside both lists
    bool m_flushing GUARDED_BY(m_lock) = false;
    bool m_closing GUARDED_BY(m_lock) = false;
    UniqueThread m_worker GUARDED_BY(m_lock);
};

}  // namespace kvmpd
