// A blocking HTTP and HTTPS client that runs one request at a time.
#pragma once

#include "net/INetKernelContentStream.h"
#include "platform/win32.h"

namespace kvmpd {

/// The order of the operations is part of the interface. An object serves one thread at a time and has no lock.
class INetKernelBase {
  public:
    /// Bytes per read and per upload block; 131072 unless set.
    virtual void SetReceiveChunkSize(DWORD size) = 0;

    /// Runs one request to its end: S_OK, or E_FAIL when no response came, the receiver or the observer ended it,
    /// memory ran out, or a body for a stream was not read to the announced length. The status code is not judged: a
    /// 404 page is delivered like any other body. `url` begins with "http://" or "https://"; `verb` may be null or
    /// empty ("GET", or "POST" with post data); `proxy` names a proxy to use, `disableProxy` goes past any; `headers`
    /// are extra header lines, each ended by
    /// "\r\n"; the body goes to the file `responseFile` (appended), or to `stream`, or else into memory for the
    /// progress observer. All pointers but `url` may be null.
    virtual HRESULT OpenUrl(const char* url, const char* verb, const wchar_t* proxy, BOOL disableProxy,
                            const char* headers, const wchar_t* responseFile, const BYTE* postData, DWORD postLength,
                            INetKernelContentStream* stream) = 0;
    virtual HRESULT OpenUrlW(const wchar_t* url, const wchar_t* verb, const wchar_t* proxy, BOOL disableProxy,
                             const wchar_t* headers, const wchar_t* responseFile, const BYTE* postData,
                             DWORD postLength, INetKernelContentStream* stream) = 0;

    /// Closes what a request has open.
    virtual void Close() = 0;
    /// Close, and forget the window and the observer. Always 0.
    virtual DWORD Reset() = 0;
    /// How the latest failed read of a stream-buffer receive failed: 1 failed, 2 timed out; 0 while none has.
    virtual DWORD GetErrorType() = 0;
    /// Longest silence of the server while a response is awaited or read, in milliseconds; 0 means 30000.
    virtual void SetReceiveTimeout(DWORD milliseconds) = 0;
    /// Longest wait for a block to be sent, in milliseconds; 0 leaves it to the platform.
    virtual void SetSendTimeout(DWORD milliseconds) = 0;
    /// Places kept free; they do nothing and return 0.
    virtual DWORD Reserved8() = 0;
    virtual DWORD Reserved9() = 0;

    virtual ~INetKernelBase() = default;
};

}  // namespace kvmpd
