// The interface that a host implements to hear about the stream; registered with IKVMPDSource::SetCallback.
//
// Threads: both operations are called on one thread of the component's own, one call at a time, in the order in which
// things happened, never with a lock of the component held. A call that blocks delays later events, never the stream;
// at most 100 wait, the oldest of which are dropped. Inside a call the host may use the control interface, except
// SetCallback and the last Release of the filter: both wait for this thread to end.
//
// Ownership: the component holds one reference from SetCallback until the callback is replaced, cleared, or the filter
// is destroyed. Results are ignored; return S_OK. No exception may leave a call.

#pragma once

#include "platform/com.h"

// {6D1B83E5-2F47-4C9A-B7D4-50E9A2C81F36}
inline constexpr IID IID_IKVMPDCallback{0x6D1B83E5, 0x2F47, 0x4C9A, {0xB7, 0xD4, 0x50, 0xE9, 0xA2, 0xC8, 0x1F, 0x36}};

struct IKVMPDCallback : public IUnknown {
    // id: one of the ids in events/EventIds.h, which says what param1 and param2 point to. The pointers are valid
    // during the call only.
    virtual HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void* param2) = 0;

    // Buffering progress, in milliseconds of media time on the stream's own time line (0 is the first segment after the
    // last reset): play is where the seekable range starts, buffered where the downloaded part of it ends, total where
    // the known part of the stream ends. A segment may be downloaded a moment before it is counted into total: for that
    // moment buffered lies beyond total.
    virtual HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) = 0;
};
