#include <string>

#include <gtest/gtest.h>

#include "tests/directshow/Slots.h"
#include "tests/filter/ReaderFixture.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

// A splitter's input pin: it takes streams, and asks the pin that connects to it for its pull interface.
class OutputPinConnect : public ReaderFixture {
  protected:
    OutputPinConnect() : splitter(MakeFilter()), input(splitter->Add(L"Input", PINDIR_INPUT)) {
        input->accept = [](const CMediaType& type) { return type.majortype == MEDIATYPE_Stream; };
        input->complete = [this](IPin* connector) {
            return connector->QueryInterface(IID_IAsyncReader, pulled.putVoid());
        };
        pull.Reset();
    }
    ~OutputPinConnect() override {
        output->Disconnect();
        input->Disconnect();
    }

    ComPtr<FakeFilter> splitter;
    FakePin* input;
    ComPtr<IAsyncReader> pulled;
};

TEST_F(OutputPinConnect, ASplitterConnectsAsksAndPulls) {
    ASSERT_EQ(output->Connect(input, nullptr), S_OK);
    EXPECT_EQ(reader->renderConnected, 1);
    CMediaType type;
    ASSERT_EQ(input->ConnectionMediaType(&type), S_OK);
    EXPECT_EQ(type.majortype, MEDIATYPE_Stream);
    EXPECT_EQ(type.subtype, GUID_NULL);
    BYTE byte = 0;
    ASSERT_TRUE(pulled);
    EXPECT_EQ(pulled->SyncRead(3, 1, &byte), S_OK);
    EXPECT_EQ(byte, FakeStream::VideoByte(3));
}

TEST_F(OutputPinConnect, APinThatNeverAskedHasNoTransport) {
    input->complete = [](IPin*) { return S_OK; };
    EXPECT_EQ(output->Connect(input, nullptr), VFW_E_NO_TRANSPORT);
    EXPECT_EQ(reader->renderConnected, 0);
    EXPECT_FALSE(input->IsConnected());
}

TEST_F(OutputPinConnect, AskingCountsForOneConnection) {
    ASSERT_EQ(output->Connect(input, nullptr), S_OK);
    output->Disconnect();
    input->Disconnect();
    input->complete = [](IPin*) { return S_OK; };
    EXPECT_EQ(output->Connect(input, nullptr), VFW_E_NO_TRANSPORT);
}

TEST_F(OutputPinConnect, AskingBeforeTheConnectionDoesNotCount) {
    ComPtr<IAsyncReader> early;
    ASSERT_EQ(output->QueryInterface(IID_IAsyncReader, early.putVoid()), S_OK);
    input->complete = [](IPin*) { return S_OK; };
    EXPECT_EQ(output->Connect(input, nullptr), VFW_E_NO_TRANSPORT);
}

