// The source filter that a host creates: a reader filter over a stream engine of its own, and the control interface
// that steers the engine. Each operation logs and forwards; the logic is the engine's.
//
// Threads: any, except that the last Release and SetCallback must not come from inside the host's callback, because
// both wait for the thread that calls it. The filter lock is held by IFileSourceFilter::Load and by the base classes;
// control operations take no lock of the filter's.

#pragma once

#include "filter/CAsyncReader.h"
#include "filter/IKVMPDSource.h"
#include "filter/RegistryKeyPair.h"
#include "platform/com.h"
#include "stream/KVMPDStream.h"

namespace kvmpd {

class KVMPDFilter : public CAsyncReader, public IFileSourceFilter, public IKVMPDSource {
  public:
    KVMPDFilter(IUnknown* outer, HRESULT* phr);
    // Waits for readers inside the pin to leave, then for the engine's threads to end.
    ~KVMPDFilter() override;

    // For the class factory: a filter without a reference, with S_OK in *phr unless the base left a failure there;
    // null, with E_OUTOFMEMORY, when there is no memory.
    static CUnknown* CreateInstance(IUnknown* outer, HRESULT* phr);

    KV_DECLARE_IUNKNOWN
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IBaseFilter
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) override;

    // IFileSourceFilter
    HRESULT STDMETHODCALLTYPE Load(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) override;

    // IKVMPDSource
    HRESULT STDMETHODCALLTYPE Backdoor(DWORD id, void* param) override;
    HRESULT STDMETHODCALLTYPE SetCallback(IKVMPDCallback* callback) override;
    HRESULT STDMETHODCALLTYPE Load(const wchar_t* url) override;

    // CAsyncReader
    void OnRenderConnected() override;

  private:
    HRESULT DispatchBackdoor(DWORD id, void* param);
    HRESULT SetCacheFileFolder(const char* path);

    RegistryKeyPair m_registry;  // held open, not read: the only setting, the log verbosity, is read by the log itself
    KVMPDStream m_stream;
};

}  // namespace kvmpd
