// The filter's output pin: the pull interface through which a downstream reader fetches bytes by position.
//
// A reader gets IAsyncReader by asking the pin for it, and a connection in which the downstream pin never asked is
// refused: there would be no way to transport data. SyncRead waits for bytes that a live stream does not have yet;
// nothing else here waits for data. Sample times are byte positions times 10,000,000, so queued and aligned reads reach
// about 922 GB; the audio bytes of a split address space are reached with SyncRead only.
//
// Threads: any. SyncRead and SyncReadAligned are serialised by the read lock, which is held while SyncRead waits.

#pragma once

#include <atomic>

#include "common/Locks.h"
#include "directshow/CBasePin.h"
#include "platform/com.h"

namespace kvmpd {

class CAsyncIo;
class CAsyncReader;

class CAsyncOutputPin : public IAsyncReader, public CBasePin {
  public:
    // reader: the filter that the pin belongs to. io: its request queue. lock: the filter's lock.
    CAsyncOutputPin(CAsyncReader* reader, CAsyncIo* io, CritSec* lock);
    ~CAsyncOutputPin() override;

    KV_DECLARE_IUNKNOWN
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // Ends the waits of the calls that are inside this pin's IAsyncReader, returns when all have left, and refuses
    // later ones with E_FAIL; closes the request queue. A waiting SyncRead leaves within one retry. For the owning
    // filter, before the byte stream goes.
    void Close();

    // CBasePin. The pin offers one type, the filter's.
    HRESULT GetMediaType(int position, CMediaType* type) override;
    HRESULT CheckMediaType(const CMediaType& type) override;

    // IAsyncReader
    HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator* pPreferred, ALLOCATOR_PROPERTIES* pProps,
                                               IMemAllocator** ppActual) override;
    HRESULT STDMETHODCALLTYPE Request(IMediaSample* pSample, DWORD_PTR dwUser) override;
    HRESULT STDMETHODCALLTYPE WaitForNext(DWORD dwTimeout, IMediaSample** ppSample, DWORD_PTR* pdwUser) override;
    HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample* pSample) override;
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override;
    HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override;
    // Also IPin's, which nobody calls on an output pin.
    HRESULT STDMETHODCALLTYPE BeginFlush() override;
    HRESULT STDMETHODCALLTYPE EndFlush() override;

  protected:
    HRESULT CheckConnect(IPin* pin) override;
    HRESULT CompleteConnect(IPin* receivePin) override;
    HRESULT BreakConnect() override;

    // The pause between two retries of SyncRead; a test makes it shorter.
    virtual void WaitBeforeRetry(DWORD milliseconds);

  private:
    class CallScope;
    struct SampleRead {
        LONGLONG position;
        LONG length;
        BYTE* buffer;
    };

    // What a sample with the times start to stop asks to be read, cut at the stream's end.
    HRESULT PrepareRead(IMediaSample* sample, REFERENCE_TIME start, REFERENCE_TIME stop, SampleRead* read);

    CAsyncReader* const m_pReader;
    CAsyncIo* const m_pIo;
    CritSec m_csRead;
    std::atomic<BOOL> m_bQueriedForAsyncReader{FALSE};  // the downstream pin has asked for IAsyncReader
    std::atomic<BOOL> m_bClosing{FALSE};                // ends SyncRead's waiting

    Mutex m_callsLock;
    CondVar m_callsLeft;
    int m_calls GUARDED_BY(m_callsLock) = 0;         // calls inside IAsyncReader
    bool m_refused GUARDED_BY(m_callsLock) = false;  // no further ones
};

}  // namespace kvmpd
