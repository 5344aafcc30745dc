#include "directshow/CEnumPins.h"

#include <algorithm>
#include <new>

#include "directshow/CBasePin.h"

namespace kvmpd {

CEnumPins::CEnumPins(CBaseFilter* filter) : m_filter(filter), m_version(filter->GetPinVersion()) {}

HRESULT CEnumPins::QueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IEnumPins || riid == IID_IUnknown) {
        return GetInterface(static_cast<IEnumPins*>(this), ppv);
    }
    return NoInterface(ppv);
}

ULONG CEnumPins::AddRef() {
    return ++m_references;
}

ULONG CEnumPins::Release() {
    const ULONG left = --m_references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT CEnumPins::Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched) {
    if (ppPins == nullptr) {
        return E_POINTER;
    }
    if (pcFetched == nullptr && cPins != 1) {
        return E_INVALIDARG;
    }
    if (pcFetched != nullptr) {
        *pcFetched = 0;
    }
    if (OutOfSync()) {
        return VFW_E_ENUM_OUT_OF_SYNC;
    }
    ULONG fetched = 0;
    while (fetched < cPins && m_position < m_filter->GetPinCount()) {
        CBasePin* pin = m_filter->GetPin(m_position++);
        if (pin == nullptr) {
            break;
        }
        pin->AddRef();
        ppPins[fetched++] = pin;
    }
    if (pcFetched != nullptr) {
        *pcFetched = fetched;
    }
    return fetched == cPins ? S_OK : S_FALSE;
}

HRESULT CEnumPins::Skip(ULONG cPins) {
    if (OutOfSync()) {
        return VFW_E_ENUM_OUT_OF_SYNC;
    }
    const auto left = static_cast<ULONG>(std::max(0, m_filter->GetPinCount() - m_position));
    const ULONG skipped = std::min(cPins, left);
    m_position += static_cast<int>(skipped);
    return skipped == cPins ? S_OK : S_FALSE;
}

HRESULT CEnumPins::Reset() {
    m_version = m_filter->GetPinVersion();
    m_position = 0;
    return S_OK;
}

HRESULT CEnumPins::Clone(IEnumPins** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    *ppEnum = nullptr;
    auto* clone = new (std::nothrow) CEnumPins(m_filter.get());
    if (clone == nullptr) {
        return E_OUTOFMEMORY;
    }
    clone->m_version = m_version;
    clone->m_position = m_position;
    *ppEnum = clone;
    return S_OK;
}

}  // namespace kvmpd
