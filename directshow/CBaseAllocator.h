// A pool of samples: who may take one, who waits for one, when the memory comes and goes.
//
// Decommit wakes every waiter and refuses new samples; samples that are out stay valid until they come back, and the
// memory goes with the last of them. Each sample that is out holds a reference on the allocator.

#pragma once

#include <vector>

#include "common/Locks.h"
#include "directshow/CUnknown.h"
#include "platform/com.h"

namespace kvmpd {

class CMediaSample;

class CBaseAllocator : public CUnknown, public IMemAllocator {
  public:
    explicit CBaseAllocator(IUnknown* outer);

    KV_DECLARE_IUNKNOWN
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IMemAllocator, any thread. GetBuffer waits for a free sample, or with AM_GBF_NOWAIT answers VFW_E_TIMEOUT.
    HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) override;
    HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES* pProps) override;
    HRESULT STDMETHODCALLTYPE Commit() override;
    HRESULT STDMETHODCALLTYPE Decommit() override;
    HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime, REFERENCE_TIME* pEndTime,
                                        DWORD dwFlags) override;
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample* pBuffer) override;

  protected:
    // Makes the samples that `properties` ask for, appending them to *samples, which the base then lends out. Called
    // under the allocator's lock; after a failure or std::bad_alloc, Free follows.
    virtual HRESULT Alloc(const ALLOCATOR_PROPERTIES& properties, std::vector<CMediaSample*>* samples) = 0;
    // Frees all of them. Called under the allocator's lock while none is out.
    virtual void Free() = 0;
    // The properties with which a request would be granted, or a failure.
    virtual HRESULT Grant(const ALLOCATOR_PROPERTIES& request, ALLOCATOR_PROPERTIES* actual) = 0;

  private:
    HRESULT AllocSamples() REQUIRES(m_lock);
    void FreeSamples() REQUIRES(m_lock);

    Mutex m_lock;
    CondVar m_freed;
    ALLOCATOR_PROPERTIES m_properties GUARDED_BY(m_lock) = {0, 0, 0, 0};
    std::vector<CMediaSample*> m_free GUARDED_BY(m_lock);
    size_t m_out GUARDED_BY(m_lock) = 0;
    bool m_allocated GUARDED_BY(m_lock) = false;
    bool m_committed GUARDED_BY(m_lock) = false;
};

}  // namespace kvmpd
