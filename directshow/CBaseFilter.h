// A filter: its state, its place in a graph, its pins. A source filter derives from it and names its pins.
//
// Threads: the graph's and the host's. The filter lock, which the derived class owns, serialises state changes,
// connections and graph membership. The state itself is atomic, and GetState takes no lock with any time-out, because
// state changes here are complete when they return: a worker thread that holds locks of its own may ask at any moment.

#pragma once

#include <atomic>
#include <string>

#include "common/ComPtr.h"
#include "common/Locks.h"
#include "directshow/CUnknown.h"
#include "platform/com.h"

namespace kvmpd {

class CBasePin;

class CBaseFilter : public CUnknown, public IBaseFilter {
  public:
    // lock: the filter lock, outlives this object. clsid: answered by GetClassID.
    CBaseFilter(IUnknown* outer, CritSec* lock, REFCLSID clsid);
    ~CBaseFilter() override;

    KV_DECLARE_IUNKNOWN
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // The filter's pins, which it owns; GetPin answers null for an index outside 0 .. GetPinCount() - 1.
    virtual int GetPinCount() = 0;
    virtual CBasePin* GetPin(int index) = 0;

    // Changes whenever the set of pins does; enumerators notice by it.
    LONG GetPinVersion() const { return m_pinVersion; }
    void IncrementPinVersion() { ++m_pinVersion; }

    bool IsStopped() const { return m_state == State_Stopped; }

    // IPersist
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* pClassID) override;

    // IMediaFilter
    HRESULT STDMETHODCALLTYPE Stop() override;
    HRESULT STDMETHODCALLTYPE Pause() override;
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) override;
    HRESULT STDMETHODCALLTYPE GetState(DWORD dwMilliSecsTimeout, FILTER_STATE* State) override;
    HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* pClock) override;
    HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** pClock) override;

    // IBaseFilter
    HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** ppEnum) override;
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) override;
    HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* pInfo) override;
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) override;
    HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* pVendorInfo) override;

  private:
    // Calls `change` on every connected pin, stopping at the first failure.
    template <class Change>
    HRESULT ForEachConnectedPin(Change change) REQUIRES(*m_pLock);

    CritSec* const m_pLock;
    const CLSID m_clsid;
    std::atomic<FILTER_STATE> m_state{State_Stopped};
    std::atomic<LONG> m_pinVersion{0};
    ComPtr<IReferenceClock> m_pClock GUARDED_BY(*m_pLock);
    IFilterGraph* m_pGraph GUARDED_BY(*m_pLock) = nullptr;  // not referenced: the graph holds the filter
    std::wstring m_name GUARDED_BY(*m_pLock);
};

}  // namespace kvmpd