TEST_F(OutputPinConnect, InterfacesShareThePinsIdentity) {
    ComPtr<IAsyncReader> asked;
    ASSERT_EQ(output->QueryInterface(IID_IAsyncReader, asked.putVoid()), S_OK);
    ComPtr<IPin> back;
    ASSERT_EQ(asked->QueryInterface(IID_IPin, back.putVoid()), S_OK);
    EXPECT_EQ(back.get(), output.get());
    EXPECT_EQ(output->QueryInterface(IID_IAsyncReader, nullptr), E_POINTER);
    void* none = this;
    EXPECT_EQ(output->QueryInterface(IID_IMemAllocator, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
}

TEST_F(OutputPinConnect, IsTheFiltersOnlyPinAndNamedOutput) {
    EXPECT_EQ(reader->GetPinCount(), 1);
    EXPECT_EQ(reader->GetPin(1), nullptr);
    EXPECT_EQ(reader->GetPin(-1), nullptr);
    PIN_INFO info;
    ASSERT_EQ(output->QueryPinInfo(&info), S_OK);
    info.pFilter->Release();
    EXPECT_EQ(info.dir, PINDIR_OUTPUT);
    EXPECT_EQ(std::wstring(info.achName), L"Output");
}

TEST_F(OutputPinConnect, OffersExactlyOneType) {
    LogCapture log(6);
    CMediaType type;
    EXPECT_EQ(pin.GetMediaType(0, &type), S_OK);
    EXPECT_EQ(type.majortype, MEDIATYPE_Stream);
    EXPECT_EQ(type.subtype, GUID_NULL);
    EXPECT_EQ(pin.GetMediaType(1, &type), VFW_S_NO_MORE_ITEMS);
    EXPECT_EQ(pin.GetMediaType(-1, &type), E_INVALIDARG);
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::GetMediaType : 0"));
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::GetMediaType : 1"));
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::GetMediaType : -1"));
}

TEST_F(OutputPinConnect, ANamedSubtypeIsOfferedAndDemanded) {
    const CMediaType any = MakeType(MEDIATYPE_Stream, kFakeFormat);
    EXPECT_EQ(output->QueryAccept(&any), S_OK);  // a null subtype goes with any
    reader->SetType(MakeType(MEDIATYPE_Stream, kFakeSubtype));
    CMediaType type;
    EXPECT_EQ(pin.GetMediaType(0, &type), S_OK);
    EXPECT_EQ(type.subtype, kFakeSubtype);
    EXPECT_EQ(output->QueryAccept(&any), S_FALSE);
    const CMediaType other = MakeType(kFakeFormat, kFakeSubtype);
    EXPECT_EQ(output->QueryAccept(&other), S_FALSE);
    EXPECT_EQ(output->QueryAccept(&type), S_OK);
}

TEST_F(OutputPinConnect, TheFilterAnswersItsClassAndNeedsAStream) {
    CLSID clsid;
    EXPECT_EQ(reader->GetClassID(&clsid), S_OK);
    EXPECT_EQ(clsid, kFakeFilterClass);
    HRESULT hr = S_OK;
    ComPtr<TestReader> streamless(new TestReader(nullptr, &hr));
    EXPECT_EQ(hr, E_POINTER);
    EXPECT_EQ(streamless->GetOutputType(nullptr), E_POINTER);
}

TEST_F(OutputPinConnect, ThePinSaysGoodbye) {
    LogCapture log(6);
    { QuickPin mortal(*reader); }
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::~CAsyncOutputPin "));
}

TEST_F(OutputPinConnect, ThePullInterfaceIsReachedThroughItsTable) {
    ComPtr<IAsyncReader> asked;
    ASSERT_EQ(output->QueryInterface(IID_IAsyncReader, asked.putVoid()), S_OK);
    BYTE byte = 0;
    EXPECT_EQ(CallSlot<HRESULT>(asked.get(), 7, LONGLONG{5}, LONG{1}, &byte), S_OK);
    EXPECT_EQ(byte, FakeStream::VideoByte(5));
    LONGLONG total = 0;
    LONGLONG available = 0;
    EXPECT_EQ(CallSlot<HRESULT>(asked.get(), 8, &total, &available), S_OK);
    EXPECT_EQ(total, 0x7FFFFFFFFFFFFFFF);
    EXPECT_EQ(available, 0x7FFFFFFFFFFFFFFF);
    EXPECT_EQ(CallSlot<HRESULT>(asked.get(), 9), S_OK);
    DWORD_PTR user = 0;
    IMediaSample* sample = nullptr;
    EXPECT_EQ(CallSlot<HRESULT>(asked.get(), 5, DWORD{0}, &sample, &user), VFW_E_WRONG_STATE);
    EXPECT_EQ(CallSlot<HRESULT>(asked.get(), 10), S_OK);
    EXPECT_EQ(CallSlot<HRESULT>(asked.get(), 5, DWORD{0}, &sample, &user), VFW_E_TIMEOUT);
}

}  // namespace
}  // namespace kvmpd::test
