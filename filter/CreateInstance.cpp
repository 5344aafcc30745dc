// Part of the library where there is no COM to ask, and of the host on Windows: there the module exports what a COM
// server exports and no more. It is installed as a source file there, and needs the public headers only.

#include "filter/KVMPDSrc.h"

STDAPI KVMPDCreateInstance(REFCLSID rclsid, IUnknown* outer, REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    *ppv = nullptr;
    IClassFactory* factory = nullptr;
    if (const HRESULT hr = DllGetClassObject(rclsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
        FAILED(hr)) {
        return hr;
    }
    const HRESULT hr = factory->CreateInstance(outer, riid, ppv);
    factory->Release();
    return hr;
}
