#include "tests/soak/SoakHost.h"

#include "common/Text.h"

namespace kvmpd::test {
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

namespace {

ComPtr<IBaseFilter> MakeFilter() {
    ComPtr<IBaseFilter> filter;
    Require(KVMPDCreateInstance(CLSID_KVMPDFilter, nullptr, IID_IBaseFilter, filter.putVoid()), "creation");
    return filter;
}

}  // namespace

SoakHost::SoakHost(const std::filesystem::path& folder, DWORD delaySegments)
    : m_source(MakeFilter(), folder), m_delaySegments(delaySegments) {
    Require(Set(kBackdoorPreferDelaySegments, delaySegments), "delay");
    Require(m_source.control->SetCallback(&m_callback), "callback");
}

void SoakHost::Load(const std::string& url) {
    Require(m_source.control->Load(Utf8ToWide(url).c_str()), "load");
}

void SoakHost::ChangeDelay(DWORD segments) {
    m_delaySegments = segments == m_delaySegments ? segments + 1 : segments;
    Require(Set(kBackdoorPreferDelaySegments, m_delaySegments), "delay");
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
    m_source.Release();
}

}  // namespace kvmpd::test
