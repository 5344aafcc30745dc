// A host that calls in any order: the input is a sequence of control operations, state changes, reads, callbacks and
// changes of the network, carried out on a filter with its live engine. Only the network is not real. Whatever the
// sequence, every call returns a documented kind of result, a read delivers what belongs at its place (StreamModel.h),
// and after the last Release nothing is left: no thread, no handle, no reference, no file that was downloaded whole.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/ComPtr.h"
#include "events/EventIds.h"
#include "events/IKVMPDCallback.h"
#include "filter/AddressSplit.h"
#include "filter/KVMPDFilter.h"
#include "tests/fuzz/FakeInternet.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzRequire.h"
#include "tests/fuzz/LogToNobody.h"
#include "tests/fuzz/StreamModel.h"
#include "tests/support/ProcessFootprint.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {
namespace {

constexpr int kMostCalls = 40;
constexpr LONG kLongestRead = 6000;

/// Numbers that a host may pass; the last ones on purpose or by mistake.
constexpr std::array<std::uint64_t, 16> kNumbers{0,
                                                 1,
                                                 2,
                                                 3,
                                                 5,
                                                 8,
                                                 720,
                                                 1080,
                                                 2000,
                                                 4000,
                                                 60000,
                                                 0x7FFFFFFF,
                                                 0x80000000,
                                                 0xFFFFFFFF,
                                                 0x7FFFFFFFFFFFFFFF,
                                                 0x8000000000000000};
constexpr std::array<const wchar_t*, 7> kUrls{
    L"http://origin/live.mpd", L"http://origin/LIVE.mpd", L"https://other/b.mpd", L"ftp://x", L"", nullptr, L"http://"};

/// The host's callback: counts, looks at what it is given, and may call back into the control interface.
class FuzzHost final : public IKVMPDCallback {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* first, void* second) override {
        if (id == kEventQualityList) {
            const std::wstring_view text = static_cast<const wchar_t*>(first);
            Require(second == nullptr && text.starts_with(L'{') && text.ends_with(L'}'), "a list of qualities");
        } else {
            Require(first != nullptr && second != nullptr, "a number event has its numbers");
        }
        CallBack();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG, LONGLONG, LONGLONG) override { return S_OK; }

    std::atomic<ULONG> references{1};
    std::atomic<IKVMPDSource*> control{nullptr};
    std::atomic<DWORD> callsBackWith{0};  ///< A Backdoor id, used once; 0: none.
    std::atomic<unsigned> calls{0};       ///< That were begun, and those that were ended.

  private:
    void CallBack() {
        const DWORD id = callsBackWith.exchange(0);
        IKVMPDSource* const source = control.load();
        if (id == 0 || source == nullptr) {
            return;
        }
        LONGLONG number = 1;
        ++calls;
        source->Backdoor(id, &number);
        ++calls;
    }
};

std::string Representations(int first, int count, bool isVideo, LONGLONG startNumber, std::uint32_t segments) {
    std::string text;
    for (int id = first; id < first + count; ++id) {
        text += "<Representation id=\"" + std::to_string(id) + "\" height=\"" + std::to_string(360 * id) +
                "\"><BaseURL>http://origin/" + (isVideo ? "v" : "a") + "/</BaseURL><SegmentList>";
        for (std::uint32_t i = 0; i < segments; ++i) {
            text += "<SegmentURL media=\"" + std::to_string(static_cast<std::uint64_t>(startNumber) + i) + "\"/>";
        }
        text += "</SegmentList></Representation>";
    }
    return text;
}

std::string Manifest(LONGLONG startNumber, std::uint32_t segments, std::int64_t duration) {
    std::string text =
        "<MPD><Period><SegmentList startNumber=\"" + std::to_string(startNumber) + "\"><SegmentTimeline>";
    for (std::uint32_t i = 0; i < segments; ++i) {
        text += "<S d=\"" + std::to_string(duration) + "\"/>";
    }
    return text + "</SegmentTimeline></SegmentList><AdaptationSet mimeType=\"audio/mp4\">" +
           Representations(9, 1, false, startNumber, segments) +
           "</AdaptationSet><AdaptationSet mimeType=\"video/mp4\">" +
           Representations(1, 2, true, startNumber, segments) + "</AdaptationSet></Period></MPD>";
}

