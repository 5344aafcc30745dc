// The filter when the system has no memory, and what it asks of the settings.
#include <string>
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
