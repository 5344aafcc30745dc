#include "directshow/CMediaSample.h"

#include "directshow/CBaseAllocator.h"
#include "directshow/CUnknown.h"

namespace kvmpd {

CMediaSample::CMediaSample(CBaseAllocator* allocator, BYTE* buffer, LONG size)
    : m_allocator(allocator), m_buffer(buffer), m_size(size) {}

void CMediaSample::Prepare() {
    m_properties = Properties{};
    m_properties.actualLength = m_size;
    m_references = 1;
}

HRESULT CMediaSample::QueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMediaSample || riid == IID_IUnknown) {
        return GetInterface(static_cast<IMediaSample*>(this), ppv);
    }
    return NoInterface(ppv);
}

ULONG CMediaSample::AddRef() {
    return ++m_references;
}

ULONG CMediaSample::Release() {
    const ULONG left = --m_references;
    if (left == 0) {
        m_properties.type.reset();
        m_allocator->ReleaseBuffer(this);
    }
    return left;
}

HRESULT CMediaSample::GetPointer(BYTE** ppBuffer) {
    if (ppBuffer == nullptr) {
        return E_POINTER;
    }
    *ppBuffer = m_buffer;
    return S_OK;
}

LONG CMediaSample::GetSize() {
    return m_size;
}

HRESULT CMediaSample::GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) {
    if (pTimeStart == nullptr || pTimeEnd == nullptr) {
        return E_POINTER;
    }
    if (!m_properties.time) {
        return VFW_E_SAMPLE_TIME_NOT_SET;
    }
    *pTimeStart = m_properties.time->start;
    *pTimeEnd = m_properties.time->end;
    return m_properties.hasStopTime ? S_OK : VFW_S_NO_STOP_TIME;
}

HRESULT CMediaSample::SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) {
    if (pTimeStart == nullptr) {
        m_properties.time.reset();
        return pTimeEnd == nullptr ? S_OK : E_INVALIDARG;
    }
    // Without a stop time the sample is one unit long, as documented.
    m_properties.hasStopTime = pTimeEnd != nullptr;
    m_properties.time = Span{*pTimeStart, pTimeEnd != nullptr ? *pTimeEnd : *pTimeStart + 1};
    return S_OK;
}

HRESULT CMediaSample::IsSyncPoint() {
    return m_properties.syncPoint ? S_OK : S_FALSE;
}

HRESULT CMediaSample::SetSyncPoint(BOOL bIsSyncPoint) {
    m_properties.syncPoint = bIsSyncPoint != FALSE;
    return S_OK;
}

HRESULT CMediaSample::IsPreroll() {
    return m_properties.preroll ? S_OK : S_FALSE;
}

HRESULT CMediaSample::SetPreroll(BOOL bIsPreroll) {
    m_properties.preroll = bIsPreroll != FALSE;
    return S_OK;
}

LONG CMediaSample::GetActualDataLength() {
    return m_properties.actualLength;
}

HRESULT CMediaSample::SetActualDataLength(LONG lLen) {
    if (lLen < 0 || lLen > m_size) {
        return VFW_E_BUFFER_OVERFLOW;
    }
    m_properties.actualLength = lLen;
    return S_OK;
}

HRESULT CMediaSample::GetMediaType(AM_MEDIA_TYPE** ppMediaType) {
    if (ppMediaType == nullptr) {
        return E_POINTER;
    }
    *ppMediaType = nullptr;
    if (!m_properties.type) {
        return S_FALSE;  // unchanged since the sample before
    }
    *ppMediaType = CreateMediaType(&*m_properties.type);
    return *ppMediaType != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT CMediaSample::SetMediaType(AM_MEDIA_TYPE* pMediaType) {
    m_properties.type.reset();
    return pMediaType != nullptr ? m_properties.type.emplace().Set(*pMediaType) : S_OK;
}

HRESULT CMediaSample::IsDiscontinuity() {
    return m_properties.discontinuity ? S_OK : S_FALSE;
}

HRESULT CMediaSample::SetDiscontinuity(BOOL bDiscontinuity) {
    m_properties.discontinuity = bDiscontinuity != FALSE;
    return S_OK;
}

HRESULT CMediaSample::GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) {
    if (pTimeStart == nullptr || pTimeEnd == nullptr) {
        return E_POINTER;
    }
    if (!m_properties.mediaTime) {
        return VFW_E_MEDIA_TIME_NOT_SET;
    }
    *pTimeStart = m_properties.mediaTime->start;
    *pTimeEnd = m_properties.mediaTime->end;
    return S_OK;
}

HRESULT CMediaSample::SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) {
    if (pTimeStart == nullptr) {
        m_properties.mediaTime.reset();
        return S_OK;
    }
    if (pTimeEnd == nullptr) {
        return E_INVALIDARG;
    }
    m_properties.mediaTime = Span{*pTimeStart, *pTimeEnd};
    return S_OK;
}

}  // namespace kvmpd
