#include "directshow/CBaseAllocator.h"

#include <new>

#include "directshow/CMediaSample.h"

namespace kvmpd {

CBaseAllocator::CBaseAllocator(IUnknown* outer) : CUnknown(outer) {}

HRESULT CBaseAllocator::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMemAllocator) {
        return GetInterface(static_cast<IMemAllocator*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CBaseAllocator::SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) {
    if (pRequest == nullptr || pActual == nullptr) {
        return E_POINTER;
    }
    *pActual = ALLOCATOR_PROPERTIES{0, 0, 0, 0};
    MutexLock lock(m_lock);
    if (m_committed) {
        return VFW_E_ALREADY_COMMITTED;
    }
    if (m_out > 0) {
        return VFW_E_BUFFERS_OUTSTANDING;
    }
    ALLOCATOR_PROPERTIES granted;
    if (const HRESULT hr = Grant(*pRequest, &granted); FAILED(hr)) {
        return hr;
    }
    m_properties = granted;
    *pActual = granted;
    return S_OK;
}

HRESULT CBaseAllocator::GetProperties(ALLOCATOR_PROPERTIES* pProps) {
    if (pProps == nullptr) {
        return E_POINTER;
    }
    MutexLock lock(m_lock);
    *pProps = m_properties;
    return S_OK;
}

HRESULT CBaseAllocator::Commit() {
    MutexLock lock(m_lock);
    if (m_committed) {
        return S_OK;
    }
    if (m_properties.cBuffers <= 0 || m_properties.cbBuffer <= 0) {
        return VFW_E_SIZENOTSET;
    }
    // Committed again before the last sample of the time before came back: the same samples serve on.
    if (!m_allocated) {
        if (const HRESULT hr = AllocSamples(); FAILED(hr)) {
            FreeSamples();
            return hr;
        }
        m_allocated = true;
    }
    m_committed = true;
    return S_OK;
}

HRESULT CBaseAllocator::AllocSamples() try {
    m_free.reserve(static_cast<size_t>(m_properties.cBuffers));
    return Alloc(m_properties, &m_free);
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CBaseAllocator::Decommit() {
    MutexLock lock(m_lock);
    m_committed = false;
    m_freed.NotifyAll();
    if (m_out == 0) {
        FreeSamples();
    }
    return S_OK;
}

void CBaseAllocator::FreeSamples() {
    m_free.clear();
    Free();
    m_allocated = false;
}

HRESULT CBaseAllocator::GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* /*pStartTime*/, REFERENCE_TIME* /*pEndTime*/,
                                  DWORD dwFlags) {
    if (ppBuffer == nullptr) {
        return E_POINTER;
    }
    *ppBuffer = nullptr;
    CMediaSample* sample = nullptr;
    {
        MutexLock lock(m_lock);
        while (m_committed && m_free.empty()) {
            if ((dwFlags & AM_GBF_NOWAIT) != 0) {
                return VFW_E_TIMEOUT;
            }
            m_freed.Wait(m_lock);
        }
        if (!m_committed) {
            return VFW_E_NOT_COMMITTED;
        }
        sample = m_free.back();
        m_free.pop_back();
        ++m_out;
    }
    AddRef();
    sample->Prepare();
    *ppBuffer = sample;
    return S_OK;
}

HRESULT CBaseAllocator::ReleaseBuffer(IMediaSample* pBuffer) {
    if (pBuffer == nullptr) {
        return E_POINTER;
    }
    {
        MutexLock lock(m_lock);
        m_free.push_back(static_cast<CMediaSample*>(pBuffer));  // within the capacity reserved by Commit
        --m_out;
        if (m_committed) {
            m_freed.NotifyOne();
        } else if (m_out == 0) {
            FreeSamples();
        }
    }
    Release();  // the sample's reference; may be the last
    return S_OK;
}

}  // namespace kvmpd
