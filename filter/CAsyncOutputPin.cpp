#include "filter/CAsyncOutputPin.h"

#include <limits>

#include "common/ComPtr.h"
#include "common/Log.h"
#include "directshow/CMemAllocator.h"
#include "filter/CAsyncIo.h"
#include "filter/CAsyncReader.h"
#include "platform/win32.h"

namespace kvmpd {

namespace {

constexpr LONGLONG kUnits = 10'000'000;  // sample time per byte
constexpr DWORD kRetryPause = 100;       // milliseconds
constexpr int kMaxRetries = 100;

constexpr LONGLONG RoundUp(LONGLONG value, LONG alignment) {
    const LONGLONG past = value % alignment;
    if (past == 0 || value > std::numeric_limits<LONGLONG>::max() - (alignment - past)) {
        return value;
    }
    return value + alignment - past;
}

}  // namespace

// Counts a call of IAsyncReader, so that Close can wait for those that are inside.
class CAsyncOutputPin::CallScope {
  public:
    explicit CallScope(CAsyncOutputPin& pin) : m_pin(pin) {
        MutexLock lock(m_pin.m_callsLock);
        m_entered = !m_pin.m_refused;
        m_pin.m_calls += m_entered ? 1 : 0;
    }
    ~CallScope() {
        MutexLock lock(m_pin.m_callsLock);
        if (m_entered && --m_pin.m_calls == 0) {
            m_pin.m_callsLeft.NotifyAll();
        }
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    explicit operator bool() const { return m_entered; }

  private:
    CAsyncOutputPin& m_pin;
    bool m_entered = false;
};

CAsyncOutputPin::CAsyncOutputPin(CAsyncReader* reader, CAsyncIo* io, CritSec* lock)
    : CBasePin(reader, lock, L"Output", PINDIR_OUTPUT), m_pReader(reader), m_pIo(io) {}

CAsyncOutputPin::~CAsyncOutputPin() {
    Log(6, L" CAsyncOutputPin::~CAsyncOutputPin ");
    Close();
}

void CAsyncOutputPin::Close() {
    m_bClosing = TRUE;
    m_pIo->Close();
    MutexLock lock(m_callsLock);
    m_refused = true;
    while (m_calls > 0) {
        m_callsLeft.Wait(m_callsLock);
    }
}

HRESULT CAsyncOutputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IAsyncReader) {
        m_bQueriedForAsyncReader = TRUE;
        return GetInterface(static_cast<IAsyncReader*>(this), ppv);
    }
    return CBasePin::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CAsyncOutputPin::GetMediaType(int position, CMediaType* type) {
    Log(6, L" CAsyncOutputPin::GetMediaType : %d", position);
    if (position < 0) {
        return E_INVALIDARG;
    }
    if (position > 0) {
        return VFW_S_NO_MORE_ITEMS;
    }
    return m_pReader->GetOutputType(type);
}

HRESULT CAsyncOutputPin::CheckMediaType(const CMediaType& type) {
    CMediaType own;
    if (const HRESULT hr = m_pReader->GetOutputType(&own); FAILED(hr)) {
        return hr;
    }
    // A stream whose subtype is not known goes with any.
    const bool subtypeAgrees = own.subtype == GUID_NULL || own.subtype == type.subtype;
    return own.majortype == type.majortype && subtypeAgrees ? S_OK : S_FALSE;
}

HRESULT CAsyncOutputPin::CheckConnect(IPin* pin) {
    m_bQueriedForAsyncReader = FALSE;  // asking counts for one connection
    return CBasePin::CheckConnect(pin);
}

HRESULT CAsyncOutputPin::CompleteConnect(IPin* receivePin) {
    if (!m_bQueriedForAsyncReader) {
        return VFW_E_NO_TRANSPORT;
    }
    if (const HRESULT hr = CBasePin::CompleteConnect(receivePin); FAILED(hr)) {
        return hr;
    }
    m_pReader->OnRenderConnected();
    return S_OK;
}

HRESULT CAsyncOutputPin::BreakConnect() {
    m_bQueriedForAsyncReader = FALSE;
    return CBasePin::BreakConnect();
}

void CAsyncOutputPin::WaitBeforeRetry(DWORD milliseconds) {
    Sleep(milliseconds);
}

HRESULT CAsyncOutputPin::RequestAllocator(IMemAllocator* pPreferred, ALLOCATOR_PROPERTIES* pProps,
                                          IMemAllocator** ppActual) {
    const CallScope call(*this);
    if (!call) {
        return E_FAIL;
    }
    if (pProps == nullptr || ppActual == nullptr) {
        return E_POINTER;
    }
    *ppActual = nullptr;
    ALLOCATOR_PROPERTIES wanted = *pProps;
    if (const LONG alignment = m_pIo->Alignment(); wanted.cbAlign < alignment) {
        wanted.cbAlign = alignment;
    }
    ALLOCATOR_PROPERTIES actual;
    if (pPreferred != nullptr && SUCCEEDED(pPreferred->SetProperties(&wanted, &actual)) &&
        actual.cbAlign % m_pIo->Alignment() == 0) {
        *pProps = actual;
        pPreferred->AddRef();
        *ppActual = pPreferred;
        return S_OK;
    }
    ComPtr<IMemAllocator> own;
    own.Attach(CMemAllocator::Create());
    if (!own) {
        return E_OUTOFMEMORY;
    }
    if (const HRESULT hr = own->SetProperties(&wanted, &actual); FAILED(hr)) {
        return hr;
    }
    *pProps = actual;
    *ppActual = own.Detach();
    return S_OK;
}

HRESULT CAsyncOutputPin::PrepareRead(IMediaSample* sample, REFERENCE_TIME start, REFERENCE_TIME stop,
                                     SampleRead* read) {
    // Positions before 0 are the cached bytes before a seek's target. Only what 64 bits cannot hold is refused.
    if (stop < start || (start < 0 && stop > std::numeric_limits<REFERENCE_TIME>::max() + start)) {
        return E_INVALIDARG;
    }
    read->position = start / kUnits;
    LONGLONG length = (stop - start) / kUnits;

    LONGLONG total = 0;
    LONGLONG available = 0;
    if (const HRESULT hr = m_pIo->Length(&total, &available); FAILED(hr)) {
        return hr;
    }
    bool cut = false;
    if (read->position + length > total) {
        total = RoundUp(total, m_pIo->Alignment());
        if (read->position + length > total) {
            if (read->position > total) {
                return E_INVALIDARG;
            }
            length = total - read->position;
            cut = true;
        }
    }
    if (length > sample->GetSize()) {
        return VFW_E_BUFFER_OVERFLOW;  // the times ask for more than the sample has room for
    }
    read->length = static_cast<LONG>(length);
    if (const HRESULT hr = sample->GetPointer(&read->buffer); FAILED(hr)) {
        return hr;
    }
    if (cut) {  // only now: a sample that is refused stays as it was
        REFERENCE_TIME end = total * kUnits;
        sample->SetTime(&start, &end);
    }
    return S_OK;
}

HRESULT CAsyncOutputPin::Request(IMediaSample* pSample, DWORD_PTR dwUser) {
    const CallScope call(*this);
    if (!call) {
        return E_FAIL;
    }
    if (pSample == nullptr) {
        return E_POINTER;
    }
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
    if (const HRESULT hr = pSample->GetTime(&start, &stop); FAILED(hr)) {
        return hr;
    }
    SampleRead read{};
    if (const HRESULT hr = PrepareRead(pSample, start, stop, &read); FAILED(hr)) {
        return hr;
    }
    return m_pIo->Request(read.position, read.length, TRUE, read.buffer, pSample, dwUser);
}

HRESULT CAsyncOutputPin::WaitForNext(DWORD dwTimeout, IMediaSample** ppSample, DWORD_PTR* pdwUser) {
    const CallScope call(*this);
    if (!call) {
        return E_FAIL;
    }
    if (ppSample == nullptr || pdwUser == nullptr) {
        return E_POINTER;
    }
    LONG actual = 0;
    ComPtr<IMediaSample> sample;  // the queue's reference: the requester may have released its own
    const HRESULT hr = m_pIo->WaitForNext(dwTimeout, &sample, pdwUser, &actual);
    if (SUCCEEDED(hr)) {
        sample->SetActualDataLength(actual);
    }
    *ppSample = sample.get();
    return hr;
}

HRESULT CAsyncOutputPin::SyncReadAligned(IMediaSample* pSample) {
    const CallScope call(*this);
    if (!call) {
        return E_FAIL;
    }
    Log(6, L" CAsyncOutputPin::SyncReadAligned ");
    CritSecLock lock(m_csRead);
    if (pSample == nullptr) {
        return E_POINTER;
    }
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
    HRESULT hr = pSample->GetTime(&start, &stop);
    if (FAILED(hr)) {
        Log(6, L" CAsyncOutputPin::SyncReadAligned get Time Failed");
        return hr;
    }
    SampleRead read{};
    hr = PrepareRead(pSample, start, stop, &read);
    if (FAILED(hr)) {
        return hr;
    }
    LONG actual = 0;
    hr = m_pIo->SyncReadAligned(read.position, read.length, read.buffer, &actual, pSample);
    if (SUCCEEDED(hr)) {
        Log(6, L" CAsyncOutputPin::SyncReadAligned SetDataLength=%d", actual);
        pSample->SetActualDataLength(actual);
    }
    return hr;
}

HRESULT CAsyncOutputPin::SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) {
    const CallScope call(*this);
    if (!call) {
        return E_FAIL;
    }
    Log(6, L" CAsyncOutputPin::SyncRead %I64d, %ld", llPosition, lLength);
    CritSecLock lock(m_csRead);
    // Asked once and not again while waiting: the stream's own reads fail once it is stopped.
    if (m_pIo->IsStopped()) {
        Log(6, L" CAsyncOutputPin::SyncRead return E_FAIL due to stop");
        return E_FAIL;
    }
    if (lLength == 0) {
        Log(6, L" CAsyncOutputPin::SyncRead lLength == 0, return S_OK");
        return S_OK;
    }
    if (lLength < 0) {
        return E_INVALIDARG;
    }
    if (pBuffer == nullptr) {
        return E_POINTER;
    }
    HRESULT hr = m_pIo->SyncRead(llPosition, lLength, pBuffer);
    for (int retry = 0; hr == S_FALSE && retry < kMaxRetries && !m_bClosing; ++retry) {
        Log(6, L" CAsyncOutputPin::SyncRead wait %d millisecond to retry #%d", kRetryPause, retry);
        WaitBeforeRetry(kRetryPause);
        hr = m_pIo->SyncRead(llPosition, lLength, pBuffer);
    }
    return hr;
}

HRESULT CAsyncOutputPin::Length(LONGLONG* pTotal, LONGLONG* pAvailable) {
    const CallScope call(*this);
    if (!call) {
        return E_FAIL;
    }
    if (pTotal == nullptr || pAvailable == nullptr) {
        return E_POINTER;
    }
    return m_pIo->Length(pTotal, pAvailable);
}

HRESULT CAsyncOutputPin::BeginFlush() {
    const CallScope call(*this);
    if (!call) {
        return E_FAIL;
    }
    return m_pIo->BeginFlush();
}

HRESULT CAsyncOutputPin::EndFlush() {
    const CallScope call(*this);
    if (!call) {
        return E_FAIL;
    }
    return m_pIo->EndFlush();
}

}  // namespace kvmpd
