// A source filter over a byte stream: the filter lock, the request queue, the media type, and the one output pin.

#pragma once

#include "common/Locks.h"
#include "directshow/CBaseFilter.h"
#include "directshow/CMediaType.h"
#include "filter/CAsyncIo.h"
#include "filter/CAsyncOutputPin.h"
#include "platform/com.h"
#include "stream/CAsyncStream.h"

namespace kvmpd {

class CAsyncReader : public CBaseFilter {
  public:
    // stream: what the pin reads. It may be a member of the derived class, not constructed yet; the derived class then
    // calls CloseReading before the stream goes. phr: left alone on success.
    CAsyncReader(IUnknown* outer, CAsyncStream* stream, HRESULT* phr, REFCLSID clsid);
    ~CAsyncReader() override;

    // CBaseFilter
    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int index) override { return index == 0 ? &m_OutputPin : nullptr; }

    // For the pin: the type that it offers, and the news that a downstream pin has connected and will pull.
    HRESULT GetOutputType(CMediaType* type);
    virtual void OnRenderConnected() {}

  protected:
    // Waits until no call of the pin's reads the stream any more, and refuses later ones.
    void CloseReading() { m_OutputPin.Close(); }

    CritSec m_csFilter;
    CAsyncIo m_Io;
    CMediaType m_mt GUARDED_BY(m_csFilter);  // MEDIATYPE_Stream with a null subtype, unless a load names another
    CAsyncOutputPin m_OutputPin;
};

}  // namespace kvmpd
