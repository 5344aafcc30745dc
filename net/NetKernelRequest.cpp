// The first half of a request: from the URL to the response's headers.
#include <algorithm>
#include <cwchar>
#include <new>

#include "common/Log.h"
#include "net/HttpLimits.h"
#include "net/NetKernelBase.h"
#include "net/RequestText.h"

namespace kvmpd {
namespace {

constexpr DWORD kUploadBlock = 0x20000;
constexpr DWORD kDefaultReceiveTimeout = 30000;
constexpr size_t kLongestResponseFile = 260;
constexpr DWORD kRequestFlags = INTERNET_FLAG_NO_COOKIES | INTERNET_FLAG_RESYNCHRONIZE;

const wchar_t* TrueOrFalse(BOOL value) {
    return value != 0 ? L"True" : L"False";
}

template <class Char>
bool IsGiven(const Char* text) {
    return text != nullptr && *text != Char();
}

template <class Text>
typename Text::String VerbFor(const typename Text::Char* given, bool hasPostData) {
    if (IsGiven(given)) {
        return given;
    }
    return hasPostData ? Text::kPost : Text::kGet;
}

template <class Text>
typename Text::String HeadersFor(const typename Text::Char* given, INetKernelContentStream* stream,
                                 const UrlParts<typename Text::Char>& url) {
    using String = typename Text::String;
    if (IsGiven(given)) {
        String headers(given);
        if (headers.find(Text::kHost) == String::npos) {
            // Without a value: the platform puts in the host that it connects to.
            headers.insert(0, String(Text::kHost) + Text::kLineEnd);
        }
        return headers;
    }
    if (stream != nullptr && stream->HasCustomHeaders() != 0) {
        return Text::StreamHeaders(*stream, url.host, url.path);
    }
    return Text::kHost + url.host + Text::kLineEnd + Text::kLineEnd;
}

template <class Text>
typename Text::Buffers HeadOf(const typename Text::String& headers, DWORD bodyLength) {
    typename Text::Buffers buffers{};
    buffers.dwStructSize = sizeof(buffers);
    buffers.lpcszHeader = headers.c_str();
    buffers.dwHeadersLength = static_cast<DWORD>(headers.size());
    buffers.dwHeadersTotal = buffers.dwHeadersLength;
    buffers.dwBufferTotal = bodyLength;
    return buffers;
}

}  // namespace

HRESULT NetKernelBase::OpenUrl(const char* url, const char* verb, const wchar_t* proxy, BOOL disableProxy,
                               const char* headers, const wchar_t* responseFile, const BYTE* postData, DWORD postLength,
                               INetKernelContentStream* stream) try {
    return Run<NarrowText>({url != nullptr ? url : "", verb, proxy, disableProxy != 0, headers, responseFile, postData,
                            postLength, stream});
} catch (const std::bad_alloc&) {
    Close();
    return E_FAIL;
}

HRESULT NetKernelBase::OpenUrlW(const wchar_t* url, const wchar_t* verb, const wchar_t* proxy, BOOL disableProxy,
                                const wchar_t* headers, const wchar_t* responseFile, const BYTE* postData,
                                DWORD postLength, INetKernelContentStream* stream) try {
    return Run<WideText>({url != nullptr ? url : L"", verb, proxy, disableProxy != 0, headers, responseFile, postData,
                          postLength, stream});
} catch (const std::bad_alloc&) {
    Close();
    return E_FAIL;
}

template <class Text>
HRESULT NetKernelBase::Run(const Request<typename Text::Char>& request) {
    Log(3, RequestLog<Text>::kOpen.text, request.url);
    m_bAbort = 0;
    if (request.responseFile != nullptr && std::wcslen(request.responseFile) > kLongestResponseFile) {
        Log(3, Text::kFileTooLong, std::wcslen(request.responseFile), request.responseFile);
    }
    Outcome outcome;
    bool success = SendUrlRequestImpl<Text>(request, outcome);
    if (!success) {
        Log(3, RequestLog<Text>::kSendFailed.text, request.url);
    } else {
        success = ReceiveUrlDataImpl(outcome, request.responseFile, request.stream);
        if (!success) {
            Log(3, RequestLog<Text>::kReceiveFailed.text, request.url);
        }
    }
    if (!success || m_bAbort != 0) {
        return E_FAIL;
    }
    if (m_pProgress != nullptr) {
        m_pProgress->OnComplete(outcome.lastError, outcome.statusCode, outcome.ForObserver(),
                                static_cast<DWORD>(outcome.contentLength));
    }
    return S_OK;
}

template <class Text>
bool NetKernelBase::SendUrlRequestImpl(const Request<typename Text::Char>& request, Outcome& outcome) {
    if (SendAndQuery<Text>(request, outcome)) {
        return true;
    }
    outcome.lastError = GetLastError();
    Close();
    return false;
}

template <class Text>
bool NetKernelBase::SendAndQuery(const Request<typename Text::Char>& request, Outcome& outcome) {
    if (request.url.size() > kLongestUrl) {
        Log(3, RequestLog<Text>::kUrlTooLong.text, request.url.size());
        SetLastError(ERROR_INTERNET_INVALID_URL);
        return false;
    }
    // A URL without a known scheme has no host either and fails when it is to be connected to.
    const UrlParts<typename Text::Char> url = SplitUrl(std::basic_string_view<typename Text::Char>(request.url));
    const typename Text::String verb = VerbFor<Text>(request.verb, request.HasPostData());
    const typename Text::String headers = HeadersFor<Text>(request.headers, request.stream, url);
    m_bAbort = 0;
    bool proxyInUse = false;
    if (!PrepareConnection<Text>(verb, url) || !ChooseProxy<Text>(request, proxyInUse)) {
        return false;
    }
    SetTimeOuts<Text>();

    bool countsAsSent = false;
    if (request.HasPostData()) {
        if (!SendPostData<Text>(request, headers)) {
            return false;
        }
    } else if (request.stream != nullptr && request.stream->HasUploadContent() != 0) {
        if (!SendUploadStream<Text>(*request.stream, headers)) {
            return false;
        }
        countsAsSent = true;
    } else if (!SendHttpReq<Text>(proxyInUse, headers, outcome.statusCode)) {
        // Whether there is a response after all is for the queries below to say.
        Log(3, RequestLog<Text>::kPlainSendFailed.text, GetLastError());
    }

    std::string contentType;
    const bool answered = QueryResponseInfo(outcome, contentType, request.stream);
    if (!answered) {
        Log(3, RequestLog<Text>::kQueryFailed.text);
    }
    return countsAsSent || answered;
}

template <class Text>
bool NetKernelBase::PrepareConnection(const typename Text::String& verb, const UrlParts<typename Text::Char>& url) {
    if (Cancelled("connect", 0, 0)) {
        return false;
    }
    m_hSession.reset(Text::Open());
    if (!m_hSession) {
        Log(3, RequestLog<Text>::kInternetOpenFailed.text, GetLastError());
        return false;
    }
    m_hConnect.reset(Text::Connect(m_hSession.get(), url.host, url.port));
    if (!m_hConnect) {
        Log(3, RequestLog<Text>::kInternetConnectFailed.text, GetLastError());
        return false;
    }
    const DWORD flags = url.secure ? kRequestFlags | INTERNET_FLAG_SECURE : kRequestFlags;
    m_hRequest.reset(Text::OpenRequest(m_hConnect.get(), verb, url.path, flags));
    if (!m_hRequest) {
        Log(3, RequestLog<Text>::kHttpOpenRequestFailed.text, GetLastError());
        return false;
    }
    return true;
}

template <class Text>
bool NetKernelBase::ChooseProxy(const Request<typename Text::Char>& request, bool& proxyInUse) {
    INTERNET_PROXY_INFO info{};
    if (request.disableProxy) {
        info.dwAccessType = INTERNET_OPEN_TYPE_DIRECT;
        const BOOL success = InternetSetOptionW(m_hSession.get(), INTERNET_OPTION_PROXY, &info, sizeof(info));
        Log(4, RequestLog<Text>::kDisableProxy.text, TrueOrFalse(success));
    } else if (IsGiven(request.proxy)) {
        info.dwAccessType = INTERNET_OPEN_TYPE_PROXY;
        info.lpszProxy = request.proxy;
        if (InternetSetOptionW(m_hSession.get(), INTERNET_OPTION_PROXY, &info, sizeof(info)) == 0) {
            return false;
        }
        proxyInUse = true;
    }
    return true;
}

template <class Text>
void NetKernelBase::SetTimeOuts() {
    DWORD receive = m_nReceiveTimeout != 0 ? m_nReceiveTimeout : kDefaultReceiveTimeout;
    InternetSetOptionW(m_hRequest.get(), INTERNET_OPTION_RECEIVE_TIMEOUT, &receive, sizeof(receive));
    if (m_nSendTimeout != 0) {
        DWORD send = m_nSendTimeout;
        const BOOL success = InternetSetOptionW(m_hRequest.get(), INTERNET_OPTION_SEND_TIMEOUT, &send, sizeof(send));
        Log(4, RequestLog<Text>::kSendTimeout.text, m_nSendTimeout, TrueOrFalse(success));
    }
}

template <class Text>
bool NetKernelBase::SendPostData(const Request<typename Text::Char>& request, const typename Text::String& headers) {
    typename Text::Buffers head = HeadOf<Text>(headers, request.postLength);
    if (Text::SendHead(m_hRequest.get(), head) == 0) {
        Log(3, RequestLog<Text>::kSendRequestExFailed.text, GetLastError());
        return false;
    }
    if (!WritePostData(request.postData, request.postLength)) {
        Log(3, RequestLog<Text>::kWriteFailed.text);
        return false;
    }
    return EndRequest<Text>();
}

template <class Text>
bool NetKernelBase::SendUploadStream(INetKernelContentStream& stream, const typename Text::String& headers) {
    const DWORD length = stream.GetUploadLength();
    if (length == 0) {
        Log(3, RequestLog<Text>::kUploadWithoutLength.text);
        return false;
    }
    typename Text::Buffers head = HeadOf<Text>(headers, length);
    if (Text::SendHead(m_hRequest.get(), head) == 0) {
        Log(3, RequestLog<Text>::kUploadSendFailed.text, GetLastError());
        return false;
    }
    Log(3, RequestLog<Text>::kUploadLength.text, length);
    if (!WriteStreamContent(stream, length)) {
        Log(3, RequestLog<Text>::kUploadFailed.text);
        return false;
    }
    Log(3, RequestLog<Text>::kUploadWritten.text);
    if (!EndRequest<Text>()) {
        return false;
    }
    Log(3, RequestLog<Text>::kUploadEnded.text);
    Log(3, RequestLog<Text>::kUploadSent.text);
    return true;
}

template <class Text>
bool NetKernelBase::EndRequest() {
    if (HttpEndRequestW(m_hRequest.get(), /*buffersOut=*/nullptr, /*flags=*/0, /*context=*/0) == 0) {
        Log(3, RequestLog<Text>::kEndRequestFailed.text, GetLastError());
        return false;
    }
    return true;
}

template <class Text>
bool NetKernelBase::SendHttpReq(bool proxyInUse, const typename Text::String& headers, DWORD& statusCode) {
    if (proxyInUse && !ErrorDialogAllows<Text>()) {
        return false;
    }
    return Text::Send(m_hRequest.get(), headers) != 0 && QueryStatusCode(statusCode);
}

/// Gives the user the chance to answer what the proxy asks for.
template <class Text>
bool NetKernelBase::ErrorDialogAllows() {
    const DWORD lastError = GetLastError();
    Log(3, RequestLog<Text>::kUseProxy.text, GetCurrentThreadId());
    Log(3, RequestLog<Text>::kBeforeDialog.text, lastError);
    const DWORD answer = InternetErrorDlg(
        m_hParentWnd, m_hRequest.get(), lastError,
        FLAGS_ERROR_UI_FILTER_FOR_ERRORS | FLAGS_ERROR_UI_FLAGS_CHANGE_OPTIONS | FLAGS_ERROR_UI_FLAGS_GENERATE_DATA,
        nullptr);
    Log(3, RequestLog<Text>::kDialogResult.text, answer);
    return answer == ERROR_SUCCESS || answer == ERROR_INTERNET_FORCE_RETRY;
}

bool NetKernelBase::WritePostData(const BYTE* data, DWORD length) {
    for (DWORD total = 0; total < length;) {
        const DWORD blockEnd = total + std::min(length - total, kUploadBlock);
        while (total < blockEnd) {
            DWORD written = 0;
            // A write of nothing would be repeated for ever.
            if (InternetWriteFile(m_hRequest.get(), data + total, blockEnd - total, &written) == 0 || written == 0) {
                return false;
            }
            total += written;
            if (Cancelled("transmit", total, length)) {
                return false;
            }
        }
    }
    return true;
}

bool NetKernelBase::WriteStreamContent(INetKernelContentStream& stream, DWORD length) {
    Log(3, L" NetKernelBase::WriteStreamContent Write content data from stream buffer with content length: %lu",
        length);
    DWORD offset = 0;
    do {
        const BYTE* data = nullptr;
        DWORD size = m_nReceiveChunk;
        const HRESULT result = stream.ReadOutputStream(offset, &data, &size);
        if (FAILED(result) || size == 0) {  // a stream with nothing to give before its end would never reach it
            Log(3, L"[Error] NetKernelBase::WriteStreamContent Read buffer instance from NetKernelStream failed.");
            return false;
        }
        DWORD written = 0;
        // A write of nothing would be repeated for ever.
        if (InternetWriteFile(m_hRequest.get(), data, size, &written) == 0 || written == 0) {
            Log(3, L"[Error] NetKernelBase::WriteStreamContent InternetWriteFile failed. Last error: %lu",
                GetLastError());
            return false;
        }
        Log(6, L" NetKernelBase::WriteStreamContent Use size to upload in this round: %lu success written: %lu", size,
            written);
        offset += written;
        if (Cancelled("transmit", offset, length)) {
            return false;
        }
    } while (offset < length);
    Log(3, L" NetKernelBase::WriteStreamContent Write content body from stream.");
    return true;
}

}  // namespace kvmpd
