// Stand-ins for everything around the engine: the manifests, the HTTP server, the filter and the host.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "events/IKVMPDCallback.h"
#include "manifest/ManifestSource.h"
#include "platform/com.h"
#include "tests/support/Gate.h"
#include "tests/support/InertHttpClient.h"

namespace kvmpd::test {

/// Byte `index` of a segment's video or audio file. A run of bytes occurs nowhere else in any file, so what was read
/// can be recomputed from where it should have come from, and from nowhere else.
BYTE MediaByte(LONGLONG number, bool isVideo, size_t index);
std::vector<BYTE> MediaBytes(LONGLONG number, bool isVideo, size_t size);

/// A timeline with one video and one audio set. The video set has the qualities 1 (360 lines) and 2 (720 lines).
MPD MakeManifest(LONGLONG firstNumber, size_t count, DWORD duration);

/// What the manifest "server" answers. Shared by the test and the source that the engine owns.
struct ManifestScript {
    Gate gate;  ///< Every fetch passes it.
    void Set(MPD manifest);
    void Fail(HRESULT code);
    HRESULT Answer(MPD& manifest) const;

  private:
    mutable std::mutex m_mutex;
    MPD m_manifest;
    HRESULT m_result = S_OK;
};

class ScriptedManifests final : public ManifestSource {
  public:
    explicit ScriptedManifests(std::shared_ptr<ManifestScript> script) : m_script(std::move(script)) {}
    HRESULT parse(std::wstring url, std::shared_ptr<MPD> mpd) override;

  private:
    const std::shared_ptr<ManifestScript> m_script;
};

/// What the media "server" answers: for the URLs that MakeManifest writes, the media bytes of that segment.
struct MediaScript {
    Gate gate;  ///< Every request passes it.
    void SetSizes(size_t video, size_t audio);
    void FailUrl(std::string url);
    /// What has been asked for so far, in this order.
    std::vector<std::string> Urls() const;
    /// S_OK and the body, or E_FAIL.
    HRESULT Answer(const std::string& url, std::vector<BYTE>& body);

  private:
    mutable std::mutex m_mutex;
    size_t m_videoSize = 1000;
    size_t m_audioSize = 100;
    std::set<std::string> m_failing;
    std::vector<std::string> m_urls;
};

std::string VideoUrl(LONGLONG number);
std::string AudioUrl(LONGLONG number);

class ScriptedHttp final : public InertHttpClient {
  public:
    explicit ScriptedHttp(std::shared_ptr<MediaScript> script) : m_script(std::move(script)) {}
    HRESULT OpenUrl(const char* url, const char* verb, const wchar_t* proxy, BOOL disableProxy, const char* headers,
                    const wchar_t* responseFile, const BYTE* postData, DWORD postLength,
                    INetKernelContentStream* stream) override;

  private:
    const std::shared_ptr<MediaScript> m_script;
};

/// A filter of which only the state is asked.
class FakeFilter final : public IBaseFilter {
  public:
    std::atomic<FILTER_STATE> state{State_Running};
    std::atomic<HRESULT> result{S_OK};
    std::atomic<int> asked{0};
    std::atomic<DWORD> timeout{99};
    std::atomic<LONG> references{1};  ///< The test's own.

    HRESULT STDMETHODCALLTYPE GetState(DWORD milliseconds, FILTER_STATE* out) override {
        ++asked;
        timeout = milliseconds;
        *out = state;
        return result;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Stop() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Pause() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR, IPin**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph*, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR*) override { return E_NOTIMPL; }
};

/// Writes down what it hears, as texts: "8(1,0)" for a number event, "buffering(0,2000,4000)".
class RecordingHost final : public IKVMPDCallback {
  public:
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void* param2) override;
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) override;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++m_references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--m_references); }

    LONG References() const { return m_references; }
    /// Waits until something has been heard that is exactly `text`.
    void WaitFor(const std::string& text);
    std::vector<std::string> Heard() const;
    void Forget();

  private:
    void Note(std::string text);

    std::atomic<LONG> m_references{0};
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_heard;
};

}  // namespace kvmpd::test