bool IsResult(HRESULT result) {
    return result == S_OK || result == S_FALSE || FAILED(result) || result == VFW_S_CANT_CUE ||
           result == VFW_S_STATE_INTERMEDIATE;
}

/// One host with its filter, from creation to the last Release.
class Session {
  public:
    explicit Session(const std::filesystem::path& folder) : m_folder(folder) {
        HRESULT result = S_OK;
        m_filter = ComPtr<KVMPDFilter>(static_cast<KVMPDFilter*>(KVMPDFilter::CreateInstance(nullptr, &result)));
        Require(result == S_OK && m_filter, "a filter");
        ComPtr<IPin> pin;
        Require(m_filter->FindPin(L"Output", pin.put()) == S_OK, "its pin");
        Require(pin->QueryInterface(IID_IAsyncReader, m_reader.putVoid()) == S_OK, "its reader");
        m_host.control = m_filter.get();
        Control(kBackdoorCacheFolder, m_folder.string().data());
    }
    ~Session() {
        // From here on the host does not call back: the filter is about to go.
        m_host.control = nullptr;
        m_filter->SetCallback(nullptr);
        m_pool.Reset();
        m_reader.Reset();
        m_filter.Reset();
        Require(m_host.references == 1, "the host's callback is released");
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// What every host does first, so that short sequences meet a stream that plays.
    void Begin() {
        FakeInternet::Get().SetManifest(Manifest(100, 10, 2000));
        FakeInternet::Get().SetMediaSize(3000, 500);
        m_filter->SetCallback(&m_host);
        m_filter->Load(kUrls[0]);
    }

    void Call(FuzzInput& input) {
        const std::uint32_t kind = input.Below(14);
        if (kind < 6 || kind == 9) {
            Move();
        }
        switch (kind) {
            case 0:
            case 1:
                return CallBackdoor(input);
            case 2:
                Require(m_filter->Load(input.OneOf(kUrls)) == S_OK, "a load never fails");
                return;
            case 3:
                Require(IsResult(m_filter->Run(0)), "run");
                return;
            case 4:
                Require(IsResult(m_filter->Pause()), "pause");
                return;
            case 5:
                Require(IsResult(m_filter->Stop()), "stop");
                return;
            case 6:
            case 7:
                return Read(input);
            case 8:
                return ReadQueued(input);
            case 9:
                return SetCallback(input);
            case 10:
                return ChangeManifest(input);
            case 11:
                return ChangeFaults(input);
            case 12:
                // Lets the engine's threads do something: which call meets what is part of what is tried.
                std::this_thread::sleep_for(std::chrono::microseconds(30 * input.Below(32)));
                return;
            default:
                return Ask(input);
        }
    }

  private:
    void Control(DWORD id, void* param) {
        const HRESULT result = m_filter->Backdoor(id, param);
        Require(result == S_OK || result == E_FAIL || result == E_POINTER || result == E_NOTIMPL, "Backdoor's result");
    }

    void CallBackdoor(FuzzInput& input) {
        const DWORD id = input.Byte() % 12;
        if (id == kBackdoorLoad) {
            return Control(id, const_cast<wchar_t*>(input.OneOf(kUrls)));
        }
        if (id == kBackdoorCacheFolder) {
            const std::array folders{m_folder.string(), (m_folder / "missing").string(),
                                     m_folder.string() + "/\xFF\xC0"};
            std::string folder = input.OneOf(folders);
            return Control(id, input.Byte() % 16 == 0 ? nullptr : folder.data());
        }
        auto number = input.Flag() ? input.OneOf(kNumbers) : static_cast<std::uint64_t>(input.Position());
        const DWORD anyId = id < 9 ? id : 9 + input.Short();
        Control(anyId, input.Byte() % 32 == 31 ? nullptr : &number);
    }

    void Read(FuzzInput& input) {
        const bool isAudio = input.Flag();
        LONGLONG position = input.Position();
        if (isAudio && position < 0x10000000) {
            position += AUDIO_POSITION_BASE;
        }
        const LONG length = static_cast<LONG>(input.Short()) % kLongestRead - 1;
        const LONGLONG base = position >= AUDIO_POSITION_BASE ? AUDIO_POSITION_BASE : 0;
        if (ReadAndCheck(position, length) == S_OK && position > base) {
            // What lies before it, so that the byte's place in its file and the file's in the stream are known.
            const LONGLONG begin = std::max(base, position - kLongestRead + 1);
            ReadAndCheck(begin, static_cast<LONG>(position - begin));
        }
    }

    HRESULT ReadAndCheck(LONGLONG position, LONG length) {
        std::string bytes(static_cast<size_t>(kLongestRead), '\0');
        const unsigned calls = m_host.calls;
        const HRESULT result = m_reader->SyncRead(position, length, reinterpret_cast<BYTE*>(bytes.data()));
        Require(IsResult(result), "a read's result");
        if (result == S_OK) {
            // A call from the host's callback may have moved the stream before, or while it was read.
            if (calls % 2 != 0 || calls != m_callsSeen || calls != m_host.calls) {
                Move();
                m_callsSeen = calls;
            }
            CheckBytes(position, std::string_view(bytes).substr(0, static_cast<size_t>(std::max(length, LONG{0}))));
            if (calls % 2 != 0 || calls != m_host.calls) {
                Move();
            }
        }
        return result;
    }

    void Move() {
        m_video.Move();
        m_audio.Move();
    }

    void CheckBytes(LONGLONG position, std::string_view bytes) {
        const auto place = SplitPosition(position);
        (place.audio ? m_audio : m_video).Check(place.offset, bytes);
    }

    /// A request by time, in bytes; its stream may have been moved since it was made.
    static void CheckSample(IMediaSample& sample) {
        REFERENCE_TIME start = 0;
        REFERENCE_TIME stop = 0;
        BYTE* bytes = nullptr;
        if (sample.GetTime(&start, &stop) == S_OK && sample.GetPointer(&bytes) == S_OK) {
            const auto place = SplitPosition(start / 10'000'000);
            StreamModel(!place.audio)
                .Check(place.offset,
                       {reinterpret_cast<const char*>(bytes), static_cast<size_t>(sample.GetActualDataLength())});
        }
    }

    IMemAllocator* Pool() {
        if (!m_pool) {
            ALLOCATOR_PROPERTIES properties{4, 512, 1, 0};
            Require(m_reader->RequestAllocator(nullptr, &properties, m_pool.put()) == S_OK, "an allocator");
            Require(m_pool->Commit() == S_OK, "its memory");
        }
        return m_pool.get();
    }

    void ReadQueued(FuzzInput& input) {
        ComPtr<IMediaSample> sample;
        if (Pool()->GetBuffer(sample.put(), nullptr, nullptr, AM_GBF_NOWAIT) == S_OK) {
            REFERENCE_TIME start = (input.Position() & 0xFFFF) * 10'000'000;
            REFERENCE_TIME stop = start + static_cast<REFERENCE_TIME>(input.Short()) * 5'000'000;
            sample->SetTime(&start, &stop);
            if (input.Flag()) {
                if (m_reader->SyncReadAligned(sample.get()) == S_OK) {
                    CheckSample(*sample);
                }
            } else {
                m_reader->Request(sample.get(), input.Byte());
            }
        }
        if (input.Flag()) {
            TakeDone();
        }
    }

    void TakeDone() {
        IMediaSample* done = nullptr;
        DWORD_PTR user = 0;
        const HRESULT result = m_reader->WaitForNext(/*timeout=*/1, &done, &user);
        if (done != nullptr) {
            if (result == S_OK) {
                CheckSample(*done);
            }
            done->Release();  // the request's reference, handed over
        }
    }

    void SetCallback(FuzzInput& input) {
        const std::uint32_t kind = input.Byte();
        m_host.callsBackWith = kind % 10;
        Require(m_filter->SetCallback(kind % 4 == 0 ? nullptr : &m_host) == S_OK, "a callback is taken");
    }

    void ChangeManifest(FuzzInput& input) {
        if (input.Byte() % 8 == 0) {
            FakeInternet::Get().SetManifest(std::string(input.Take(input.Byte())));
            return;
        }
        const bool anyNumber = input.Byte() % 8 == 0;
        const LONGLONG start = anyNumber ? static_cast<LONGLONG>(input.Long()) : 100 + input.Byte();
        const std::uint32_t segments = input.Below(24);
        const std::int64_t duration = input.Byte() % 8 == 0 ? static_cast<std::int32_t>(input.Long())
                                                            : 100 * static_cast<std::int64_t>(input.Byte());
        FakeInternet::Get().SetManifest(Manifest(start, segments, duration));
        FakeInternet::Get().SetMediaSize(input.Short() % 4000, input.Short() % 1000);
    }

    static void ChangeFaults(FuzzInput& input) {
        const auto manifest = static_cast<NetworkFault>(input.Below(kNetworkFaults));
        FakeInternet::Get().SetFaults(manifest, static_cast<NetworkFault>(input.Below(kNetworkFaults)));
    }

    void Ask(FuzzInput& input) {
        switch (input.Below(5)) {
            case 0: {
                LPOLESTR name = nullptr;
                Require(m_filter->GetCurFile(&name, nullptr) == S_OK, "the current file");
                CoTaskMemFree(name);
                return;
            }
            case 1: {
                LONGLONG total = 0;
                LONGLONG available = 0;
                Require(m_reader->Length(&total, &available) == S_OK && total == available, "an endless stream");
                return;
            }
            case 2:
                m_reader->BeginFlush();
                return;
            case 3:
                m_reader->EndFlush();
                return;
            default:
                return TakeDone();
        }
    }

    const std::filesystem::path m_folder;
    FuzzHost m_host;
    ComPtr<KVMPDFilter> m_filter;
    ComPtr<IAsyncReader> m_reader;
    ComPtr<IMemAllocator> m_pool;
    StreamModel m_video{true};
    StreamModel m_audio{false};
    unsigned m_callsSeen = 0;  // of the host's callback
};

/// A thread that has been joined shows for a moment longer in what the system tells of the process.
bool ThreadsComeDownTo(size_t bound) {
    for (int attempt = 0; attempt < 2000; ++attempt) {
        if (ProcessFootprint::Now()->threads <= bound) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

void Play(FuzzInput input) {
    static const TempDir dir;
    FakeInternet& internet = FakeInternet::Get();
    internet.Reset();
    const size_t threads = ProcessFootprint::Now()->threads;
    {
        Session session(dir.Path());
        if (input.Byte() % 4 != 0) {
            session.Begin();
        }
        for (int calls = 0; calls < kMostCalls && !input.IsEmpty(); ++calls) {
            session.Call(input);
        }
    }
    Require(internet.handles == 0, "every handle is closed");
    Require(ThreadsComeDownTo(threads), "every thread has ended");
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
        ++files;
        std::filesystem::remove(entry);
    }
    // What a failed download had begun stays, for a person to look at.
    Require(files <= internet.SpoiledMedia(), "every cache file is deleted");
}

}  // namespace
}  // namespace kvmpd::test

// The component's pauses, ten thousand times shorter, and the loader's waits for the next reload, a hundred times.
extern "C" {
void __wrap__Z5Sleepj(DWORD milliseconds);
DWORD __real__Z22WaitForMultipleObjectsjPKPvij(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds);
DWORD __wrap__Z22WaitForMultipleObjectsjPKPvij(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds);

void __wrap__Z5Sleepj(DWORD milliseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(milliseconds / 10));
}

DWORD __wrap__Z22WaitForMultipleObjectsjPKPvij(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds) {
    return __real__Z22WaitForMultipleObjectsjPKPvij(count, handles, waitAll,
                                                    milliseconds == INFINITE ? INFINITE : milliseconds / 100);
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    [[maybe_unused]] static const bool once = (kvmpd::test::LogToNobody(), true);
    kvmpd::test::Play({data, size});
    return 0;
}
