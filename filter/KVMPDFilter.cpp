#include "filter/KVMPDFilter.h"

#include <exception>
#include <new>
#include <string>

#include "common/Log.h"
#include "directshow/WideName.h"
#include "filter/KVMPDSrc.h"

namespace kvmpd {

namespace {

constexpr wchar_t kSettingsKey[] = L"Software\\Kavotra\\MpdSource";

// Runs an operation of an interface: no exception crosses it, neither one of this module's nor one that a host's
// callback lets out of its AddRef.
template <class Operation>
HRESULT Guarded(Operation operation) {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_UNEXPECTED;
    }
}

HRESULT SuccessIf(LONG done) {
    return done != 0 ? S_OK : E_FAIL;
}

template <class Value>
Value ReadParam(const void* param) {
    return *static_cast<const Value*>(param);
}

bool NeedsParam(DWORD id) {
    switch (id) {
        case kBackdoorMaxCacheTime:
        case kBackdoorPreferDelaySegments:
        case kBackdoorPreferQuality:
        case kBackdoorTargetQuality:
        case kBackdoorPosition:
            return true;
        default:
            return false;
    }
}

}  // namespace

KVMPDFilter::KVMPDFilter(IUnknown* outer, HRESULT* phr)
    : CAsyncReader(outer, &m_stream, phr, CLSID_KVMPDFilter), m_registry(kSettingsKey, /*create=*/false) {
    m_stream.SetFilter(this);
}

KVMPDFilter::~KVMPDFilter() {
    // A reader may be waiting for bytes inside the pin; the engine must not go under it.
    CloseReading();
    Log(3, L" KVMPDFilter::~KVMPDFilter ");
    Log(4, L" KVMPDFilter::CloseThread ");
    m_stream.CloseThread();
    Log(3, L" KVMPDFilter::~KVMPDFilter complete");
}

CUnknown* KVMPDFilter::CreateInstance(IUnknown* outer, HRESULT* phr) {
    *phr = S_OK;
    try {
        if (auto* filter = new (std::nothrow) KVMPDFilter(outer, phr)) {
            return filter;
        }
        *phr = E_OUTOFMEMORY;
    } catch (const std::bad_alloc&) {
        *phr = E_OUTOFMEMORY;
    } catch (const std::exception&) {
        *phr = E_UNEXPECTED;
    }
    return nullptr;
}

HRESULT KVMPDFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IFileSourceFilter) {
        return GetInterface(static_cast<IFileSourceFilter*>(this), ppv);
    }
    if (riid == IID_IKVMPDSource) {
        return GetInterface(static_cast<IKVMPDSource*>(this), ppv);
    }
    return CAsyncReader::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT KVMPDFilter::Run(REFERENCE_TIME tStart) {
    Log(3, L" KVMPDFilter::Run ");
    const auto runEngine = [&] {
        return Guarded([&] {
            m_stream.Run();
            return S_OK;
        });
    };
    runEngine();
    const HRESULT hr = Guarded([&] { return CAsyncReader::Run(tStart); });
    if (SUCCEEDED(hr)) {
        // Until the base has stored the new state, a segment that arrives in a full cache still finds the filter paused
        // and parks the loader, which nothing would wake again while the graph runs. From here on none does; a loader
        // that is not parked is left alone.
        runEngine();
    }
    return hr;
}

HRESULT KVMPDFilter::Load(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) {
    Log(3, L" KVMPDFilter::Load %s", pszFileName != nullptr ? pszFileName : L"");
    CritSecLock lock(m_csFilter);
    if (pmt != nullptr) {
        // A type for which there is no memory leaves the one before. The URL is loaded all the same: a load never
        // fails.
        m_mt.Set(*pmt);
    }
    return Load(pszFileName);
}

HRESULT KVMPDFilter::Load(const wchar_t* url) {
    const wchar_t* const text = url != nullptr ? url : L"";
    Log(3, L" KVMPDFilter::Load %s", text);
    // A stream that cannot start shows in the manifest event and in reads that find no data, never here.
    Guarded([&] { return m_stream.Init(text); });
    m_stream.StopNow(0);
    return S_OK;
}

HRESULT KVMPDFilter::GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) {
    Log(6, L" KVMPDFilter::GetCurFile ");
    if (ppszFileName == nullptr) {
        return E_POINTER;
    }
    *ppszFileName = nullptr;
    // A name for which there is no memory stays null: hosts take a null name for "nothing loaded" and go on.
    Guarded([&] {
        if (const std::wstring url = m_stream.GetUrl(); !url.empty()) {
            *ppszFileName = TaskCopy(url);
        }
        return S_OK;
    });
    if (pmt != nullptr) {
        CritSecLock lock(m_csFilter);
        CopyMediaType(pmt, &m_mt);
    }
    return S_OK;
}

HRESULT KVMPDFilter::Backdoor(DWORD id, void* param) {
    Log(3, L" KVMPDFilter::Backdoor  %d", id);
    if (param == nullptr && NeedsParam(id)) {
        return E_POINTER;
    }
    return Guarded([&] { return DispatchBackdoor(id, param); });
}

HRESULT KVMPDFilter::DispatchBackdoor(DWORD id, void* param) {
    switch (id) {
        case kBackdoorLoad:
            Load(static_cast<const wchar_t*>(param));
            return S_OK;
        case kBackdoorReserved:
            return E_NOTIMPL;
        case kBackdoorMaxCacheTime:
            return m_stream.SetMaxCacheTime(ReadParam<DWORD>(param));
        case kBackdoorCacheFolder:
            return SetCacheFileFolder(static_cast<const char*>(param));
        case kBackdoorPreferDelaySegments:
            return SuccessIf(m_stream.SetPreferDelaySegment(ReadParam<DWORD>(param)));
        case kBackdoorPreferQuality:
            m_stream.SetPreferQuality(ReadParam<DWORD>(param));
            return S_OK;
        case kBackdoorTargetQuality:
            return SuccessIf(m_stream.SetVideoQualityID(ReadParam<DWORD>(param)));
        case kBackdoorPosition:
            return SuccessIf(m_stream.SetPosition(ReadParam<LONGLONG>(param)));
        case kBackdoorStop:
            m_stream.StopNow(1);
            return S_OK;
        default:
            // A host may be newer than this module, so an id that it does not know is no error.
            Log(3, L"[Error] KVMPDFilter::Backdoor Unknown ID: %lu", id);
            return S_OK;
    }
}

HRESULT KVMPDFilter::SetCallback(IKVMPDCallback* callback) {
    return Guarded([&] { return m_stream.SetCallback(callback); });
}

HRESULT KVMPDFilter::SetCacheFileFolder(const char* path) {
    LogA(4, " KVMPDFilter::SetCacheFileFolder : %s", path != nullptr ? path : "(null)");
    return m_stream.SetCacheFileFolder(path);
}

void KVMPDFilter::OnRenderConnected() {
    m_stream.SetRenderComplete(1);
}

}  // namespace kvmpd
