// The host's own pin, as an output pin meets it.

#include <gtest/gtest.h>

#include "app/InputPin.h"

namespace kvmpd::app {
namespace {

// An output pin that answers IAsyncReader only when it is told to.
class FakeOutputPin final : public IPin {
  public:
    IAsyncReader* reader = nullptr;
    int references = 1;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
        *object = nullptr;
        if (riid == IID_IAsyncReader && reader != nullptr) {
            reader->AddRef();
            *object = reader;
            return S_OK;
        }
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }
    HRESULT STDMETHODCALLTYPE Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Disconnect() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin**, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override { return E_NOTIMPL; }
};

class CountingReader final : public HostObject<IAsyncReader, IID_IAsyncReader> {
  public:
    HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator*, ALLOCATOR_PROPERTIES*, IMemAllocator**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Request(IMediaSample*, DWORD_PTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WaitForNext(DWORD, IMediaSample**, DWORD_PTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG, LONG, BYTE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Length(LONGLONG*, LONGLONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return E_NOTIMPL; }
};

class HostPin : public testing::Test {
  protected:
    HostPin() {
        m_pin.Attach(new InputPin);
        m_reader.Attach(new CountingReader);
        m_stream.majortype = MEDIATYPE_Stream;
    }

    FakeOutputPin m_output;
    kvmpd::ComPtr<InputPin> m_pin;
    kvmpd::ComPtr<CountingReader> m_reader;
    AM_MEDIA_TYPE m_stream{};
};

TEST_F(HostPin, TakesTheReaderWhenItIsConnected) {
    m_output.reader = m_reader.get();
    EXPECT_EQ(m_pin->ReceiveConnection(&m_output, &m_stream), S_OK);
    EXPECT_EQ(m_pin->Reader().get(), m_reader.get());
    IPin* peer = nullptr;
    EXPECT_EQ(m_pin->ConnectedTo(&peer), S_OK);
    EXPECT_EQ(peer, &m_output);
    peer->Release();
    EXPECT_EQ(m_pin->ReceiveConnection(&m_output, &m_stream), VFW_E_ALREADY_CONNECTED);
    AM_MEDIA_TYPE type{};
    EXPECT_EQ(m_pin->ConnectionMediaType(&type), S_OK);
    EXPECT_TRUE(type.majortype == MEDIATYPE_Stream);
}

TEST_F(HostPin, ReleasesEverythingWhenItIsDisconnected) {
    m_output.reader = m_reader.get();
    ASSERT_EQ(m_pin->ReceiveConnection(&m_output, &m_stream), S_OK);
    EXPECT_EQ(m_pin->Disconnect(), S_OK);
    EXPECT_EQ(m_pin->Disconnect(), S_FALSE);
    EXPECT_EQ(m_output.references, 1);
    EXPECT_FALSE(m_pin->Reader());
    IPin* peer = &m_output;
    EXPECT_EQ(m_pin->ConnectedTo(&peer), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(peer, nullptr);
}

TEST_F(HostPin, RefusesAPinWithoutAReader) {
    EXPECT_EQ(m_pin->ReceiveConnection(&m_output, &m_stream), VFW_E_NO_TRANSPORT);
    EXPECT_EQ(m_output.references, 1);
}

TEST_F(HostPin, TakesStreamsOnly) {
    AM_MEDIA_TYPE other{};
    EXPECT_EQ(m_pin->QueryAccept(&m_stream), S_OK);
    EXPECT_EQ(m_pin->QueryAccept(&other), S_FALSE);
    m_output.reader = m_reader.get();
    EXPECT_EQ(m_pin->ReceiveConnection(&m_output, &other), VFW_E_TYPE_NOT_ACCEPTED);
}

TEST_F(HostPin, IsAnInputCalledInput) {
    PIN_DIRECTION direction = PINDIR_OUTPUT;
    EXPECT_EQ(m_pin->QueryDirection(&direction), S_OK);
    EXPECT_EQ(direction, PINDIR_INPUT);
    PIN_INFO info{};
    EXPECT_EQ(m_pin->QueryPinInfo(&info), S_OK);
    EXPECT_STREQ(info.achName, L"Input");
    LPWSTR id = nullptr;
    ASSERT_EQ(m_pin->QueryId(&id), S_OK);
    EXPECT_STREQ(id, L"Input");
    CoTaskMemFree(id);
    EXPECT_EQ(m_pin->Connect(&m_output, &m_stream), VFW_E_INVALID_DIRECTION);
}

TEST_F(HostPin, HasOneIdentityAndNullsWhatItDoesNotHave) {
    void* unknown = nullptr;
    EXPECT_EQ(m_pin->QueryInterface(IID_IUnknown, &unknown), S_OK);
    EXPECT_EQ(unknown, static_cast<IUnknown*>(m_pin.get()));
    m_pin->Release();
    void* none = &none;
    EXPECT_EQ(m_pin->QueryInterface(IID_IAsyncReader, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(m_pin->QueryInterface(IID_IPin, nullptr), E_POINTER);
}

}  // namespace
}  // namespace kvmpd::app
