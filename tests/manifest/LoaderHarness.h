// A loader between a scripted manifest source and a fake owner. The test thread holds every fetch in its hand: it waits
// until the loader is inside one, does what it wants to happen in mid-cycle, and answers it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/Log.h"
#include "events/EventIds.h"
#include "events/MPDEventHandler.h"
#include "manifest/MpdLoader.h"
#include "tests/manifest/Records.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {

/// A bound for broken code, not a pace.
inline constexpr std::chrono::seconds kPatience{20};
/// How long a loader that should stay asleep is watched. That a wake-up does not come shows in nothing but time; one
/// that does come leads to a fetch within a moment. Too short a time would only overlook it, and never fail correct
/// code.
inline constexpr std::chrono::milliseconds kGrace{150};

struct Answer {
    HRESULT result = S_OK;
    MPD mpd = {};
    std::function<void()> before = {};  ///< Runs on the loader thread, inside the fetch; may throw.
};

class FetchScript {
  public:
    /// Waits until the loader is inside a fetch and returns the URL it asks for; "" when it never is.
    std::wstring Await() {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, kPatience, [this] { return m_url.has_value(); })) {
            ADD_FAILURE() << "the loader does not fetch";
            return L"";
        }
        return *m_url;
    }

    /// Ends the fetch that the loader is in, or the next one.
    void Give(Answer answer) {
        const std::lock_guard lock(m_mutex);
        m_answer = std::move(answer);
        m_changed.notify_all();
    }

    /// From now on every fetch fails at once, so that the loader can be closed.
    void LetGo() {
        const std::lock_guard lock(m_mutex);
        m_letGo = true;
        m_changed.notify_all();
    }

    int Count() const {
        const std::lock_guard lock(m_mutex);
        return m_count;
    }

    /// Waits until `count` fetches have begun in all; false when they do not within `patience`.
    bool AwaitCount(int count, std::chrono::milliseconds patience = kPatience) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, patience, [this, count] { return m_count >= count; });
    }

    HRESULT Fetch(const std::wstring& url, MPD& mpd) {
        Answer answer;
        {
            std::unique_lock lock(m_mutex);
            ++m_count;
            m_url = url;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return m_answer || m_letGo; });
            m_url.reset();
            answer = m_answer ? std::move(*m_answer) : Answer{.result = E_ABORT};
            m_answer.reset();
        }
        if (answer.before) {
            answer.before();
        }
        mpd = std::move(answer.mpd);
        return answer.result;
    }

  private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::optional<std::wstring> m_url;  ///< Set while the loader is inside a fetch.
    std::optional<Answer> m_answer;
    int m_count = 0;
    bool m_letGo = false;
};

class ScriptedSource : public ManifestSource {
  public:
    explicit ScriptedSource(FetchScript& script) : m_script(script) {}
    HRESULT parse(std::wstring url, std::shared_ptr<MPD> mpd) override { return m_script.Fetch(url, *mpd); }

  private:
    FetchScript& m_script;
};

struct HostEvent {
    DWORD id = 0;
    LONG param1 = 0;
    LONG param2 = 0;
    std::wstring text = {};
    bool operator==(const HostEvent&) const = default;
};

inline void PrintTo(const HostEvent& event, std::ostream* out) {
    *out << "(" << event.id << ", " << event.param1 << ", " << event.param2 << ")";
}

/// Remembers what the host hears. On the stack of a test: reference counts decide nothing.
class RecordingHost : public IKVMPDCallback {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void* param2) override {
        const std::lock_guard lock(m_mutex);
        if (id == kEventQualityList) {
            m_events.push_back({.id = id, .text = static_cast<const wchar_t*>(param1)});
        } else {
            m_events.push_back(
                {.id = id, .param1 = *static_cast<const LONG*>(param1), .param2 = *static_cast<const LONG*>(param2)});
        }
        m_changed.notify_all();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG, LONGLONG, LONGLONG) override { return S_OK; }

    /// Waits for `count` events in all and returns those that came.
    std::vector<HostEvent> Await(size_t count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, kPatience, [this, count] { return m_events.size() >= count; });
        return m_events;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<HostEvent> m_events;
};

class FakeOwner : public LoaderOwner {
  public:
    MPDEventHandler& EventHandler() override {
        if (const auto fault = std::exchange(m_fault, nullptr)) {
            std::rethrow_exception(fault);
        }
        return m_events;
    }
    void UpdateCacheSegmentInfo() override {
        Log(6, L" FakeOwner::UpdateCacheSegmentInfo ");
        const std::lock_guard lock(m_mutex);
        ++m_updates;
        m_changed.notify_all();
    }

