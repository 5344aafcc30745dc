#pragma once

#include <memory>

#include "common/ComPtr.h"
#include "filter/KVMPDSrc.h"

namespace kvmpd::test {

/// The module, loaded by its file as a host does that keeps it to itself, and no import of it: what it gives is asked
/// for by name. Unloaded at the end.
class LoadedModule {
  public:
    LoadedModule();
    ~LoadedModule();
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    static constexpr const wchar_t* kFile = L"KVMPDSrc.ax";

    bool IsLoaded() const { return m_module != nullptr; }
    HMODULE Handle() const { return m_module; }
    FARPROC Export(const char* name) const { return GetProcAddress(m_module, name); }

    HRESULT GetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) const;
    HRESULT CanUnloadNow() const;
    /// The source filter, made by its class factory; null after a failure.
    ComPtr<IBaseFilter> NewFilter() const;

    /// Lets go of the file; whether no trace of it is left in the process.
    bool Unload();

  private:
    HMODULE m_module;
};

}  // namespace kvmpd::test
