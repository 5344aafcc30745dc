// A host: a callback that keeps what it hears, a filter, and a small live origin for it to load from.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "common/ComPtr.h"
#include "events/EventIds.h"
#include "events/IKVMPDCallback.h"
#include "filter/KVMPDFilter.h"
#include "tests/support/ScriptedPeer.h"

namespace kvmpd::test {

struct HeardEvent {
    DWORD id;
    LONG first;
    LONG second;
    std::wstring text;

    bool operator==(const HeardEvent&) const = default;
};

class RecordingCallback final : public IKVMPDCallback {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IUnknown || riid == IID_IKVMPDCallback) {
            *ppv = this;
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void* param2) override {
        HeardEvent event{id, 0, 0, {}};
        if (id == kEventQualityList) {
            event.text = static_cast<const wchar_t*>(param1);
        } else {
            event.first = *static_cast<LONG*>(param1);
            event.second = *static_cast<LONG*>(param2);
        }
        const std::scoped_lock lock(m_mutex);
        m_events.push_back(event);
        m_changed.notify_all();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) override {
        const std::scoped_lock lock(m_mutex);
        m_ordered = m_ordered || (play <= buffered && buffered <= total);
        m_changed.notify_all();
        return S_OK;
    }

    // The first event that `wanted` accepts, waiting for it; the bound is for broken code, not a pace.
    HeardEvent WaitFor(const std::function<bool(const HeardEvent&)>& wanted) {
        std::unique_lock lock(m_mutex);
        std::vector<HeardEvent>::iterator found;
        const bool heard = m_changed.wait_for(lock, std::chrono::seconds(20), [&] {
            found = std::find_if(m_events.begin(), m_events.end(), wanted);
            return found != m_events.end();
        });
        EXPECT_TRUE(heard) << "the event never came";
        return heard ? *found : HeardEvent{};
    }
    HeardEvent WaitForId(DWORD id) {
        return WaitFor([id](const HeardEvent& event) { return event.id == id; });
    }
    // A report whose three times are in order. Not every one's are: a segment may be in the cache before the loader has
    // counted it into the total.
    bool WaitForBuffering() {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(20), [&] { return m_ordered; });
    }

    std::atomic<ULONG> references{1};

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<HeardEvent> m_events;
    bool m_ordered = false;
};

inline std::string VideoFile(int quality, int number) {
    return std::string(static_cast<size_t>(900 + number), static_cast<char>('A' + quality)) + "video";
}
inline std::string AudioFile(int number) {
    return std::string(static_cast<size_t>(300 + number), 'z') + "audio";
}

// Serves /live.mpd: three segments, 100 to 102, of two seconds; audio, and video with the ids 1 (360), 2 (720) and
// 3 (1080).
inline void ServeLive(ScriptedPeer& peer) {
    const auto representation = [&peer](int id, int height, const std::string& folder, auto file) {
        std::string text = "<Representation id=\"" + std::to_string(id) +
                           "\" bandwidth=\"1000\" width=\"16\" height=\"" + std::to_string(height) + "\"><BaseURL>" +
                           peer.Url(folder) + "</BaseURL><SegmentList>";
        for (int number = 100; number < 103; ++number) {
            const std::string media = std::to_string(number) + ".bin";
            text += "<SegmentURL media=\"" + media + "\"/>";
            peer.On(folder + media, PeerReply::Ok(file(number)));
        }
        return text + "</SegmentList></Representation>";
    };
    const auto video = [&](int id, int height) {
        return representation(id, height, "/v" + std::to_string(id) + "/",
                              [id](int number) { return VideoFile(id, number); });
    };
    peer.On("/live.mpd",
            PeerReply::Ok("<MPD type=\"dynamic\"><Period><SegmentList startNumber=\"100\"><SegmentTimeline>"
                          "<S d=\"2000\"/><S d=\"2000\"/><S d=\"2000\"/></SegmentTimeline></SegmentList>"
                          "<AdaptationSet id=\"0\" mimeType=\"audio/mp4\">" +
                          representation(9, 0, "/a/", &AudioFile) +
                          "</AdaptationSet><AdaptationSet id=\"1\" mimeType=\"video/mp4\">" + video(1, 360) +
                          video(2, 720) + video(3, 1080) + "</AdaptationSet></Period></MPD>"));
}

// A filter through its class function, with the one reference that the test holds.
inline ComPtr<KVMPDFilter> MakeKVMPDFilter() {
    HRESULT hr = S_OK;
    CUnknown* object = KVMPDFilter::CreateInstance(nullptr, &hr);
    EXPECT_EQ(hr, S_OK);
    return ComPtr<KVMPDFilter>(static_cast<KVMPDFilter*>(object));
}

inline ComPtr<IAsyncReader> PullOf(IBaseFilter* filter) {
    ComPtr<IPin> pin;
    EXPECT_EQ(filter->FindPin(L"Output", pin.put()), S_OK);
    ComPtr<IAsyncReader> pull;
    EXPECT_EQ(pin->QueryInterface(IID_IAsyncReader, pull.putVoid()), S_OK);
    return pull;
}

}  // namespace kvmpd::test
