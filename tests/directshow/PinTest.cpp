#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "tests/directshow/Fakes.h"

namespace kvmpd::test {
namespace {

class Pin : public testing::Test {
  protected:
    Pin() : source(MakeFilter()), sink(MakeFilter()) {
        out = source->Add(L"Out", PINDIR_OUTPUT);
        in = sink->Add(L"In", PINDIR_INPUT);
        out->types = {MakeType(MEDIATYPE_Stream)};
    }
    ~Pin() override {
        source->Stop();
        sink->Stop();
        out->breakResult = in->breakResult = S_OK;
        out->Disconnect();
        in->Disconnect();
    }
    GUID ConnectedSubtype(FakePin* pin) {
        CMediaType type;
        EXPECT_EQ(pin->ConnectionMediaType(&type), S_OK);
        return type.subtype;
    }

    ComPtr<FakeFilter> source;
    ComPtr<FakeFilter> sink;
    FakePin* out;
    FakePin* in;
};

TEST_F(Pin, ConnectsBothEndsWithTheOfferedType) {
    ASSERT_EQ(out->Connect(in, nullptr), S_OK);
    ComPtr<IPin> peer;
    EXPECT_EQ(out->ConnectedTo(peer.put()), S_OK);
    EXPECT_EQ(peer.get(), static_cast<IPin*>(in));
    EXPECT_EQ(in->ConnectedTo(peer.put()), S_OK);
    EXPECT_EQ(peer.get(), static_cast<IPin*>(out));
    CMediaType type;
    ASSERT_EQ(in->ConnectionMediaType(&type), S_OK);
    EXPECT_EQ(type.majortype, MEDIATYPE_Stream);
    EXPECT_TRUE(out->IsConnected());
}

TEST_F(Pin, UnconnectedPinsSaySo) {
    IPin* peer = in;
    EXPECT_EQ(out->ConnectedTo(&peer), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(peer, nullptr);
    CMediaType type = MakeType(MEDIATYPE_Stream);
    EXPECT_EQ(out->ConnectionMediaType(&type), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(type.majortype, GUID_NULL);
    EXPECT_EQ(out->Disconnect(), S_FALSE);
}

TEST_F(Pin, RefusesWhatCannotBeConnected) {
    FakePin* alsoOut = sink->Add(L"Out2", PINDIR_OUTPUT);
    EXPECT_EQ(out->Connect(nullptr, nullptr), E_POINTER);
    EXPECT_EQ(out->Connect(alsoOut, nullptr), VFW_E_INVALID_DIRECTION);
    EXPECT_EQ(in->ReceiveConnection(nullptr, nullptr), E_POINTER);
    ASSERT_EQ(out->Connect(in, nullptr), S_OK);
    EXPECT_EQ(out->Connect(in, nullptr), VFW_E_ALREADY_CONNECTED);
    const CMediaType type = MakeType(MEDIATYPE_Stream);
    EXPECT_EQ(in->ReceiveConnection(out, &type), VFW_E_ALREADY_CONNECTED);
}

TEST_F(Pin, ConnectionsChangeOnlyWhileStopped) {
    source->Pause();
    EXPECT_EQ(out->Connect(in, nullptr), VFW_E_NOT_STOPPED);
    source->Stop();
    sink->Pause();
    EXPECT_EQ(out->Connect(in, nullptr), VFW_E_NOT_STOPPED);
    EXPECT_FALSE(out->IsConnected());
    sink->Stop();
    ASSERT_EQ(out->Connect(in, nullptr), S_OK);
    source->Pause();
    EXPECT_EQ(out->Disconnect(), VFW_E_NOT_STOPPED);
    EXPECT_TRUE(out->IsConnected());
}

TEST_F(Pin, TheReceiversTypesComeFirst) {
    in->types = {MakeType(MEDIATYPE_Stream, kFakeSubtype)};
    ASSERT_EQ(out->Connect(in, nullptr), S_OK);
    EXPECT_EQ(ConnectedSubtype(out), kFakeSubtype);
}

TEST_F(Pin, AFullTypeIsTheOnlyOneTried) {
    const CMediaType wanted = MakeType(MEDIATYPE_Stream, kFakeSubtype, kFakeFormat);
    out->accept = [](const CMediaType& type) { return type.formattype == GUID_NULL; };
    EXPECT_EQ(out->Connect(in, &wanted), VFW_E_TYPE_NOT_ACCEPTED);
    out->accept = [](const CMediaType&) { return true; };
    ASSERT_EQ(out->Connect(in, &wanted), S_OK);
    EXPECT_EQ(ConnectedSubtype(in), kFakeSubtype);
}

TEST_F(Pin, APartialTypeChoosesAmongTheOffered) {
    out->types = {MakeType(MEDIATYPE_Stream), MakeType(MEDIATYPE_Stream, kFakeSubtype)};
    const CMediaType pattern = MakeType(MEDIATYPE_Stream, kFakeSubtype);
    ASSERT_EQ(out->Connect(in, &pattern), S_OK);
    EXPECT_EQ(ConnectedSubtype(in), kFakeSubtype);
}

TEST_F(Pin, NoCommonTypeIsSaidSo) {
    in->accept = [](const CMediaType&) { return false; };
    EXPECT_EQ(out->Connect(in, nullptr), VFW_E_NO_ACCEPTABLE_TYPES);
    EXPECT_FALSE(in->IsConnected());
    EXPECT_FALSE(out->IsConnected());
}

TEST_F(Pin, ReceiverRefusesATypeThatItCannotUse) {
    in->accept = [](const CMediaType&) { return false; };
    const CMediaType type = MakeType(MEDIATYPE_Stream);
    EXPECT_EQ(in->ReceiveConnection(out, &type), VFW_E_TYPE_NOT_ACCEPTED);
    EXPECT_EQ(in->notes, std::vector<std::string>{"break"});
}

TEST_F(Pin, AFailureToCompleteUndoesBothEndsAndIsReported) {
    out->complete = [](IPin*) { return VFW_E_NO_TRANSPORT; };
    EXPECT_EQ(out->Connect(in, nullptr), VFW_E_NO_TRANSPORT);
    EXPECT_FALSE(out->IsConnected());
    EXPECT_FALSE(in->IsConnected());
    EXPECT_EQ(out->notes, std::vector<std::string>{"break"});
    out->complete = [](IPin*) { return S_OK; };
    EXPECT_EQ(out->Connect(in, nullptr), S_OK);
}

TEST_F(Pin, AReceiverThatCannotCompleteIsUndone) {
    in->complete = [](IPin*) { return VFW_E_NO_ALLOCATOR; };
    EXPECT_EQ(out->Connect(in, nullptr), VFW_E_NO_ALLOCATOR);
    EXPECT_FALSE(in->IsConnected());
}

TEST_F(Pin, TheFirstTellingFailureIsReported) {
    out->types = {MakeType(MEDIATYPE_Stream), MakeType(MEDIATYPE_Stream, kFakeSubtype)};
    out->check = [calls = 0](IPin*) mutable { return ++calls == 1 ? E_FAIL : VFW_E_NO_TRANSPORT; };
    EXPECT_EQ(out->Connect(in, nullptr), VFW_E_NO_TRANSPORT);
}

TEST_F(Pin, DisconnectsAndConnectsAgain) {
    ASSERT_EQ(out->Connect(in, nullptr), S_OK);
    EXPECT_EQ(out->Disconnect(), S_OK);
    EXPECT_EQ(in->Disconnect(), S_OK);
    EXPECT_FALSE(out->IsConnected());
    EXPECT_EQ(out->Connect(in, nullptr), S_OK);
}

TEST_F(Pin, AFailureToBreakKeepsTheConnection) {
    ASSERT_EQ(out->Connect(in, nullptr), S_OK);
    out->breakResult = E_FAIL;
    EXPECT_EQ(out->Disconnect(), E_FAIL);
    EXPECT_TRUE(out->IsConnected());
}

TEST_F(Pin, TellsItsNameIdDirectionAndFilter) {
    PIN_INFO info;
    ASSERT_EQ(out->QueryPinInfo(&info), S_OK);
    EXPECT_EQ(info.pFilter, static_cast<IBaseFilter*>(source.get()));
    info.pFilter->Release();
    EXPECT_EQ(info.dir, PINDIR_OUTPUT);
    EXPECT_EQ(std::wstring(info.achName), L"Out");
    LPWSTR id = nullptr;
    ASSERT_EQ(out->QueryId(&id), S_OK);
    EXPECT_EQ(std::wstring(id), L"Out");
    CoTaskMemFree(id);
    PIN_DIRECTION direction;
    EXPECT_EQ(in->QueryDirection(&direction), S_OK);
    EXPECT_EQ(direction, PINDIR_INPUT);
}

TEST_F(Pin, NullOutputsAreRefused) {
    EXPECT_EQ(out->QueryPinInfo(nullptr), E_POINTER);
    EXPECT_EQ(out->QueryId(nullptr), E_POINTER);
    EXPECT_EQ(out->QueryDirection(nullptr), E_POINTER);
    EXPECT_EQ(out->QueryAccept(nullptr), E_POINTER);
    EXPECT_EQ(out->ConnectedTo(nullptr), E_POINTER);
    EXPECT_EQ(out->ConnectionMediaType(nullptr), E_POINTER);
    EXPECT_EQ(out->EnumMediaTypes(nullptr), E_POINTER);
}

TEST_F(Pin, SaysWhetherItWouldAcceptAType) {
    out->accept = [](const CMediaType& type) { return type.majortype == MEDIATYPE_Stream; };
    const CMediaType good = MakeType(MEDIATYPE_Stream);
    const CMediaType bad = MakeType(kFakeFormat);
    EXPECT_EQ(out->QueryAccept(&good), S_OK);
    EXPECT_EQ(out->QueryAccept(&bad), S_FALSE);
}

TEST_F(Pin, StreamCallsThatMeanNothingToItSucceed) {
    EXPECT_EQ(out->EndOfStream(), S_OK);
    EXPECT_EQ(out->BeginFlush(), S_OK);
    EXPECT_EQ(out->EndFlush(), S_OK);
    EXPECT_EQ(out->NewSegment(0, 1, 1.0), S_OK);
    EXPECT_EQ(out->QueryInternalConnections(nullptr, nullptr), E_NOTIMPL);
}

TEST_F(Pin, ReferencesCountOnTheFilter) {
    EXPECT_EQ(out->AddRef(), 2u);
    EXPECT_EQ(source->AddRef(), 3u);
    source->Release();
    EXPECT_EQ(out->Release(), 1u);
    ComPtr<IUnknown> pinIdentity;
    ASSERT_EQ(out->QueryInterface(IID_IUnknown, pinIdentity.putVoid()), S_OK);
    EXPECT_NE(pinIdentity.get(), source->NonDelegatingUnknown());  // a pin is an object of its own
    void* none = this;
    EXPECT_EQ(out->QueryInterface(IID_IBaseFilter, &none), E_NOINTERFACE);
}

TEST_F(Pin, EnumeratesItsMediaTypes) {
    out->types = {MakeType(MEDIATYPE_Stream), MakeType(MEDIATYPE_Stream, kFakeSubtype)};
    ComPtr<IEnumMediaTypes> types;
    ASSERT_EQ(out->EnumMediaTypes(types.put()), S_OK);
    AM_MEDIA_TYPE* fetched[3] = {};
    ULONG count = 9;
    EXPECT_EQ(types->Next(3, fetched, &count), S_FALSE);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(fetched[1]->subtype, kFakeSubtype);
    DeleteMediaType(fetched[0]);
    DeleteMediaType(fetched[1]);

    types->Reset();
    EXPECT_EQ(types->Skip(1), S_OK);
    ComPtr<IEnumMediaTypes> clone;
    ASSERT_EQ(types->Clone(clone.put()), S_OK);
    EXPECT_EQ(types->Skip(2), S_FALSE);
    ASSERT_EQ(clone->Next(1, fetched, nullptr), S_OK);
    EXPECT_EQ(fetched[0]->subtype, kFakeSubtype);
    DeleteMediaType(fetched[0]);
    EXPECT_EQ(clone->Next(1, fetched, nullptr), S_FALSE);
    EXPECT_EQ(clone->Next(2, fetched, nullptr), E_INVALIDARG);
    EXPECT_EQ(clone->Next(1, nullptr, nullptr), E_POINTER);
    EXPECT_EQ(clone->Clone(nullptr), E_POINTER);
}

TEST_F(Pin, OffersNothingByItself) {
    CMediaType type;
    EXPECT_EQ(in->CBasePin::GetMediaType(-1, &type), E_INVALIDARG);
    EXPECT_EQ(in->CBasePin::GetMediaType(0, &type), VFW_S_NO_MORE_ITEMS);
}

}  // namespace
}  // namespace kvmpd::test
