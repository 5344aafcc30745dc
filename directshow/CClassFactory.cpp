#include "directshow/CClassFactory.h"

#include <algorithm>
#include <exception>
#include <new>

namespace kvmpd {

CClassFactory::CClassFactory(const CFactoryTemplate& entry) : m_template(entry) {}

HRESULT CClassFactory::QueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IClassFactory || riid == IID_IUnknown) {
        return GetInterface(static_cast<IClassFactory*>(this), ppv);
    }
    return NoInterface(ppv);
}

ULONG CClassFactory::AddRef() {
    return ++m_references;
}

ULONG CClassFactory::Release() {
    const ULONG left = --m_references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT CClassFactory::CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) try {
    if (ppvObject == nullptr) {
        return E_POINTER;
    }
    *ppvObject = nullptr;
    if (pUnkOuter != nullptr && !(riid == IID_IUnknown)) {
        return E_NOINTERFACE;
    }
    HRESULT hr = S_OK;
    CUnknown* object = m_template.create(pUnkOuter, &hr);
    if (object == nullptr) {
        return FAILED(hr) ? hr : E_OUTOFMEMORY;
    }
    if (FAILED(hr)) {
        delete object;
        return hr;
    }
    object->NonDelegatingAddRef();
    hr = object->NonDelegatingQueryInterface(riid, ppvObject);
    object->NonDelegatingRelease();  // deletes the object when it has no such interface
    return hr;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
} catch (const std::exception&) {
    return E_UNEXPECTED;
}

HRESULT CClassFactory::LockServer(BOOL fLock) {
    CBaseObject::LockServer(fLock);
    return S_OK;
}

HRESULT GetClassObject(std::span<const CFactoryTemplate> templates, REFCLSID rclsid, REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (!(riid == IID_IUnknown) && !(riid == IID_IClassFactory)) {
        return E_NOINTERFACE;
    }
    const auto entry =
        std::ranges::find_if(templates, [&](const CFactoryTemplate& each) { return *each.clsid == rclsid; });
    if (entry == templates.end()) {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    auto* factory = new (std::nothrow) CClassFactory(*entry);
    if (factory == nullptr) {
        return E_OUTOFMEMORY;
    }
    factory->AddRef();
    *ppv = static_cast<IClassFactory*>(factory);
    return S_OK;
}

HRESULT CanUnloadNow() {
    return CBaseObject::ObjectsActive() == 0 && CBaseObject::ServerLocks() == 0 ? S_OK : S_FALSE;
}

}  // namespace kvmpd
