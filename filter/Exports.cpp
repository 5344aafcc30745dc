// What the library exports. The version script (KVMPDSrc.map) and the module definition file (win/KVMPDSrc.def) list
// the same names; everything else in the library stays inside.

#include "common/ComPtr.h"
#include "directshow/CClassFactory.h"
#include "filter/KVMPDSrc.h"
#include "filter/Module.h"

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    return kvmpd::GetClassObject(kvmpd::ModuleTemplates(), rclsid, riid, ppv);
}

STDAPI DllCanUnloadNow() {
    return kvmpd::CanUnloadNow();
}

STDAPI DllRegisterServer() {
    return S_OK;
}

STDAPI DllUnregisterServer() {
    return S_OK;
}

STDAPI KVMPDCreateInstance(REFCLSID rclsid, IUnknown* outer, REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    *ppv = nullptr;
    kvmpd::ComPtr<IClassFactory> factory;
    if (const HRESULT hr = DllGetClassObject(rclsid, IID_IClassFactory, factory.putVoid()); FAILED(hr)) {
        return hr;
    }
    return factory->CreateInstance(outer, riid, ppv);
}
