#include "tests/graph/LoadedModule.h"

#include <utility>

namespace kvmpd::test {

LoadedModule::LoadedModule() : m_module(LoadLibraryW(kFile)) {}

LoadedModule::~LoadedModule() {
    Unload();
}

HRESULT LoadedModule::GetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) const {
    using Function = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(Export("DllGetClassObject")));
    return function != nullptr ? function(rclsid, riid, ppv) : E_UNEXPECTED;
}

HRESULT LoadedModule::CanUnloadNow() const {
    using Function = HRESULT(STDAPICALLTYPE*)();
    const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(Export("DllCanUnloadNow")));
    return function != nullptr ? function() : E_UNEXPECTED;
}

ComPtr<IBaseFilter> LoadedModule::NewFilter() const {
    ComPtr<IClassFactory> factory;
    ComPtr<IBaseFilter> filter;
    if (SUCCEEDED(GetClassObject(CLSID_KVMPDFilter, IID_IClassFactory, factory.putVoid()))) {
        factory->CreateInstance(nullptr, IID_IBaseFilter, filter.putVoid());
    }
    return filter;
}

bool LoadedModule::Unload() {
    if (const HMODULE module = std::exchange(m_module, nullptr); module != nullptr) {
        FreeLibrary(module);
    }
    return GetModuleHandleW(kFile) == nullptr;
}

}  // namespace kvmpd::test
