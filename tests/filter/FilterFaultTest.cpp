// The filter when the system has no memory, and what it asks of the settings.
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/directshow/Fakes.h"
#include "tests/filter/HostFakes.h"
#include "tests/filter/SystemFaults.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

constexpr size_t kLong = 2000;  // characters of a URL, bytes of a format: nothing else here asks for as much at once

class FilterWithoutMemory : public testing::Test {
  protected:
    FilterWithoutMemory() : filter(MakeKVMPDFilter()), file(filter.get()) {}

    std::wstring LongUrl() { return peer.UrlW("/" + std::string(kLong, 'a')); }

    std::wstring CurrentFile() {
        LPOLESTR name = nullptr;
        EXPECT_EQ(file->GetCurFile(&name, nullptr), S_OK);
        const std::wstring text = name != nullptr ? name : L"";
        CoTaskMemFree(name);
        return text;
    }

    ScriptedPeer peer;
    ComPtr<KVMPDFilter> filter;
    IFileSourceFilter* file;
};

class CurrentFileWithoutMemory : public FilterWithoutMemory, public testing::WithParamInterface<int> {};

TEST_P(CurrentFileWithoutMemory, HasNoNameButItsType) {
    const CMediaType type = MakeType(MEDIATYPE_Stream, kFakeSubtype);
    ASSERT_EQ(file->Load(LongUrl().c_str(), &type), S_OK);
    LPOLESTR name = nullptr;
    CMediaType answered;
    {
        const FailingAllocation fault(GetParam(), kLong * sizeof(wchar_t));
        EXPECT_EQ(file->GetCurFile(&name, &answered), S_OK);
        EXPECT_TRUE(fault.Happened());
    }
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(answered.subtype, kFakeSubtype);
}

// The engine's copy of the URL, and the one that the host is given.
INSTANTIATE_TEST_SUITE_P(EachCopy, CurrentFileWithoutMemory, testing::Values(1, 2));

TEST_F(FilterWithoutMemory, ALoadWhoseTypeCannotBeKeptLoadsTheUrl) {
    std::vector<BYTE> format(kLong, 7);
    CMediaType before = MakeType(MEDIATYPE_Stream, kFakeSubtype);
    ASSERT_EQ(file->Load(L"", &before), S_OK);
    AM_MEDIA_TYPE type = MakeType(MEDIATYPE_Stream, GUID_NULL, kFakeFormat);
    type.cbFormat = static_cast<ULONG>(format.size());
    type.pbFormat = format.data();
    const std::wstring url = peer.UrlW("/live.mpd");
    {
        const FailingAllocation fault(1, kLong);
        EXPECT_EQ(file->Load(url.c_str(), &type), S_OK);
        EXPECT_TRUE(fault.Happened());
    }
    LPOLESTR name = nullptr;
    CMediaType kept;
    EXPECT_EQ(file->GetCurFile(&name, &kept), S_OK);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(std::wstring(name), url);
    EXPECT_EQ(kept.subtype, kFakeSubtype);
    CoTaskMemFree(name);
}

TEST_F(FilterWithoutMemory, ALoadLeavesWhatWasLoadedAndTheNextOneWorks) {
    const std::wstring before = peer.UrlW("/before.mpd");
    ASSERT_EQ(file->Load(before.c_str(), nullptr), S_OK);
    const std::wstring url = LongUrl();
    {
        const FailingAllocation fault(1, kLong * sizeof(wchar_t));
        EXPECT_EQ(file->Load(url.c_str(), nullptr), S_OK);
        EXPECT_TRUE(fault.Happened());
    }
    EXPECT_EQ(CurrentFile(), before);
    EXPECT_EQ(file->Load(url.c_str(), nullptr), S_OK);
    EXPECT_EQ(CurrentFile(), url);
}

TEST_F(FilterWithoutMemory, ACacheFolderIsRefused) {
    std::string folder(kLong, 'f');
    const FailingAllocation fault(1, kLong);
    EXPECT_EQ(filter->Backdoor(kBackdoorCacheFolder, folder.data()), E_OUTOFMEMORY);
    EXPECT_TRUE(fault.Happened());
}

/// A host's callback that throws where the component takes its reference.
class ThrowingCallback final : public IKVMPDCallback {
  public:
    explicit ThrowingCallback(std::function<void()> thrower) : m_throw(std::move(thrower)) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override { return *ppv = nullptr, E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override {
        m_throw();
        return 2;
    }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD, void*, void*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG, LONGLONG, LONGLONG) override { return S_OK; }

  private:
    const std::function<void()> m_throw;
};

struct Thrown {
    const char* name;
    std::function<void()> thrower;
    HRESULT expected;
};

class ExceptionInAnOperation : public FilterWithoutMemory, public testing::WithParamInterface<Thrown> {};

TEST_P(ExceptionInAnOperation, BecomesAResultAndLeavesTheFilterUsable) {
    ThrowingCallback throwing(GetParam().thrower);
    HRESULT hr = S_OK;
    EXPECT_NO_THROW(hr = filter->SetCallback(&throwing));
    EXPECT_EQ(hr, GetParam().expected);
    RecordingCallback callback;
    EXPECT_EQ(filter->SetCallback(&callback), S_OK);
    peer.Otherwise(PeerReply::Ok("no manifest"));
    EXPECT_EQ(file->Load(peer.UrlW("/live.mpd").c_str(), nullptr), S_OK);
    EXPECT_NE(callback.WaitForId(kEventManifest).first, kManifestLoaded);
    EXPECT_EQ(filter->SetCallback(nullptr), S_OK);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ExceptionInAnOperation,
                         testing::Values(Thrown{"NoMemory", [] { throw std::bad_alloc(); }, E_OUTOFMEMORY},
                                         Thrown{"Standard", [] { throw std::runtime_error("host"); }, E_UNEXPECTED},
                                         Thrown{"Other", [] { throw 7; }, E_UNEXPECTED}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(FilterWithoutMemory, NoFilterIsMade) {
    HRESULT hr = S_OK;
    const FailingAllocation fault(1, sizeof(KVMPDFilter));
    EXPECT_EQ(KVMPDFilter::CreateInstance(nullptr, &hr), nullptr);
    EXPECT_EQ(hr, E_OUTOFMEMORY);
}

TEST(FilterSettings, AreOpenedBeforeTheEngineIsMadeAndNeverCreated) {
    LogCapture log(6);
    WatchedSettings settings;
    bool engineMade = false;
    settings.onOpen = [&] { engineMade = engineMade || log.Contains(" KVMPDStream::KVMPDStream "); };
    const ComPtr<KVMPDFilter> filter = MakeKVMPDFilter();
    EXPECT_TRUE(log.Contains(" KVMPDStream::KVMPDStream "));
    const std::wstring key = L"Software\\Kavotra\\MpdSource";
    EXPECT_EQ(settings.opened, (std::vector<WatchedSettings::Opened>{{HKEY_LOCAL_MACHINE, key, KEY_READ},
                                                                     {HKEY_CURRENT_USER, key, KEY_READ}}));
    EXPECT_EQ(settings.created, 0);
    EXPECT_FALSE(engineMade);
}

}  // namespace
}  // namespace kvmpd::test
