// The enumerator of a filter's pins.

#pragma once

#include <atomic>

#include "common/ComPtr.h"
#include "directshow/CBaseFilter.h"
#include "platform/com.h"

namespace kvmpd {

// Born with one reference, which is the caller's. Keeps the filter alive. Not for use by two threads at once.
class CEnumPins final : public CBaseObject, public IEnumPins {
  public:
    explicit CEnumPins(CBaseFilter* filter);

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // IEnumPins. Next and Skip answer VFW_E_ENUM_OUT_OF_SYNC once the filter's pins have changed; Reset starts anew.
    HRESULT STDMETHODCALLTYPE Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched) override;
    HRESULT STDMETHODCALLTYPE Skip(ULONG cPins) override;
    HRESULT STDMETHODCALLTYPE Reset() override;
    HRESULT STDMETHODCALLTYPE Clone(IEnumPins** ppEnum) override;

  private:
    ~CEnumPins() = default;
    bool OutOfSync() const { return m_version != m_filter->GetPinVersion(); }

    std::atomic<ULONG> m_references{1};
    const ComPtr<CBaseFilter> m_filter;
    LONG m_version;
    int m_position = 0;
};

}  // namespace kvmpd
