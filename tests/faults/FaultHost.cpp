#include "tests/faults/FaultHost.h"

#include <cstdio>
#include <cstdlib>
#include <future>

#include "common/Text.h"
#include "tests/faults/CompressedTime.h"

namespace kvmpd::test {
HRESULT HeardByCallback::OnStreamEvent(DWORD id, void* param1, void* param2) {
    if (id == kEventManifest || id == kEventPosition) {
        Tell(id, *static_cast<const LONG*>(param1), *static_cast<const LONG*>(param2));
    }
    const std::lock_guard lock(m_mutex);
    switch (id) {
        case kEventManifest: {
            const LONG result = *static_cast<const LONG*>(param1);
            ++(result == kManifestLoaded      ? m_heard.news
               : result == kManifestMalformed ? m_heard.malformed
                                              : m_heard.failed);
            break;
        }
        case kEventDownloadFailed:
            ++m_heard.segmentsLost;
            break;
        case kEventQualityList:
        case kEventQualityChosen:
            break;
        default:
            ++m_heard.unexpected;
    }
    return S_OK;
}

void HeardByCallback::Tell(DWORD id, LONG first, LONG second) {
    if (id == kEventManifest && first == kManifestLoaded) {
        m_supervisor.ManifestLoaded(m_id, std::chrono::milliseconds(second));
    } else if (id == kEventManifest) {
        m_supervisor.ManifestFailed(m_id);
    } else if (first == 0 && second == 0) {
        m_supervisor.DelayUnchanged(m_id);
    }
}

HRESULT HeardByCallback::OnBuffering(LONGLONG /*play*/, LONGLONG buffered, LONGLONG /*total*/) {
    const std::lock_guard lock(m_mutex);
    m_heard.buffered = buffered;
    return S_OK;
}

Heard HeardByCallback::SoFar() const {
    const std::lock_guard lock(m_mutex);
    return m_heard;
}

namespace {

ComPtr<IBaseFilter> MakeFilter() {
    ComPtr<IClassFactory> factory;
    Require(DllGetClassObject(CLSID_KVMPDFilter, IID_IClassFactory, factory.putVoid()), "class factory");
    ComPtr<IBaseFilter> filter;
    Require(factory->CreateInstance(nullptr, IID_IBaseFilter, filter.putVoid()), "creation");
    return filter;
}

}  // namespace

FaultHost::FaultHost(HeardByCallback& callback, const std::filesystem::path& folder, DWORD delaySegments)
    : m_source(MakeFilter(), folder), m_delaySegments(delaySegments) {
    Require(m_source.control->Backdoor(kBackdoorPreferDelaySegments, &m_delaySegments), "delay");
    Require(m_source.control->SetCallback(&callback), "callback");
}

FaultHost::~FaultHost() {
    Stop("a cell that was given up");
}

void FaultHost::Load(const std::string& url) {
    Require(m_source.control->Load(Utf8ToWide(url).c_str()), "load");
}

void FaultHost::KeepInCache(DWORD seconds) {
    Require(m_source.control->Backdoor(kBackdoorMaxCacheTime, &seconds), "cache time");
}

void FaultHost::EndReads() {
    Require(m_source.control->Backdoor(kBackdoorStop, nullptr), "end of reads");
}

void FaultHost::Wake() {
    // A changed delay wakes the loader and does not move a stream that plays.
    m_delaySegments ^= 1;
    Require(m_source.control->Backdoor(kBackdoorPreferDelaySegments, &m_delaySegments), "wake");
}

HRESULT FaultHost::Read(LONGLONG position, std::string& bytes) {
    return m_source.reader->SyncRead(position, static_cast<LONG>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data()));
}

void FaultHost::Stop(const std::string& name) {
    if (!m_source.filter) {
        return;
    }
    std::future<void> stopped = std::async(std::launch::async, [this] { m_source.Release(); });
    if (stopped.wait_for(kStopLimit) != std::future_status::ready) {
        std::fprintf(stderr, "%s: a stop does not end\n", name.c_str());
        std::abort();
    }
}

}  // namespace kvmpd::test
