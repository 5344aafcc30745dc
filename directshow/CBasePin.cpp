#include "directshow/CBasePin.h"

#include <new>

#include "directshow/CBaseFilter.h"
#include "directshow/CEnumMediaTypes.h"
#include "directshow/WideName.h"

namespace kvmpd {

CBasePin::CBasePin(CBaseFilter* filter, CritSec* lock, const wchar_t* name, PIN_DIRECTION direction)
    : CUnknown(nullptr), m_pFilter(filter), m_pLock(lock), m_name(name), m_direction(direction) {}

CBasePin::~CBasePin() = default;

HRESULT CBasePin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IPin) {
        return GetInterface(static_cast<IPin*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

ULONG CBasePin::NonDelegatingAddRef() {
    return m_pFilter->AddRef();
}

ULONG CBasePin::NonDelegatingRelease() {
    return m_pFilter->Release();
}

bool CBasePin::IsConnected() {
    CritSecLock lock(*m_pLock);
    return static_cast<bool>(m_connected);
}

HRESULT CBasePin::GetMediaType(int position, CMediaType* /*type*/) {
    return position < 0 ? E_INVALIDARG : VFW_S_NO_MORE_ITEMS;
}

HRESULT CBasePin::CheckConnect(IPin* pin) {
    PIN_DIRECTION other;
    if (const HRESULT hr = pin->QueryDirection(&other); FAILED(hr)) {
        return hr;
    }
    return other == m_direction ? VFW_E_INVALID_DIRECTION : S_OK;
}

HRESULT CBasePin::CompleteConnect(IPin* /*receivePin*/) {
    return S_OK;
}

HRESULT CBasePin::BreakConnect() {
    return S_OK;
}

HRESULT CBasePin::AttemptConnection(IPin* receivePin, const CMediaType& type) {
    HRESULT hr = CheckConnect(receivePin);
    if (FAILED(hr)) {
        BreakConnect();
        return hr;
    }
    if (CheckMediaType(type) != S_OK) {
        BreakConnect();
        return VFW_E_TYPE_NOT_ACCEPTED;
    }

    m_connected = ComPtr<IPin>(receivePin);
    hr = m_connectionType.Set(type);
    if (SUCCEEDED(hr)) {
        hr = receivePin->ReceiveConnection(this, &type);
        if (SUCCEEDED(hr)) {
            hr = CompleteConnect(receivePin);
            if (SUCCEEDED(hr)) {
                return hr;
            }
            receivePin->Disconnect();
        }
    }
    m_connected.Reset();
    BreakConnect();
    return hr;
}

HRESULT CBasePin::TryMediaTypes(IPin* receivePin, const CMediaType& pattern, IEnumMediaTypes* types) {
    types->Reset();
    HRESULT reason = VFW_E_NO_ACCEPTABLE_TYPES;
    AM_MEDIA_TYPE* offered = nullptr;
    while (types->Next(1, &offered, nullptr) == S_OK) {
        const CMediaType type(*offered);
        DeleteMediaType(offered);
        if (!type.MatchesPartial(pattern)) {
            continue;
        }
        const HRESULT hr = AttemptConnection(receivePin, type);
        if (SUCCEEDED(hr)) {
            return hr;
        }
        // The first failure that says more than "not this type" is what the caller hears.
        if (reason == VFW_E_NO_ACCEPTABLE_TYPES && hr != E_FAIL && hr != E_INVALIDARG &&
            hr != VFW_E_TYPE_NOT_ACCEPTED) {
            reason = hr;
        }
    }
    return reason;
}

HRESULT CBasePin::AgreeMediaType(IPin* receivePin, const CMediaType& pattern) {
    if (!pattern.IsPartiallySpecified()) {
        return AttemptConnection(receivePin, pattern);
    }
    // The receiver's preferences come first; a receiver without any leaves the choice to us.
    HRESULT reason = VFW_E_NO_ACCEPTABLE_TYPES;
    for (IPin* pin : {receivePin, static_cast<IPin*>(this)}) {
        ComPtr<IEnumMediaTypes> types;
        if (FAILED(pin->EnumMediaTypes(types.put()))) {
            continue;
        }
        const HRESULT hr = TryMediaTypes(receivePin, pattern, types.get());
        if (SUCCEEDED(hr)) {
            return hr;
        }
        if (reason == VFW_E_NO_ACCEPTABLE_TYPES) {
            reason = hr;
        }
    }
    return reason;
}

HRESULT CBasePin::Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) {
    if (pReceivePin == nullptr) {
        return E_POINTER;
    }
    CritSecLock lock(*m_pLock);
    if (m_connected) {
        return VFW_E_ALREADY_CONNECTED;
    }
    if (!m_pFilter->IsStopped()) {
        return VFW_E_NOT_STOPPED;
    }
    CMediaType pattern;
    if (pmt != nullptr) {
        if (const HRESULT hr = pattern.Set(*pmt); FAILED(hr)) {
            return hr;
        }
    }
    const HRESULT hr = AgreeMediaType(pReceivePin, pattern);
    return FAILED(hr) ? hr : S_OK;
}

HRESULT CBasePin::ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) {
    if (pConnector == nullptr || pmt == nullptr) {
        return E_POINTER;
    }
    CritSecLock lock(*m_pLock);
    if (m_connected) {
        return VFW_E_ALREADY_CONNECTED;
    }
    if (!m_pFilter->IsStopped()) {
        return VFW_E_NOT_STOPPED;
    }
    HRESULT hr = CheckConnect(pConnector);
    if (SUCCEEDED(hr)) {
        const CMediaType type(*pmt);
        hr = CheckMediaType(type) == S_OK ? m_connectionType.Set(type) : VFW_E_TYPE_NOT_ACCEPTED;
    }
    if (SUCCEEDED(hr)) {
        m_connected = ComPtr<IPin>(pConnector);
        hr = CompleteConnect(pConnector);
        if (SUCCEEDED(hr)) {
            return S_OK;
        }
        m_connected.Reset();
    }
    BreakConnect();
    return hr;
}

