#include "directshow/CBaseFilter.h"

#include <new>

#include "directshow/CBasePin.h"
#include "directshow/CEnumPins.h"
#include "directshow/WideName.h"

namespace kvmpd {

CBaseFilter::CBaseFilter(IUnknown* outer, CritSec* lock, REFCLSID clsid)
    : CUnknown(outer), m_pLock(lock), m_clsid(clsid) {}

CBaseFilter::~CBaseFilter() = default;

HRESULT CBaseFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IBaseFilter || riid == IID_IMediaFilter || riid == IID_IPersist) {
        return GetInterface(static_cast<IBaseFilter*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CBaseFilter::GetClassID(CLSID* pClassID) {
    if (pClassID == nullptr) {
        return E_POINTER;
    }
    *pClassID = m_clsid;
    return S_OK;
}

template <class Change>
HRESULT CBaseFilter::ForEachConnectedPin(Change change) {
    for (int index = 0; index < GetPinCount(); ++index) {
        CBasePin* pin = GetPin(index);
        if (pin == nullptr || !pin->IsConnected()) {
            continue;
        }
        if (const HRESULT hr = change(*pin); FAILED(hr)) {
            return hr;
        }
    }
    return S_OK;
}

HRESULT CBaseFilter::Stop() {
    CritSecLock lock(*m_pLock);
    HRESULT hr = S_OK;
    if (m_state != State_Stopped) {
        hr = ForEachConnectedPin([](CBasePin& pin) { return pin.Inactive(); });
    }
    m_state = State_Stopped;
    return hr;
}

HRESULT CBaseFilter::Pause() {
    CritSecLock lock(*m_pLock);
    if (m_state == State_Stopped) {
        const HRESULT hr = ForEachConnectedPin([](CBasePin& pin) { return pin.Active(); });
        if (FAILED(hr)) {
            return hr;
        }
    }
    m_state = State_Paused;
    return S_OK;
}

HRESULT CBaseFilter::Run(REFERENCE_TIME tStart) {
    CritSecLock lock(*m_pLock);
    if (m_state == State_Stopped) {
        if (const HRESULT hr = Pause(); FAILED(hr)) {
            return hr;
        }
    }
    if (m_state != State_Running) {
        const HRESULT hr = ForEachConnectedPin([tStart](CBasePin& pin) { return pin.Run(tStart); });
        if (FAILED(hr)) {
            return hr;
        }
    }
    m_state = State_Running;
    return S_OK;
}

HRESULT CBaseFilter::GetState(DWORD /*dwMilliSecsTimeout*/, FILTER_STATE* State) {
    if (State == nullptr) {
        return E_POINTER;
    }
    *State = m_state;
    return S_OK;
}

HRESULT CBaseFilter::SetSyncSource(IReferenceClock* pClock) {
    CritSecLock lock(*m_pLock);
    m_pClock = ComPtr<IReferenceClock>(pClock);
    return S_OK;
}

HRESULT CBaseFilter::GetSyncSource(IReferenceClock** pClock) {
    if (pClock == nullptr) {
        return E_POINTER;
    }
    CritSecLock lock(*m_pLock);
    *pClock = ComPtr<IReferenceClock>(m_pClock).Detach();
    return S_OK;
}

HRESULT CBaseFilter::EnumPins(IEnumPins** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    *ppEnum = new (std::nothrow) CEnumPins(this);
    return *ppEnum != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT CBaseFilter::FindPin(LPCWSTR Id, IPin** ppPin) {
    if (Id == nullptr || ppPin == nullptr) {
        return E_POINTER;
    }
    *ppPin = nullptr;
    CritSecLock lock(*m_pLock);
    for (int index = 0; index < GetPinCount(); ++index) {
        CBasePin* pin = GetPin(index);
        if (pin != nullptr && pin->Name() == Id) {
            pin->AddRef();
            *ppPin = pin;
            return S_OK;
        }
    }
    return VFW_E_NOT_FOUND;
}

HRESULT CBaseFilter::QueryFilterInfo(FILTER_INFO* pInfo) {
    if (pInfo == nullptr) {
        return E_POINTER;
    }
    CritSecLock lock(*m_pLock);
    CopyName(m_name, pInfo->achName);
    pInfo->pGraph = m_pGraph;
    if (m_pGraph != nullptr) {
        m_pGraph->AddRef();
    }
    return S_OK;
}

HRESULT CBaseFilter::JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) try {
    CritSecLock lock(*m_pLock);
    m_name = pName != nullptr ? pName : L"";
    m_pGraph = pGraph;
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CBaseFilter::QueryVendorInfo(LPWSTR* pVendorInfo) {
    if (pVendorInfo != nullptr) {
        *pVendorInfo = nullptr;
    }
    return E_NOTIMPL;
}

}  // namespace kvmpd
