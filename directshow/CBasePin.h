// A pin: how it connects, what it is connected to, its place in the filter.
//
// A pin is part of its filter: references to the pin count on the filter, and the pin shares the filter's lock. A
// derived class says which media types it offers (GetMediaType) and accepts (CheckMediaType), and may refuse or
// complete a connection (CheckConnect, CompleteConnect). The same class serves output pins, which connect, and input
// pins, which receive a connection.

#pragma once

#include <string>

#include "common/ComPtr.h"
#include "common/Locks.h"
#include "directshow/CMediaType.h"
#include "directshow/CUnknown.h"
#include "platform/com.h"

namespace kvmpd {

class CBaseFilter;

class CBasePin : public CUnknown, public IPin {
  public:
    // filter, lock: outlive the pin. name: also the pin's id.
    CBasePin(CBaseFilter* filter, CritSec* lock, const wchar_t* name, PIN_DIRECTION direction);
    ~CBasePin() override;

    KV_DECLARE_IUNKNOWN
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    ULONG NonDelegatingAddRef() override;   // counted on the filter
    ULONG NonDelegatingRelease() override;  // counted on the filter

    const std::wstring& Name() const { return m_name; }
    bool IsConnected();

    // The type that the pin offers at `position`, counted from 0 in order of preference. E_INVALIDARG for a negative
    // position, VFW_S_NO_MORE_ITEMS past the last.
    virtual HRESULT GetMediaType(int position, CMediaType* type);
    // S_OK when the pin can use the type.
    virtual HRESULT CheckMediaType(const CMediaType& type) = 0;

    // Called by the filter on a connected pin as its state changes, under the filter lock.
    virtual HRESULT Active() { return S_OK; }
    virtual HRESULT Inactive() { return S_OK; }
    virtual HRESULT Run(REFERENCE_TIME /*tStart*/) { return S_OK; }

    // IPin
    HRESULT STDMETHODCALLTYPE Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE Disconnect() override;
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pPin) override;
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) override;
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) override;
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) override;
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) override;
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** apPin, ULONG* nPin) override;
    HRESULT STDMETHODCALLTYPE EndOfStream() override;
    HRESULT STDMETHODCALLTYPE BeginFlush() override;
    HRESULT STDMETHODCALLTYPE EndFlush() override;
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;

  protected:
    // The steps of making and ending a connection, under the filter lock. A failure of the first two ends the attempt;
    // BreakConnect then undoes what CheckConnect did.
    virtual HRESULT CheckConnect(IPin* pin);
    virtual HRESULT CompleteConnect(IPin* receivePin);
    virtual HRESULT BreakConnect();

  private:
    // Tries one fully specified type; on success both pins are connected with it.
    HRESULT AttemptConnection(IPin* receivePin, const CMediaType& type) REQUIRES(*m_pLock);
    // Tries every type that `types` lists and that agrees with `pattern`.
    HRESULT TryMediaTypes(IPin* receivePin, const CMediaType& pattern, IEnumMediaTypes* types) REQUIRES(*m_pLock);
    HRESULT AgreeMediaType(IPin* receivePin, const CMediaType& pattern) REQUIRES(*m_pLock);

    CBaseFilter* const m_pFilter;
    CritSec* const m_pLock;
    const std::wstring m_name;
    const PIN_DIRECTION m_direction;
    ComPtr<IPin> m_connected GUARDED_BY(*m_pLock);
    CMediaType m_connectionType GUARDED_BY(*m_pLock);
};

}  // namespace kvmpd