    bool AwaitUpdates(int count) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, kPatience, [this, count] { return m_updates >= count; });
    }
    int Updates() {
        const std::lock_guard lock(m_mutex);
        return m_updates;
    }

    /// The next event that the loader sends meets `fault`. Called while the loader is inside a fetch or not running.
    void FailNextEvent(std::exception_ptr fault) { m_fault = std::move(fault); }

    MPDEventHandler m_events;

  private:
    std::exception_ptr m_fault;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_updates = 0;
};

class MpdLoaderTest : public testing::Test {
  protected:
    MpdLoaderTest() { m_owner.m_events.SetCallback(&m_host); }
    ~MpdLoaderTest() override {
        m_script.LetGo();
        m_loader.reset();
    }

    void Init(const std::wstring& url = L"http://origin/live.mpd") { EXPECT_EQ(m_loader->Init(url, m_queue), S_OK); }

    /// Answers the fetch that the loader is in, or makes next, and waits until the cycle has applied it.
    void News(MPD mpd) {
        const int updates = m_owner.Updates();
        m_script.Await();
        m_script.Give({.mpd = std::move(mpd)});
        ASSERT_TRUE(m_owner.AwaitUpdates(updates + 1));
    }
    void NoNews(MPD mpd) {
        const size_t waits = m_log.CountPrefix(kParsed);
        m_script.Await();
        m_script.Give({.mpd = std::move(mpd)});
        ASSERT_TRUE(m_log.WaitForPrefix(kParsed, waits + 1));
        CritSecLock publication(m_loader->Publication());  // The cycle that logged it holds this until it has applied.
    }
    void Failure(HRESULT result, MPD mpd = {}) {
        const size_t failures = m_log.CountPrefix(kFailed);
        m_script.Await();
        m_script.Give({.result = result, .mpd = std::move(mpd)});
        ASSERT_TRUE(m_log.WaitForPrefix(kFailed, failures + 1));
    }
    /// Wakes the loader and waits until it is inside the next fetch.
    std::wstring NextFetch() {
        m_loader->Wake();
        return m_script.Await();
    }

    /// Shows that the loader, which is in the wait after its `fetches`-th fetch or comes to it, has not been woken: it
    /// does not fetch, and one more wake-up makes one more fetch. Closes the loader.
    void ExpectNotWoken(int fetches) {
        EXPECT_FALSE(m_script.AwaitCount(fetches + 1, kGrace)) << "the loader was woken";
        m_script.LetGo();
        m_loader->Wake();
        EXPECT_TRUE(m_script.AwaitCount(fetches + 1));
        m_loader->CloseThread();
        EXPECT_EQ(m_script.Count(), fetches + 1);
    }

    /// Takes what is queued, oldest first. The end marker that it uses to find the end is not returned.
    std::vector<std::shared_ptr<Segment>> TakeQueued() {
        m_queue->push(std::make_shared<Segment>());
        std::vector<std::shared_ptr<Segment>> taken;
        while (auto segment = m_queue->pop()) {
            if (segment->IsEndMarker()) {
                break;
            }
            taken.push_back(std::move(segment));
        }
        return taken;
    }
    std::vector<LONGLONG> TakeQueuedNumbers() {
        std::vector<LONGLONG> numbers;
        for (const auto& segment : TakeQueued()) {
            numbers.push_back(segment->m_segmentNumber);
        }
        return numbers;
    }

    static constexpr const char* kParsed = " MpdLoader::ThreadProc parse MPD finish. last segment is";
    static constexpr const char* kFailed = "[Error] MpdLoader::ThreadProc failed to get mpd for";
    static constexpr const char* kSkipped = " MpdLoader::ThreadProc skip MPD parse for pause";
    static constexpr const char* kWoken = " MpdLoader::ThreadProc wait -1 millisecond complete. result: 1";

    LogCapture m_log{6};
    RecordingHost m_host;
    FakeOwner m_owner;
    FetchScript m_script;
    std::shared_ptr<SegmentQueue> m_queue = std::make_shared<SegmentQueue>(0);
    std::unique_ptr<MpdLoader> m_loader =
        std::make_unique<MpdLoader>(m_owner, std::make_unique<ScriptedSource>(m_script));
};

using Numbers = std::vector<LONGLONG>;
using Events = std::vector<HostEvent>;

}  // namespace kvmpd::test
