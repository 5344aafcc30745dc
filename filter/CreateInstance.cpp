// Part of the library where there is no COM to ask, and of the host on Windows: there the module exports what a COM
// server exports and no more.

#include "common/ComPtr.h"
#include "filter/KVMPDSrc.h"

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
