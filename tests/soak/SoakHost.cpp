#include "tests/soak/SoakHost.h"

#include <stdexcept>

#include "common/Text.h"

namespace kvmpd::test {
namespace {

void Check(HRESULT result, const char* step) {
    if (FAILED(result)) {
        throw std::runtime_error(std::string("the component refused: ") + step);
    }
}

}  // namespace

HRESULT SoakCallback::QueryInterface(REFIID iid, void** object) {
    const bool known = iid == IID_IUnknown || iid == IID_IKVMPDCallback;
    *object = known ? static_cast<IKVMPDCallback*>(this) : nullptr;
    return known ? S_OK : E_NOINTERFACE;
}

HRESULT SoakCallback::OnStreamEvent(DWORD id, void* param1, void* param2) {
    const std::lock_guard lock(m_mutex);
    if (id == kEventManifest) {
        ++(*static_cast<const LONG*>(param1) == kManifestLoaded ? m_news.loaded : m_news.failed);
    } else if (id == kEventDownloadFailed) {
        ++m_news.segmentsLost;
    } else if (id == kEventPosition) {
        const bool first = *static_cast<const LONG*>(param1) != 0;
        const bool second = *static_cast<const LONG*>(param2) != 0;
        ++(first ? m_news.leftParking : second ? m_news.seeksDone : m_news.delayUnchanged);
    }
    m_changed.notify_all();
    return S_OK;
}

HRESULT SoakCallback::OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) {
    const std::lock_guard lock(m_mutex);
    m_news.play = play;
    m_news.buffered = buffered;
    m_news.total = total;
    return S_OK;
}

SoakNews SoakCallback::SoFar() const {
    const std::lock_guard lock(m_mutex);
    return m_news;
}

bool SoakCallback::WaitFor(const std::function<bool(const SoakNews&)>& wanted, std::chrono::milliseconds limit) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, limit, [&] { return wanted(m_news); });
}

SoakHost::SoakHost(const std::filesystem::path& folder, DWORD delaySegments) : m_delaySegments(delaySegments) {
    Check(KVMPDCreateInstance(CLSID_KVMPDFilter, nullptr, IID_IKVMPDSource, m_control.putVoid()), "creation");
    Check(m_control->QueryInterface(IID_IBaseFilter, m_filter.putVoid()), "filter");
    Check(m_filter->FindPin(L"Output", m_pin.put()), "output pin");
    Check(m_pin->QueryInterface(IID_IAsyncReader, m_reader.putVoid()), "reader");
    std::string text = folder.string();
    Check(m_control->Backdoor(kBackdoorCacheFolder, text.data()), "cache folder");
    Check(Set(kBackdoorPreferDelaySegments, delaySegments), "delay");
    Check(m_control->SetCallback(&m_callback), "callback");
}

void SoakHost::Load(const std::string& url) {
    Check(m_control->Load(Utf8ToWide(url).c_str()), "load");
}

void SoakHost::ChangeDelay(DWORD segments) {
    m_delaySegments = segments == m_delaySegments ? segments + 1 : segments;
    Check(Set(kBackdoorPreferDelaySegments, m_delaySegments), "delay");
}

bool SoakHost::HearAll(std::chrono::milliseconds limit) {
    // A delay that changes nothing is answered with an event, and events come in order. A seek or a parked stream may
    // have replaced the delay: then the first call sets it again and only the second one changes nothing.
    Set(kBackdoorPreferDelaySegments, m_delaySegments);
    const std::uint64_t before = m_callback.SoFar().delayUnchanged;
    Set(kBackdoorPreferDelaySegments, m_delaySegments);
    return m_callback.WaitFor([before](const SoakNews& news) { return news.delayUnchanged > before; }, limit);
}

void SoakHost::Release() {
    m_reader.Reset();
    m_pin.Reset();
    m_filter.Reset();
    m_control.Reset();
}

}  // namespace kvmpd::test
