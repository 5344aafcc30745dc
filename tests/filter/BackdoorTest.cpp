#include <string>

#include <gtest/gtest.h>

#include "filter/IKVMPDSource.h"
#include "tests/filter/HostFakes.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {
namespace {

class Backdoor : public testing::Test {
  protected:
    Backdoor() : filter(MakeKVMPDFilter()), log(6) {}

    template <class Value>
    HRESULT Set(DWORD id, Value value) {
        return filter->Backdoor(id, &value);
    }

    ComPtr<KVMPDFilter> filter;
    LogCapture log;
};

TEST_F(Backdoor, LogsEveryIdAsASignedNumber) {
    filter->Backdoor(1, nullptr);
    filter->Backdoor(0xFFFFFFFF, nullptr);
    EXPECT_TRUE(log.Contains(" KVMPDFilter::Backdoor  1"));
    EXPECT_TRUE(log.Contains(" KVMPDFilter::Backdoor  -1"));
}

TEST_F(Backdoor, LoadEndsAStop) {
    BYTE byte = 0;
    const ComPtr<IAsyncReader> pull = PullOf(filter.get());
    EXPECT_EQ(filter->Backdoor(kBackdoorLoad, const_cast<wchar_t*>(L"")), S_OK);
    EXPECT_EQ(pull->SyncRead(0, 0, &byte), S_OK);
    EXPECT_EQ(filter->Backdoor(kBackdoorStop, nullptr), S_OK);
    EXPECT_EQ(pull->SyncRead(0, 0, &byte), E_FAIL);
    EXPECT_EQ(filter->Backdoor(kBackdoorLoad, nullptr), S_OK);  // no URL: as the empty one
    EXPECT_EQ(pull->SyncRead(0, 0, &byte), S_OK);
    EXPECT_EQ(log.Count(" KVMPDStream::StopNow : 1"), 1u);
    EXPECT_EQ(log.Count(" KVMPDStream::StopNow : 0"), 2u);
}

TEST_F(Backdoor, TheReservedIdIsNotImplemented) {
    int anything = 0;
    EXPECT_EQ(filter->Backdoor(kBackdoorReserved, nullptr), E_NOTIMPL);
    EXPECT_EQ(filter->Backdoor(kBackdoorReserved, &anything), E_NOTIMPL);
}

TEST_F(Backdoor, MaxCacheTimeIsInSeconds) {
    EXPECT_EQ(Set(kBackdoorMaxCacheTime, DWORD{30}), S_OK);
    EXPECT_TRUE(log.Contains(" KVMPDStream::SetMaxCacheTime : 30"));
}

TEST_F(Backdoor, CacheFolderIsPassedOnWithItsResult) {
    TempDir folder;
    const std::string path = folder.Path().string();
    EXPECT_EQ(filter->Backdoor(kBackdoorCacheFolder, const_cast<char*>(path.c_str())), S_OK);
    EXPECT_TRUE(log.Contains(" KVMPDFilter::SetCacheFileFolder : " + path));
    EXPECT_EQ(filter->Backdoor(kBackdoorCacheFolder, nullptr), E_FAIL);  // not checked here: the downloader refuses it
    EXPECT_TRUE(log.Contains(" KVMPDFilter::SetCacheFileFolder : (null)"));
}

TEST_F(Backdoor, ADelayThatMovesNothingIsAnsweredWithThePositionEvent) {
    RecordingCallback callback;
    ASSERT_EQ(filter->SetCallback(&callback), S_OK);
    EXPECT_EQ(Set(kBackdoorPreferDelaySegments, DWORD{4}), S_OK);  // nothing is loaded yet
    EXPECT_EQ(callback.WaitForId(kEventPosition), (HeardEvent{kEventPosition, 0, 0, {}}));
    EXPECT_TRUE(log.Contains(" KVMPDStream::SetPreferDelaySegment : 4"));
    filter->SetCallback(nullptr);
}

TEST_F(Backdoor, TargetQualityIsAnId) {
    EXPECT_EQ(Set(kBackdoorTargetQuality, DWORD{137}), S_OK);
    EXPECT_EQ(log.Count(" KVMPDStream::SetVideoQualityID : 137"), 1u);
}

TEST_F(Backdoor, PositionIsA64BitNumberAndFailsOutsideOfWhatCanBeReached) {
    EXPECT_EQ(Set(kBackdoorPosition, LONGLONG{5000000000}), E_FAIL);
    EXPECT_TRUE(log.Contains(" KVMPDStream::SetPosition : 5000000000"));
}

TEST_F(Backdoor, UnknownIdsAreLoggedAndSucceed) {
    EXPECT_EQ(filter->Backdoor(9, nullptr), S_OK);
    EXPECT_EQ(filter->Backdoor(0xFFFFFFFF, nullptr), S_OK);
    EXPECT_TRUE(log.Contains("[Error] KVMPDFilter::Backdoor Unknown ID: 9"));
    EXPECT_TRUE(log.Contains("[Error] KVMPDFilter::Backdoor Unknown ID: 4294967295"));
}

class BackdoorWithoutParam : public Backdoor, public testing::WithParamInterface<DWORD> {};

TEST_P(BackdoorWithoutParam, IsRefusedAndChangesNothing) {
    EXPECT_EQ(filter->Backdoor(GetParam(), nullptr), E_POINTER);
    EXPECT_EQ(log.Lines().size(), 1u);  // the call itself
}

INSTANTIATE_TEST_SUITE_P(All, BackdoorWithoutParam,
                         testing::Values(kBackdoorMaxCacheTime, kBackdoorPreferDelaySegments, kBackdoorPreferQuality,
                                         kBackdoorTargetQuality, kBackdoorPosition));

// Settings whose effect shows when a stream plays.
class BackdoorLive : public Backdoor {
  protected:
    BackdoorLive() {
        ServeLive(peer);
        filter->Backdoor(kBackdoorCacheFolder, const_cast<char*>(folder.Path().string().c_str()));
        filter->SetCallback(&callback);
    }
    ~BackdoorLive() override { filter.Reset(); }

    TempDir folder;
    ScriptedPeer peer;
    RecordingCallback callback;
};

TEST_F(BackdoorLive, PreferredHeightDecidesTheChoice) {
    EXPECT_EQ(Set(kBackdoorPreferQuality, DWORD{360}), S_OK);
    filter->Load(peer.UrlW("/live.mpd").c_str());
    EXPECT_EQ(callback.WaitForId(kEventQualityChosen), (HeardEvent{kEventQualityChosen, 1, 0, {}}));
}

TEST_F(BackdoorLive, DelayIsACountOfSegments) {
    filter->Load(peer.UrlW("/live.mpd").c_str());
    callback.WaitForId(kEventManifest);
    EXPECT_EQ(Set(kBackdoorPreferDelaySegments, DWORD{2}), S_OK);
    EXPECT_TRUE(log.Contains(" KVMPDStream::SetPreferDelaySegment target segment is 100"));  // of 100 to 102
}

TEST_F(BackdoorLive, ATargetSwitchesTheRunningStream) {
    filter->Load(peer.UrlW("/live.mpd").c_str());
    EXPECT_EQ(callback.WaitForId(kEventQualityChosen).first, 2);  // 720 is preferred from the start
    EXPECT_EQ(Set(kBackdoorTargetQuality, DWORD{3}), S_OK);
    callback.WaitFor([](const HeardEvent& event) { return event.id == kEventQualityChosen && event.first == 3; });
}

}  // namespace
}  // namespace kvmpd::test
