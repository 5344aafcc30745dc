// The class factory of one template, and the two questions that a module answers with its table of templates.

#pragma once

#include <atomic>
#include <span>

#include "directshow/CFactoryTemplate.h"
#include "platform/com.h"

namespace kvmpd {

// Born without a reference. Any thread. While one exists the module stays loaded.
class CClassFactory final : public CBaseObject, public IClassFactory {
  public:
    explicit CClassFactory(const CFactoryTemplate& entry);

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // IClassFactory. An aggregated object (pUnkOuter given) is handed out as its own IUnknown only: E_NOINTERFACE for
    // any other riid.
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) override;

  private:
    ~CClassFactory() = default;

    const CFactoryTemplate& m_template;
    std::atomic<ULONG> m_references{0};
};

// DllGetClassObject over a table of templates, which outlives the factories made from it.
HRESULT GetClassObject(std::span<const CFactoryTemplate> templates, REFCLSID rclsid, REFIID riid, void** ppv);

// DllCanUnloadNow: S_OK while no object is alive and the server is not locked, else S_FALSE.
HRESULT CanUnloadNow();

}  // namespace kvmpd
