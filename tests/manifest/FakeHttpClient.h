#pragma once

#include <string>

#include "net/INetKernelBase.h"

namespace kvmpd::test {

/// Answers every request with one body or one failure, and remembers what it was asked.
class FakeHttpClient : public INetKernelBase {
  public:
    std::string body;
    bool announceLength = true;
    HRESULT result = S_OK;  ///< A negative one: the body is delivered first, then the request fails.

    struct Request {
        int count = 0;
        std::wstring url;
        std::wstring verb;
        bool bare = false;  ///< Nothing was asked for besides the URL, the verb and a stream for the body.
    } request;

    HRESULT OpenUrlW(const wchar_t* url, const wchar_t* verb, const wchar_t* proxy, BOOL disableProxy,
                     const wchar_t* headers, const wchar_t* responseFile, const BYTE* postData, DWORD postLength,
                     INetKernelContentStream* stream) override {
        ++request.count;
        request.url = url;
        request.verb = verb;
        request.bare = !proxy && !disableProxy && !headers && !responseFile && !postData && postLength == 0 && stream;
        stream->OnContentLength(announceLength ? body.size() : 0);
        if (!stream->WriteInputStream(reinterpret_cast<const BYTE*>(body.data()), static_cast<DWORD>(body.size()))) {
            return E_FAIL;
        }
        stream->OnWriteComplete();
        return result;
    }

    HRESULT OpenUrl(const char*, const char*, const wchar_t*, BOOL, const char*, const wchar_t*, const BYTE*, DWORD,
                    INetKernelContentStream*) override {
        return E_NOTIMPL;
    }
    void SetReceiveChunkSize(DWORD) override {}
    void Close() override {}
    DWORD Reset() override { return 0; }
    DWORD GetErrorType() override { return 0; }
    void SetReceiveTimeout(DWORD) override {}
    void SetSendTimeout(DWORD) override {}
    DWORD Reserved8() override { return 0; }
    DWORD Reserved9() override { return 0; }
};

}  // namespace kvmpd::test
