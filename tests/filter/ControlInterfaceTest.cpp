#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "filter/KVMPDSrc.h"
#include "tests/directshow/Fakes.h"
#include "tests/directshow/Slots.h"
#include "tests/filter/HostFakes.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"
#include "tests/support/Wine.h"

namespace kvmpd::test {
namespace {

// A filter whose Load is the test's.
class OverridingFilter final : public KVMPDFilter {
  public:
    OverridingFilter() : KVMPDFilter(nullptr, nullptr) {}
    using KVMPDFilter::Load;
    HRESULT STDMETHODCALLTYPE Load(const wchar_t* url) override {
        loaded.emplace_back(url);
        return E_ACCESSDENIED;
    }
    std::vector<std::wstring> loaded;
};

class ControlInterface : public testing::Test {
  protected:
    ControlInterface() : filter(MakeKVMPDFilter()) {}

    std::wstring CurrentFile(AM_MEDIA_TYPE* type = nullptr) {
        LPOLESTR name = nullptr;
        EXPECT_EQ(filter->GetCurFile(&name, type), S_OK);
        std::wstring text = name != nullptr ? name : L"(null)";
        CoTaskMemFree(name);
        return text;
    }

    ComPtr<KVMPDFilter> filter;
};

TEST_F(ControlInterface, IdsAreThePublishedOnes) {
    EXPECT_EQ(IID_IKVMPDSource, (GUID{0x2B6F9C14, 0x8E3A, 0x4D75, {0x9F, 0x01, 0xC7, 0xA4, 0xE5, 0x8B, 0x3D, 0x62}}));
    EXPECT_EQ(CLSID_KVMPDFilter, (GUID{0x7D3E2A91, 0x5C4B, 0x4F18, {0xA6, 0xE2, 0x3B, 0x9C, 0x0D, 0x4E, 0x1F, 0x27}}));
    CLSID clsid;
    EXPECT_EQ(filter->GetClassID(&clsid), S_OK);
    EXPECT_EQ(clsid, CLSID_KVMPDFilter);
}

TEST_F(ControlInterface, EventIdsAreThePublishedOnes) {
    EXPECT_EQ(kEventManifest, 0u);
    EXPECT_EQ(kEventQualityList, 6u);
    EXPECT_EQ(kEventQualityChosen, 7u);
    EXPECT_EQ(kEventPosition, 8u);
    EXPECT_EQ(kEventDownloadFailed, 9u);
    EXPECT_EQ(kManifestLoaded, 0);
    EXPECT_EQ(kManifestMalformed, 1);
    EXPECT_EQ(kManifestFailed, 2);
}

TEST_F(ControlInterface, EveryInterfaceSharesOneIdentity) {
    ComPtr<IUnknown> identity;
    ASSERT_EQ(filter->QueryInterface(IID_IUnknown, identity.putVoid()), S_OK);
    for (const IID* id :
         {&IID_IBaseFilter, &IID_IMediaFilter, &IID_IPersist, &IID_IFileSourceFilter, &IID_IKVMPDSource}) {
        ComPtr<IUnknown> face;
        ASSERT_EQ(filter->QueryInterface(*id, face.putVoid()), S_OK);
        ComPtr<IUnknown> same;
        ASSERT_EQ(face->QueryInterface(IID_IUnknown, same.putVoid()), S_OK);
        EXPECT_EQ(same.get(), identity.get());
        EXPECT_EQ(face->QueryInterface(*id, nullptr), E_POINTER);
    }
    void* none = this;
    EXPECT_EQ(filter->QueryInterface(IID_IAsyncReader, &none), E_NOINTERFACE);  // the pin's, not the filter's
    EXPECT_EQ(none, nullptr);
}

TEST_F(ControlInterface, SlotsAreInThePublishedOrder) {
    LogCapture log(6);
    ComPtr<IKVMPDSource> control;
    ASSERT_EQ(filter->QueryInterface(IID_IKVMPDSource, control.putVoid()), S_OK);
    EXPECT_EQ(CallSlot<ULONG>(control.get(), 1), 3u);
    EXPECT_EQ(CallSlot<ULONG>(control.get(), 2), 2u);
    EXPECT_EQ(CallSlot<HRESULT>(control.get(), 3, DWORD{1}, static_cast<void*>(nullptr)), E_NOTIMPL);
    EXPECT_EQ(CallSlot<HRESULT>(control.get(), 4, static_cast<void*>(nullptr)), S_OK);
    EXPECT_TRUE(log.Contains(" KVMPDStream::SetCallback set callback: 0x00000000"));
    EXPECT_EQ(CallSlot<HRESULT>(control.get(), 5, L""), S_OK);
    EXPECT_EQ(log.Count(" KVMPDFilter::Load "), 1u);

    ComPtr<IFileSourceFilter> file;
    ASSERT_EQ(filter->QueryInterface(IID_IFileSourceFilter, file.putVoid()), S_OK);
    EXPECT_EQ(CallSlot<HRESULT>(file.get(), 3, L"", static_cast<void*>(nullptr)), S_OK);
    EXPECT_EQ(log.Count(" KVMPDFilter::Load "), 3u);  // once as a file, once as a URL
    LPOLESTR name = nullptr;
    EXPECT_EQ(CallSlot<HRESULT>(file.get(), 4, &name, static_cast<void*>(nullptr)), S_OK);
    EXPECT_TRUE(log.Contains(" KVMPDFilter::GetCurFile "));
}

TEST_F(ControlInterface, CallbackSlotsAreInThePublishedOrder) {
    RecordingCallback callback;
    IKVMPDCallback* face = &callback;
    EXPECT_EQ(CallSlot<ULONG>(face, 1), 2u);
    EXPECT_EQ(CallSlot<ULONG>(face, 2), 1u);
    LONG first = 4;
    LONG second = 5;
    CallSlot<HRESULT>(face, 3, DWORD{7}, static_cast<void*>(&first), static_cast<void*>(&second));
    EXPECT_EQ(callback.WaitForId(7), (HeardEvent{7, 4, 5, {}}));
    CallSlot<HRESULT>(face, 4, LONGLONG{1}, LONGLONG{2}, LONGLONG{3});
    EXPECT_TRUE(callback.WaitForBuffering());
}

TEST_F(ControlInterface, NothingIsLoadedAtFirst) {
    EXPECT_EQ(CurrentFile(), L"(null)");
    EXPECT_EQ(filter->GetCurFile(nullptr, nullptr), E_POINTER);
    CMediaType type;
    EXPECT_EQ(CurrentFile(&type), L"(null)");
    EXPECT_EQ(type.majortype, MEDIATYPE_Stream);
    EXPECT_EQ(type.subtype, GUID_NULL);
}

TEST_F(ControlInterface, TheLoadedUrlAndTypeAreAnswered) {
    ScriptedPeer peer;
    const std::wstring url = peer.UrlW("/none.mpd");
    CMediaType type = MakeType(MEDIATYPE_Stream, kFakeSubtype);
    LogCapture log(3);
    EXPECT_EQ(static_cast<IFileSourceFilter*>(filter.get())->Load(url.c_str(), &type), S_OK);
    EXPECT_EQ(log.Count(" KVMPDFilter::Load " + peer.Url("/none.mpd")), 2u);  // once as a file, once as a URL
    CMediaType answered;
    EXPECT_EQ(CurrentFile(&answered), url);
    EXPECT_EQ(answered.subtype, kFakeSubtype);
}

TEST_F(ControlInterface, LoadingTheSameUrlAgainOnlyEndsAStop) {
    ScriptedPeer peer;
    LogCapture log(3);
    std::wstring url = peer.UrlW("/None.mpd");
    EXPECT_EQ(filter->Load(url.c_str()), S_OK);
    filter->Backdoor(kBackdoorStop, nullptr);
    url = peer.UrlW("/NONE.MPD");
    EXPECT_EQ(filter->Load(url.c_str()), S_OK);
    EXPECT_EQ(log.Count(" KVMPDStream::Init skip load due to url is the same"), 1u);
    EXPECT_EQ(log.Count(" KVMPDStream::StopNow : 0"), 2u);
    BYTE byte = 0;
    EXPECT_EQ(PullOf(filter.get())->SyncRead(0, 0, &byte), S_OK);
}

TEST_F(ControlInterface, LoadsGoThroughTheTable) {
    ComPtr<OverridingFilter> overriding(new OverridingFilter);
    IFileSourceFilter* file = overriding.get();
    EXPECT_EQ(file->Load(L"http://one/", nullptr), E_ACCESSDENIED);
    EXPECT_EQ(overriding->Backdoor(kBackdoorLoad, const_cast<wchar_t*>(L"http://two/")), S_OK);  // result dropped
    EXPECT_EQ(overriding->loaded, (std::vector<std::wstring>{L"http://one/", L"http://two/"}));
}

TEST_F(ControlInterface, RunIsLoggedAndRuns) {
    LogCapture log(3);
    EXPECT_EQ(filter->Run(0), S_OK);
    FILTER_STATE state = State_Stopped;
    EXPECT_EQ(filter->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Running);
    EXPECT_EQ(log.Lines(), std::vector<std::string>{" KVMPDFilter::Run "});
}

// A filter on which something happens while the base class's Run goes over the pins: the new state is not stored yet.
class FilterCaughtRunning final : public KVMPDFilter {
  public:
    FilterCaughtRunning() : KVMPDFilter(nullptr, nullptr) {}
    int GetPinCount() override {
        if (auto now = std::exchange(inRun, nullptr)) {
            now();
        }
        return KVMPDFilter::GetPinCount();
    }
    std::function<void()> inRun;
};

TEST_F(ControlInterface, ASegmentThatFillsThePausedCacheWhileTheGraphStartsDoesNotParkTheStream) {
    LogCapture log(6);
    TempDir folder;
    ScriptedPeer peer;
    ServeLive(peer);
    const std::string newest = VideoFile(2, 102);
    peer.On("/v2/102.bin", PeerReply::Head(newest.size()).Stall().Send(newest));
    RecordingCallback callback;
    ComPtr<FilterCaughtRunning> starting(new FilterCaughtRunning);
    starting->Backdoor(kBackdoorCacheFolder, const_cast<char*>(folder.Path().string().c_str()));
    starting->SetCallback(&callback);
    DWORD seconds = 1;  // less than a segment
    starting->Backdoor(kBackdoorMaxCacheTime, &seconds);
    ASSERT_EQ(starting->Pause(), S_OK);
    starting->KVMPDFilter::Load(peer.UrlW("/live.mpd").c_str());
    callback.WaitForId(kEventQualityChosen);
    starting->inRun = [&] {
        peer.Release();
        EXPECT_TRUE(log.WaitForPrefix(" KVMPDStream::PushSegmentToCache cache is full. change target segment to 102"));
    };
    EXPECT_EQ(starting->Run(0), S_OK);
    EXPECT_EQ(log.Count(" KVMPDStream::Run reset position by seek to 0"), 1u);
    EXPECT_EQ(callback.WaitForId(kEventPosition), (HeardEvent{kEventPosition, 1, 0, {}}));
    starting.Reset();
}

TEST_F(ControlInterface, ConnectingTellsTheEngine) {
    LogCapture log(6);
    ComPtr<FakeFilter> splitter = MakeFilter();
    FakePin* input = splitter->Add(L"Input", PINDIR_INPUT);
    ComPtr<IAsyncReader> pull;
    input->complete = [&pull](IPin* connector) { return connector->QueryInterface(IID_IAsyncReader, pull.putVoid()); };
    ComPtr<IPin> output;
    ASSERT_EQ(filter->FindPin(L"Output", output.put()), S_OK);
    EXPECT_EQ(output->Connect(input, nullptr), S_OK);
    EXPECT_TRUE(log.Contains(" KVMPDStream::SetRenderComplete : 1"));
    LONGLONG total = 0;
    LONGLONG available = 0;
    EXPECT_EQ(pull->Length(&total, &available), S_OK);
    EXPECT_EQ(total, 0x7FFFFFFFFFFFFFFF);
    EXPECT_EQ(available, 0x7FFFFFFFFFFFFFFF);
    output->Disconnect();
    input->Disconnect();
}

TEST_F(ControlInterface, TheCallbackIsHeldUntilItIsClearedOrReplaced) {
    RecordingCallback one;
    RecordingCallback two;
    EXPECT_EQ(filter->SetCallback(&one), S_OK);
    EXPECT_EQ(one.references, 2u);
    EXPECT_EQ(filter->SetCallback(&two), S_OK);
    EXPECT_EQ(one.references, 1u);
    EXPECT_EQ(two.references, 2u);
    EXPECT_EQ(filter->SetCallback(nullptr), S_OK);
    EXPECT_EQ(two.references, 1u);
    filter->SetCallback(&one);
    filter.Reset();
    EXPECT_EQ(one.references, 1u);
}

TEST_F(ControlInterface, AMalformedManifestIsToldByItsEvent) {
    ScriptedPeer peer;
    peer.On("/live.mpd", PeerReply::Ok("<MPD/>"));
    RecordingCallback callback;
    filter->SetCallback(&callback);
    EXPECT_EQ(filter->Load(peer.UrlW("/live.mpd").c_str()), S_OK);
    EXPECT_EQ(callback.WaitForId(kEventManifest), (HeardEvent{kEventManifest, kManifestMalformed, 0, {}}));
    filter.Reset();
}

TEST_F(ControlInterface, ARefusedManifestIsToldByItsEvent) {
    ScriptedPeer peer;  // answers 404
    RecordingCallback callback;
    filter->SetCallback(&callback);
    EXPECT_EQ(filter->Load(peer.UrlW("/live.mpd").c_str()), S_OK);
    EXPECT_EQ(callback.WaitForId(kEventManifest), (HeardEvent{kEventManifest, kManifestFailed, 0, {}}));
    filter.Reset();
}

TEST_F(ControlInterface, AHostHearsOfALiveStreamAndPullsItsBytes) {
    TempDir folder;
    ScriptedPeer peer;
    ServeLive(peer);
    RecordingCallback callback;
    filter->Backdoor(kBackdoorCacheFolder, const_cast<char*>(folder.Path().string().c_str()));
    DWORD delay = 3;
    filter->Backdoor(kBackdoorPreferDelaySegments, &delay);
    filter->SetCallback(&callback);
    filter->Load(peer.UrlW("/live.mpd").c_str());

    EXPECT_EQ(callback.WaitForId(kEventManifest).first, kManifestLoaded);
    EXPECT_FALSE(callback.WaitForId(kEventQualityList).text.empty());
    EXPECT_EQ(callback.WaitForId(kEventQualityChosen).first, 2);
    EXPECT_TRUE(callback.WaitForBuffering());

    ComPtr<IAsyncReader> pull = PullOf(filter.get());
    std::string video(VideoFile(2, 102).size(), '\0');
    std::string audio(AudioFile(102).size(), '\0');
    ASSERT_EQ(pull->SyncRead(0, 900, reinterpret_cast<BYTE*>(video.data())), S_OK);
    EXPECT_EQ(video.substr(0, 900), std::string(900, 'C'));
    ASSERT_EQ(pull->SyncRead(AUDIO_POSITION_BASE, 300, reinterpret_cast<BYTE*>(audio.data())), S_OK);
    EXPECT_EQ(audio.substr(0, 300), std::string(300, 'z'));
    pull.Reset();
    filter.Reset();
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST_F(ControlInterface, AFailedDownloadIsToldByItsEvent) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesAClosedConnectionForAResponse;
    }
    TempDir folder;
    ScriptedPeer peer;
    ServeLive(peer);
    for (const char* path : {"/a/100.bin", "/a/101.bin", "/a/102.bin"}) {
        peer.On(path, PeerReply::CloseAtOnce());
    }
    RecordingCallback callback;
    filter->Backdoor(kBackdoorCacheFolder, const_cast<char*>(folder.Path().string().c_str()));
    filter->SetCallback(&callback);
    filter->Load(peer.UrlW("/live.mpd").c_str());
    EXPECT_EQ(callback.WaitForId(kEventDownloadFailed), (HeardEvent{kEventDownloadFailed, 0, 0, {}}));
    filter.Reset();
}

TEST_F(ControlInterface, ManyThreadsMaySteerAtOnce) {
    std::vector<std::thread> hosts;
    for (int t = 0; t < 3; ++t) {
        hosts.emplace_back([this, t] {
            for (int i = 0; i < 30; ++i) {
                DWORD number = static_cast<DWORD>(i);
                LONGLONG position = i * 1000;
                filter->Backdoor(kBackdoorMaxCacheTime, &number);
                filter->Backdoor(kBackdoorPreferQuality, &number);
                filter->Backdoor(kBackdoorPreferDelaySegments, &number);
                filter->Backdoor(kBackdoorTargetQuality, &number);
                filter->Backdoor(kBackdoorPosition, &position);
                filter->Backdoor(t == 0 ? kBackdoorStop : kBackdoorLoad, nullptr);
                CurrentFile();
            }
        });
    }
    for (auto& host : hosts) {
        host.join();
    }
    EXPECT_EQ(filter->AddRef(), 2u);
    filter->Release();
}

}  // namespace
}  // namespace kvmpd::test
