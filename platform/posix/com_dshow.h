// The DirectShow records and interfaces that a pull-mode source filter meets. Included through platform/com.h only.

#pragma once

#include "platform/posix/com_types.h"

using REFERENCE_TIME = LONGLONG;  // 100 nanoseconds

inline constexpr GUID MEDIATYPE_Stream{0xE436EB83, 0x524F, 0x11CE, {0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};

inline constexpr IID IID_IPin{0x56A86891, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IEnumPins{0x56A86892, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IEnumMediaTypes{0x89C31040, 0x846B, 0x11CE, {0x97, 0xD3, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};
inline constexpr IID IID_IBaseFilter{0x56A86895, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IReferenceClock{0x56A86897, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IMediaFilter{0x56A86899, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IMediaSample{0x56A8689A, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IMemAllocator{0x56A8689C, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IFilterGraph{0x56A8689F, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IFileSourceFilter{
    0x56A868A6, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IAsyncReader{0x56A868AA, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};

enum PIN_DIRECTION { PINDIR_INPUT = 0, PINDIR_OUTPUT = 1 };
enum FILTER_STATE { State_Stopped = 0, State_Paused = 1, State_Running = 2 };

inline constexpr int MAX_PIN_NAME = 128;
inline constexpr int MAX_FILTER_NAME = 128;

enum : DWORD { MERIT_DO_NOT_USE = 0x200000, MERIT_UNLIKELY = 0x400000, MERIT_NORMAL = 0x600000 };

struct IBaseFilter;
struct IFilterGraph;
struct IEnumFilters;
struct IPin;

// The format block, when there is one, is task memory owned by the record (see CopyMediaType and FreeMediaType).
struct AM_MEDIA_TYPE {
    GUID majortype;
    GUID subtype;
    BOOL bFixedSizeSamples;
    BOOL bTemporalCompression;
    ULONG lSampleSize;
    GUID formattype;
    IUnknown* pUnk;
    ULONG cbFormat;
    BYTE* pbFormat;
};

struct ALLOCATOR_PROPERTIES {
    LONG cBuffers;
    LONG cbBuffer;
    LONG cbAlign;
    LONG cbPrefix;
};

// pFilter carries a reference that the caller of QueryPinInfo releases.
struct PIN_INFO {
    IBaseFilter* pFilter;
    PIN_DIRECTION dir;
    WCHAR achName[MAX_PIN_NAME];
};

// pGraph carries a reference that the caller of QueryFilterInfo releases.
struct FILTER_INFO {
    WCHAR achName[MAX_FILTER_NAME];
    IFilterGraph* pGraph;
};

struct REGPINTYPES {
    const CLSID* clsMajorType;
    const CLSID* clsMinorType;
};

struct REGFILTERPINS {
    LPWSTR strName;
    BOOL bRendered;
    BOOL bOutput;
    BOOL bZero;
    BOOL bMany;
    const CLSID* clsConnectsToFilter;
    const WCHAR* strConnectsToPin;
    UINT nMediaTypes;
    const REGPINTYPES* lpMediaType;
};

struct IReferenceClock : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE AdviseTime(REFERENCE_TIME baseTime, REFERENCE_TIME streamTime,
                                                 std::uintptr_t hEvent, std::uintptr_t* pdwAdviseCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE AdvisePeriodic(REFERENCE_TIME startTime, REFERENCE_TIME periodTime,
                                                     std::uintptr_t hSemaphore, std::uintptr_t* pdwAdviseCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE Unadvise(std::uintptr_t dwAdviseCookie) = 0;
};

struct IEnumPins : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cPins) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumPins** ppEnum) = 0;
};

struct IEnumMediaTypes : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cMediaTypes) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes** ppEnum) = 0;
};

struct IPin : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Disconnect() = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pPin) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** apPin, ULONG* nPin) = 0;
    virtual HRESULT STDMETHODCALLTYPE EndOfStream() = 0;
    virtual HRESULT STDMETHODCALLTYPE BeginFlush() = 0;
    virtual HRESULT STDMETHODCALLTYPE EndFlush() = 0;
    virtual HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) = 0;
};

struct IMediaFilter : IPersist {
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE Pause() = 0;
    virtual HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetState(DWORD dwMilliSecsTimeout, FILTER_STATE* State) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* pClock) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** pClock) = 0;
};

struct IBaseFilter : IMediaFilter {
    virtual HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* pInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* pVendorInfo) = 0;
};

struct IFilterGraph : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* pFilter, LPCWSTR pName) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter* pFilter) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR pName, IBaseFilter** ppFilter) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectDirect(IPin* ppinOut, IPin* ppinIn, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reconnect(IPin* ppin) = 0;
    virtual HRESULT STDMETHODCALLTYPE Disconnect(IPin* ppin) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() = 0;
};

struct IMediaSample : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetPointer(BYTE** ppBuffer) = 0;
    virtual LONG STDMETHODCALLTYPE GetSize() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsSyncPoint() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSyncPoint(BOOL bIsSyncPoint) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsPreroll() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetPreroll(BOOL bIsPreroll) = 0;
    virtual LONG STDMETHODCALLTYPE GetActualDataLength() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetActualDataLength(LONG lLen) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaType(AM_MEDIA_TYPE** ppMediaType) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMediaType(AM_MEDIA_TYPE* pMediaType) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsDiscontinuity() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDiscontinuity(BOOL bDiscontinuity) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) = 0;
};

struct IMemAllocator : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES* pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit() = 0;
    virtual HRESULT STDMETHODCALLTYPE Decommit() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime,
                                                REFERENCE_TIME* pEndTime, DWORD dwFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample* pBuffer) = 0;
};
inline constexpr DWORD AM_GBF_NOWAIT = 4;  // GetBuffer: answer VFW_E_TIMEOUT at once when no sample is free

struct IFileSourceFilter : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Load(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) = 0;
};

struct IAsyncReader : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator* pPreferred, ALLOCATOR_PROPERTIES* pProps,
                                                       IMemAllocator** ppActual) = 0;
    virtual HRESULT STDMETHODCALLTYPE Request(IMediaSample* pSample, DWORD_PTR dwUser) = 0;
    virtual HRESULT STDMETHODCALLTYPE WaitForNext(DWORD dwTimeout, IMediaSample** ppSample, DWORD_PTR* pdwUser) = 0;
    virtual HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample* pSample) = 0;
    virtual HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) = 0;
    virtual HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) = 0;
    virtual HRESULT STDMETHODCALLTYPE BeginFlush() = 0;
    virtual HRESULT STDMETHODCALLTYPE EndFlush() = 0;
};
