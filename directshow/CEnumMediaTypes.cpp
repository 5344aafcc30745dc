#include "directshow/CEnumMediaTypes.h"

#include <new>

namespace kvmpd {

CEnumMediaTypes::CEnumMediaTypes(CBasePin* pin) : m_pin(pin) {}

HRESULT CEnumMediaTypes::QueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IEnumMediaTypes || riid == IID_IUnknown) {
        return GetInterface(static_cast<IEnumMediaTypes*>(this), ppv);
    }
    return NoInterface(ppv);
}

ULONG CEnumMediaTypes::AddRef() {
    return ++m_references;
}

ULONG CEnumMediaTypes::Release() {
    const ULONG left = --m_references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT CEnumMediaTypes::Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched) {
    if (ppMediaTypes == nullptr) {
        return E_POINTER;
    }
    if (pcFetched == nullptr && cMediaTypes != 1) {
        return E_INVALIDARG;
    }
    ULONG fetched = 0;
    while (fetched < cMediaTypes) {
        CMediaType type;
        if (m_pin->GetMediaType(m_position, &type) != S_OK) {
            break;
        }
        AM_MEDIA_TYPE* copy = CreateMediaType(&type);
        if (copy == nullptr) {
            break;
        }
        ++m_position;
        ppMediaTypes[fetched++] = copy;
    }
    if (pcFetched != nullptr) {
        *pcFetched = fetched;
    }
    return fetched == cMediaTypes ? S_OK : S_FALSE;
}

HRESULT CEnumMediaTypes::Skip(ULONG cMediaTypes) {
    for (ULONG skipped = 0; skipped < cMediaTypes; ++skipped) {
        CMediaType type;
        if (m_pin->GetMediaType(m_position, &type) != S_OK) {
            return S_FALSE;
        }
        ++m_position;
    }
    return S_OK;
}

HRESULT CEnumMediaTypes::Reset() {
    m_position = 0;
    return S_OK;
}

HRESULT CEnumMediaTypes::Clone(IEnumMediaTypes** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    auto* clone = new (std::nothrow) CEnumMediaTypes(m_pin.get());
    if (clone != nullptr) {
        clone->m_position = m_position;
    }
    *ppEnum = clone;
    return clone != nullptr ? S_OK : E_OUTOFMEMORY;
}

}  // namespace kvmpd
