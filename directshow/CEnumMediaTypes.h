// The enumerator of the media types that a pin offers.

#pragma once

#include <atomic>

#include "common/ComPtr.h"
#include "directshow/CBasePin.h"
#include "platform/com.h"

namespace kvmpd {

// Born with one reference, which is the caller's. Keeps the pin's filter alive. Not for use by two threads at once.
class CEnumMediaTypes final : public CBaseObject, public IEnumMediaTypes {
  public:
    explicit CEnumMediaTypes(CBasePin* pin);

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // IEnumMediaTypes. The caller frees each type with DeleteMediaType.
    HRESULT STDMETHODCALLTYPE Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched) override;
    HRESULT STDMETHODCALLTYPE Skip(ULONG cMediaTypes) override;
    HRESULT STDMETHODCALLTYPE Reset() override;
    HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes** ppEnum) override;

  private:
    ~CEnumMediaTypes() = default;

    std::atomic<ULONG> m_references{1};
    const ComPtr<CBasePin> m_pin;
    int m_position = 0;
};

}  // namespace kvmpd
