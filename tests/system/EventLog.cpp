#include "tests/system/EventLog.h"

#include <algorithm>
#include <chrono>

#include "events/EventIds.h"

namespace kvmpd::test {

HRESULT EventLog::QueryInterface(REFIID iid, void** object) {
    if (iid == IID_IUnknown || iid == IID_IKVMPDCallback) {
        *object = static_cast<IKVMPDCallback*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT EventLog::OnStreamEvent(DWORD id, void* param1, void* param2) {
    Event event{id, 0, 0, {}};
    if (id == kEventQualityList) {
        event.text = static_cast<const wchar_t*>(param1);
    } else {
        event.param1 = *static_cast<const LONG*>(param1);
        event.param2 = *static_cast<const LONG*>(param2);
    }
    const std::lock_guard lock(m_mutex);
    m_events.push_back(std::move(event));
    m_changed.notify_all();
    return S_OK;
}

HRESULT EventLog::OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) {
    const std::lock_guard lock(m_mutex);
    m_ranges.push_back({play, buffered, total});
    m_changed.notify_all();
    return S_OK;
}

std::vector<EventLog::Event> EventLog::Events() const {
    const std::lock_guard lock(m_mutex);
    return m_events;
}

size_t EventLog::Count(const Event& event) const {
    const std::lock_guard lock(m_mutex);
    return static_cast<size_t>(std::ranges::count(m_events, event));
}

bool EventLog::Wait(const std::function<bool()>& condition) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(60), condition);
}

bool EventLog::WaitFor(const Event& event, size_t count) const {
    return Wait([&] { return static_cast<size_t>(std::ranges::count(m_events, event)) >= count; });
}

bool EventLog::WaitForId(DWORD id, size_t count) const {
    return Wait([&] { return static_cast<size_t>(std::ranges::count(m_events, id, &Event::id)) >= count; });
}

bool EventLog::WaitForRange(const std::function<bool(const Range&)>& wanted) const {
    return Wait([&] { return std::ranges::any_of(m_ranges, wanted); });
}

void EventLog::Clear() {
    const std::lock_guard lock(m_mutex);
    m_events.clear();
    m_ranges.clear();
}

}  // namespace kvmpd::test
