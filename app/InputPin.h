// The smallest downstream pin that a pull-mode output pin can be connected to. It stands for a splitter: asked to
// accept a connection, it takes the other pin's IAsyncReader, from which the host then reads.

#pragma once

#include "app/HostObject.h"
#include "common/ComPtr.h"

namespace kvmpd::app {

class InputPin final : public HostObject<IPin, IID_IPin> {
  public:
    // Null while not connected.
    const kvmpd::ComPtr<IAsyncReader>& Reader() const { return m_reader; }

    HRESULT STDMETHODCALLTYPE Connect(IPin* receiver, const AM_MEDIA_TYPE* type) override;
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;
    HRESULT STDMETHODCALLTYPE Disconnect() override;
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pin) override;
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* type) override;
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override;
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* id) override;
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* type) override;
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** types) override;
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** pins, ULONG* count) override;
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override { return S_OK; }

  private:
    // Both used by the thread that connects and disconnects.
    kvmpd::ComPtr<IPin> m_connected;
    kvmpd::ComPtr<IAsyncReader> m_reader;
};

}  // namespace kvmpd::app
