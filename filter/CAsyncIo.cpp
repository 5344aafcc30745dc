#include "filter/CAsyncIo.h"

#include <chrono>
#include <new>

#include "common/Log.h"
#include "platform/win32.h"

namespace kvmpd {

CAsyncIo::CAsyncIo(CAsyncStream* stream) : m_stream(stream) {}

CAsyncIo::~CAsyncIo() {
    Close();
}

HRESULT CAsyncIo::Request(LONGLONG position, LONG length, BOOL aligned, BYTE* buffer, IMediaSample* sample,
                          DWORD_PTR user) try {
    if (aligned && !IsAligned(position, length)) {
        return VFW_E_BADALIGN;
    }
    std::list<CAsyncRequest> request;
    request.emplace_back(position, length, aligned, buffer, sample, user);

    MutexLock lock(m_lock);
    if (m_flushing || m_closing) {
        return VFW_E_WRONG_STATE;
    }
    if (const HRESULT hr = StartWorker(); FAILED(hr)) {
        return hr;
    }
    m_work.splice(m_work.end(), request);
    m_workChanged.NotifyOne();
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CAsyncIo::StartWorker() {
    if (m_worker) {
        return S_OK;
    }
    DWORD id = 0;
    m_worker.reset(CreateThread(/*security=*/nullptr, /*stackSize=*/0, &ThreadEntry, this, /*flags=*/0, &id));
    return m_worker ? S_OK : HRESULT_FROM_WIN32(GetLastError());
}

DWORD WINAPI CAsyncIo::ThreadEntry(void* self) {
    static_cast<CAsyncIo*>(self)->Work();
    return 0;
}

void CAsyncIo::Work() {
    MutexLock lock(m_lock);
    while (true) {
        while ((m_work.empty() || m_flushing) && !m_closing) {
            m_workChanged.Wait(m_lock);
        }
        if (m_closing) {
            return;
        }
        std::list<CAsyncRequest> current;
        current.splice(current.begin(), m_work, m_work.begin());
        m_completing = true;

        m_lock.Unlock();
        current.front().Complete(*m_stream);
        m_lock.Lock();

        m_completing = false;
        m_done.splice(m_done.end(), current);
        m_doneChanged.NotifyAll();
    }
}

HRESULT CAsyncIo::TakeDone(DWORD timeout, std::list<CAsyncRequest>* taken) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout);
    MutexLock lock(m_lock);
    while (m_done.empty()) {
        if ((m_closing || m_flushing) && !m_completing && m_work.empty()) {
            return VFW_E_WRONG_STATE;
        }
        if (timeout == INFINITE) {
            m_doneChanged.Wait(m_lock);
            continue;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return VFW_E_TIMEOUT;
        }
        m_doneChanged.WaitFor(m_lock, static_cast<DWORD>(left));
    }
    taken->splice(taken->begin(), m_done, m_done.begin());
    return S_OK;
}

HRESULT CAsyncIo::WaitForNext(DWORD timeout, ComPtr<IMediaSample>* sample, DWORD_PTR* user, LONG* actual) {
    sample->Reset();
    *user = 0;
    *actual = 0;
    std::list<CAsyncRequest> taken;
    HRESULT hr = TakeDone(timeout, &taken);
    if (!taken.empty()) {
        const CAsyncRequest& request = taken.front();
        hr = request.Result();
        *sample = ComPtr<IMediaSample>(request.Sample());
        *user = request.User();
        *actual = request.ActualLength();
        if (hr == S_FALSE) {
            LONGLONG total = 0;
            LONGLONG available = 0;
            Length(&total, &available);
            hr = request.Position() + request.ActualLength() == total ? S_OK : E_FAIL;
        }
    }
    Log(6, L" CAsyncIo::WaitForNext hr(%s), pcbActual(%ld), pdwUser(%ld)", FAILED(hr) ? "FAILED" : "SUCCEED", *actual,
        *user);
    return hr;
}

HRESULT CAsyncIo::SyncReadAligned(LONGLONG position, LONG length, BYTE* buffer, LONG* actual, IMediaSample* sample) {
    *actual = 0;
    if (!IsAligned(position, length)) {
        return VFW_E_BADALIGN;
    }
    CAsyncRequest request(position, length, TRUE, buffer, sample, 0);
    const HRESULT hr = request.Complete(*m_stream);
    *actual = request.ActualLength();
    return hr;
}

HRESULT CAsyncIo::SyncRead(LONGLONG position, LONG length, BYTE* buffer) {
    return CAsyncRequest(position, length, FALSE, buffer, nullptr, 0).Complete(*m_stream);
}

void CAsyncIo::AbandonWaitingRequests() {
    m_done.splice(m_done.end(), m_work);
    m_doneChanged.NotifyAll();
}

HRESULT CAsyncIo::BeginFlush() {
    MutexLock lock(m_lock);
    m_flushing = true;
    while (m_completing) {
        m_doneChanged.Wait(m_lock);
    }
    // Only now, so that the request which the worker had goes before those that waited behind it.
    AbandonWaitingRequests();
    return S_OK;
}

HRESULT CAsyncIo::EndFlush() {
    MutexLock lock(m_lock);
    m_flushing = false;
    return S_OK;
}

HRESULT CAsyncIo::Length(LONGLONG* total, LONGLONG* available) {
    return m_stream->Length(total, available);
}

LONG CAsyncIo::Alignment() {
    return static_cast<LONG>(m_stream->Alignment());
}

bool CAsyncIo::IsStopped() {
    return m_stream->IsStopped() != FALSE;
}

bool CAsyncIo::IsAligned(LONGLONG position, LONG length) {
    const LONG alignment = Alignment();
    return position % alignment == 0 && length % alignment == 0;
}

void CAsyncIo::Close() {
    UniqueThread worker;
    {
        MutexLock lock(m_lock);
        m_closing = true;
        m_workChanged.NotifyAll();
        AbandonWaitingRequests();
        worker = std::move(m_worker);
    }
    if (worker) {
        WaitForSingleObject(worker.get(), INFINITE);
    }
}

}  // namespace kvmpd
