// The control interface of the source filter: what a host steers a stream with, beside the standard IFileSourceFilter.
//
// Obtained from the filter with QueryInterface; it shares the filter's identity and reference count. Every operation
// may be called from any thread, also while the graph runs, except that SetCallback and the last Release must not be
// called from inside the host's own callback.

#pragma once

#include "events/IKVMPDCallback.h"
#include "platform/com.h"

namespace kvmpd {

// The ids of IKVMPDSource::Backdoor, what param points to (it is read during the call only), and the result. Ids 2, 4,
// 5, 6 and 7 need their parameter and answer E_POINTER without one.
enum BackdoorId : DWORD {
    // const wchar_t*: manifest URL. The same as Load, so it also ends a stop. S_OK.
    kBackdoorLoad = 0,

    // Not implemented: E_NOTIMPL.
    kBackdoorReserved = 1,

    // const DWORD*: longest total duration of the cached segments, in seconds; 300 unless set. Takes effect with the
    // next segment that arrives. S_OK.
    kBackdoorMaxCacheTime = 2,

    // const char*: folder of the cache files, UTF-8, existing and writable; set it before the first Load. The component
    // creates one hidden file per segment and stream in it and deletes each when its segment leaves the cache.
    // S_OK; E_FAIL for null, and for nothing else: bytes that are not UTF-8 are replaced, and a folder that is missing
    // or cannot be written shows later, as the event of a failed download.
    kBackdoorCacheFolder = 3,

    // const DWORD*: where to start, as a count of segments behind the live edge. Used when a start is next chosen: the
    // first load, a new URL, a switched quality. While a stream plays, a changed count does not move it: it only makes
    // the loader fetch the manifest early. The count is replaced when a full cache parks a paused stream, and by a seek
    // through the manifest. A count that changes nothing - the same again, or before the first manifest - is answered
    // with the position event (0, 0). S_OK.
    kBackdoorPreferDelaySegments = 4,

    // const DWORD*: preferred height of the video picture, in pixels, used when representations are next chosen. S_OK.
    kBackdoorPreferQuality = 5,

    // const DWORD*: id of a video quality (from the quality events) to switch to at once; positions restart at 0. S_OK.
    kBackdoorTargetQuality = 6,

    // const LONGLONG*: media time to seek to, in milliseconds, on the time line of IKVMPDCallback::OnBuffering. Byte
    // positions have restarted at 0 when the call returns. The position event (0, 1) comes at once when the target is
    // in the cache, else with the first new segment. While the manifest reaches as far back as the cache, a seek to the
    // distance from the live edge that is already preferred moves nothing and sends none. S_OK; E_FAIL when the
    // position lies outside what can be reached.
    kBackdoorPosition = 7,

    // Ignored param. Stops delivery: reads on the output pin, waiting ones included, answer E_FAIL until the next Load.
    // S_OK.
    kBackdoorStop = 8,
};

}  // namespace kvmpd

// {2B6F9C14-8E3A-4D75-9F01-C7A4E58B3D62}
inline constexpr IID IID_IKVMPDSource{0x2B6F9C14, 0x8E3A, 0x4D75, {0x9F, 0x01, 0xC7, 0xA4, 0xE5, 0x8B, 0x3D, 0x62}};

struct IKVMPDSource : public IUnknown {
    // id: a kvmpd::BackdoorId, which says what param points to. An unknown id is logged and answered with S_OK, so that
    // a host may be newer than the component.
    virtual HRESULT STDMETHODCALLTYPE Backdoor(DWORD id, void* param) = 0;

    // Replaces the host's callback; null clears it. Waits for a callback call in progress to return. After it returns,
    // the previous callback is not called again and its reference has been released. S_OK, or the error with which the
    // delivery thread could not be started.
    virtual HRESULT STDMETHODCALLTYPE SetCallback(IKVMPDCallback* callback) = 0;

    // Starts following the live manifest at url (http or https), or moves to it from the one before; the URL that is
    // already followed, compared without regard to case, is not loaded again. Ends a stop. Always S_OK: a stream that
    // cannot be followed is reported by the manifest event.
    virtual HRESULT STDMETHODCALLTYPE Load(const wchar_t* url) = 0;
};
