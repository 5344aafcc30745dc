// A buffer of an allocator, with its properties.
//
// Belongs to its allocator, which reuses it: the last Release gives it back instead of deleting it, and a sample that
// is handed out has the properties of a fresh one. One holder at a time sets its properties.

#pragma once

#include <atomic>
#include <optional>

#include "directshow/CMediaType.h"
#include "platform/com.h"

namespace kvmpd {

class CBaseAllocator;

class CMediaSample final : public IMediaSample {
  public:
    // buffer: size bytes that outlive the sample.
    CMediaSample(CBaseAllocator* allocator, BYTE* buffer, LONG size);
    virtual ~CMediaSample() = default;
    CMediaSample(const CMediaSample&) = delete;
    CMediaSample& operator=(const CMediaSample&) = delete;

    // For the allocator: makes this a fresh sample with one reference.
    void Prepare();

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // IMediaSample
    HRESULT STDMETHODCALLTYPE GetPointer(BYTE** ppBuffer) override;
    LONG STDMETHODCALLTYPE GetSize() override;
    HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
    HRESULT STDMETHODCALLTYPE SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
    HRESULT STDMETHODCALLTYPE IsSyncPoint() override;
    HRESULT STDMETHODCALLTYPE SetSyncPoint(BOOL bIsSyncPoint) override;
    HRESULT STDMETHODCALLTYPE IsPreroll() override;
    HRESULT STDMETHODCALLTYPE SetPreroll(BOOL bIsPreroll) override;
    LONG STDMETHODCALLTYPE GetActualDataLength() override;
    HRESULT STDMETHODCALLTYPE SetActualDataLength(LONG lLen) override;
    HRESULT STDMETHODCALLTYPE GetMediaType(AM_MEDIA_TYPE** ppMediaType) override;
    HRESULT STDMETHODCALLTYPE SetMediaType(AM_MEDIA_TYPE* pMediaType) override;
    HRESULT STDMETHODCALLTYPE IsDiscontinuity() override;
    HRESULT STDMETHODCALLTYPE SetDiscontinuity(BOOL bDiscontinuity) override;
    HRESULT STDMETHODCALLTYPE GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;
    HRESULT STDMETHODCALLTYPE SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;

  private:
    struct Span {
        LONGLONG start;
        LONGLONG end;
    };
    // What a fresh sample starts with.
    struct Properties {
        LONG actualLength = 0;
        bool syncPoint = false;
        bool preroll = false;
        bool discontinuity = false;
        bool hasStopTime = false;
        std::optional<Span> time;
        std::optional<Span> mediaTime;
        std::optional<CMediaType> type;
    };

    CBaseAllocator* const m_allocator;
    BYTE* const m_buffer;
    const LONG m_size;
    std::atomic<ULONG> m_references{0};
    Properties m_properties;  // whoever holds the sample, one at a time
};

}  // namespace kvmpd