HRESULT CBasePin::Disconnect() {
    CritSecLock lock(*m_pLock);
    if (!m_pFilter->IsStopped()) {
        return VFW_E_NOT_STOPPED;
    }
    if (!m_connected) {
        return S_FALSE;
    }
    const HRESULT hr = BreakConnect();
    if (SUCCEEDED(hr)) {
        m_connected.Reset();
    }
    return hr;
}

HRESULT CBasePin::ConnectedTo(IPin** pPin) {
    if (pPin == nullptr) {
        return E_POINTER;
    }
    CritSecLock lock(*m_pLock);
    *pPin = ComPtr<IPin>(m_connected).Detach();
    return *pPin != nullptr ? S_OK : VFW_E_NOT_CONNECTED;
}

HRESULT CBasePin::ConnectionMediaType(AM_MEDIA_TYPE* pmt) {
    if (pmt == nullptr) {
        return E_POINTER;
    }
    CritSecLock lock(*m_pLock);
    if (!m_connected) {
        *pmt = AM_MEDIA_TYPE{};
        return VFW_E_NOT_CONNECTED;
    }
    return CopyMediaType(pmt, &m_connectionType);
}

HRESULT CBasePin::QueryPinInfo(PIN_INFO* pInfo) {
    if (pInfo == nullptr) {
        return E_POINTER;
    }
    pInfo->pFilter = m_pFilter;
    m_pFilter->AddRef();
    pInfo->dir = m_direction;
    CopyName(m_name, pInfo->achName);
    return S_OK;
}

HRESULT CBasePin::QueryDirection(PIN_DIRECTION* pPinDir) {
    if (pPinDir == nullptr) {
        return E_POINTER;
    }
    *pPinDir = m_direction;
    return S_OK;
}

HRESULT CBasePin::QueryId(LPWSTR* Id) {
    if (Id == nullptr) {
        return E_POINTER;
    }
    *Id = TaskCopy(m_name);
    return *Id != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT CBasePin::QueryAccept(const AM_MEDIA_TYPE* pmt) {
    if (pmt == nullptr) {
        return E_POINTER;
    }
    return CheckMediaType(CMediaType(*pmt)) == S_OK ? S_OK : S_FALSE;
}

HRESULT CBasePin::EnumMediaTypes(IEnumMediaTypes** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    *ppEnum = new (std::nothrow) CEnumMediaTypes(this);
    return *ppEnum != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT CBasePin::QueryInternalConnections(IPin** /*apPin*/, ULONG* /*nPin*/) {
    return E_NOTIMPL;  // "every input goes to every output", the documented default
}

HRESULT CBasePin::EndOfStream() {
    return S_OK;
}

HRESULT CBasePin::BeginFlush() {
    return S_OK;
}

HRESULT CBasePin::EndFlush() {
    return S_OK;
}

HRESULT CBasePin::NewSegment(REFERENCE_TIME /*tStart*/, REFERENCE_TIME /*tStop*/, double /*dRate*/) {
    return S_OK;
}

}  // namespace kvmpd
