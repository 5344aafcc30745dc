#pragma once

#include <string>

#include "tests/support/InertHttpClient.h"

namespace kvmpd::test {

/// Answers every request with one body or one failure, and remembers what it was asked.
class FakeHttpClient : public InertHttpClient {
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
};

}  // namespace kvmpd::test
