// What differs between the narrow and the wide twin of a request: the text type, the platform calls of that width, and
// the names under which the two log the same events.
#pragma once

#include <algorithm>
#include <iterator>
#include <string>

#include "net/INetKernelContentStream.h"
#include "platform/wininet.h"

namespace kvmpd {

struct NarrowText {
    using Char = char;
    using String = std::string;
    using Buffers = INTERNET_BUFFERSA;

    static constexpr char kAgent[] = "KV-NetKernel";
    static constexpr char kGet[] = "GET";
    static constexpr char kPost[] = "POST";
    static constexpr char kHost[] = "Host: ";
    static constexpr char kLineEnd[] = "\r\n";

    static HINTERNET Open() { return InternetOpenA(kAgent, INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0); }
    static HINTERNET Connect(HINTERNET session, const String& host, INTERNET_PORT port) {
        return InternetConnectA(session, host.c_str(), port, /*user=*/nullptr, /*password=*/nullptr,
                                INTERNET_SERVICE_HTTP, /*flags=*/0, /*context=*/1);
    }
    static HINTERNET OpenRequest(HINTERNET connection, const String& verb, const String& path, DWORD flags) {
        return HttpOpenRequestA(connection, verb.c_str(), path.c_str(), /*version=*/nullptr, /*referrer=*/nullptr,
                                /*acceptTypes=*/nullptr, flags, /*context=*/1);
    }
    static BOOL Send(HINTERNET request, const String& headers) {
        return HttpSendRequestA(request, headers.c_str(), static_cast<DWORD>(headers.size()), /*optional=*/nullptr, 0);
    }
    static BOOL SendHead(HINTERNET request, Buffers& buffers) {
        return HttpSendRequestExA(request, &buffers, /*buffersOut=*/nullptr, /*flags=*/0, /*context=*/0);
    }
    static String StreamHeaders(INetKernelContentStream& stream, const String& host, const String& path) {
        return stream.GetRequestHeaders(host, path);
    }

    /// What the twin adds to the names of its methods in the log.
    static constexpr wchar_t kTwin[] = L"";
    static constexpr wchar_t kFileTooLong[] =
        L"[Error] NetKernelBase::OpenUrl  Response file length too long (%d): '%s' ";
};

struct WideText {
    using Char = wchar_t;
    using String = std::wstring;
    using Buffers = INTERNET_BUFFERSW;

    static constexpr wchar_t kAgent[] = L"KV-NetKernel";
    static constexpr wchar_t kGet[] = L"GET";
    static constexpr wchar_t kPost[] = L"POST";
    static constexpr wchar_t kHost[] = L"Host: ";
    static constexpr wchar_t kLineEnd[] = L"\r\n";

    static HINTERNET Open() { return InternetOpenW(kAgent, INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0); }
    static HINTERNET Connect(HINTERNET session, const String& host, INTERNET_PORT port) {
        return InternetConnectW(session, host.c_str(), port, /*user=*/nullptr, /*password=*/nullptr,
                                INTERNET_SERVICE_HTTP, /*flags=*/0, /*context=*/1);
    }
    static HINTERNET OpenRequest(HINTERNET connection, const String& verb, const String& path, DWORD flags) {
        return HttpOpenRequestW(connection, verb.c_str(), path.c_str(), /*version=*/nullptr, /*referrer=*/nullptr,
                                /*acceptTypes=*/nullptr, flags, /*context=*/1);
    }
    static BOOL Send(HINTERNET request, const String& headers) {
        return HttpSendRequestW(request, headers.c_str(), static_cast<DWORD>(headers.size()), /*optional=*/nullptr, 0);
    }
    static BOOL SendHead(HINTERNET request, Buffers& buffers) {
        return HttpSendRequestExW(request, &buffers, /*buffersOut=*/nullptr, /*flags=*/0, /*context=*/0);
    }
    static String StreamHeaders(INetKernelContentStream& stream, const String& host, const String& path) {
        return stream.GetRequestHeadersW(host, path);
    }

    static constexpr wchar_t kTwin[] = L"W";
    static constexpr wchar_t kFileTooLong[] =
        L"[Error] NetKernelBase::OpenUrlW [NetKernelBase][Error] NetKernelBase::OpenUrlW Response file length too long "
        L"(%d): '%s' ";
};

/// A log text put together when it is compiled.
template <size_t Length>
struct JoinedText {
    wchar_t text[Length] = {};
};

/// A method's name as a twin writes it, and what follows.
template <class Text, size_t Method, size_t Rest>
constexpr auto OfTwin(const wchar_t (&method)[Method], const wchar_t (&rest)[Rest]) {
    JoinedText<(Method - 1) + (std::size(Text::kTwin) - 1) + Rest> joined;
    wchar_t* end = std::copy_n(method, Method - 1, joined.text);
    end = std::copy_n(Text::kTwin, std::size(Text::kTwin) - 1, end);
    std::copy_n(rest, Rest, end);
    return joined;
}

template <class Text>
struct RequestLog {
    static constexpr auto kOpen = OfTwin<Text>(L" NetKernelBase::OpenUrl", L" open URL: %s");
    static constexpr auto kUrlTooLong =
        OfTwin<Text>(L"[Error] NetKernelBase::SendUrlRequestImpl", L" URL is too long: %llu characters");
    static constexpr auto kSendFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::OpenUrl", L" Fail to send URL request: %s");
    static constexpr auto kReceiveFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::OpenUrl", L" Fail to receive URL request: %s");
    static constexpr auto kInternetOpenFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::PrepareConnection", L" InternetOpen failed, last error: %lu");
    static constexpr auto kInternetConnectFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::PrepareConnection", L" InternetConnect failed, last error: %lu");
    static constexpr auto kHttpOpenRequestFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::PrepareConnection", L" HttpOpenRequest failed, last error: %lu");
    static constexpr auto kDisableProxy =
        OfTwin<Text>(L" NetKernelBase::SendUrlRequestImpl", L" Disable proxy. Success: %s");
    static constexpr auto kSendTimeout =
        OfTwin<Text>(L" NetKernelBase::SendUrlRequestImpl", L" Set send timeout to: %lu Success: %s");
    static constexpr auto kSendRequestExFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::SendUrlRequestImpl", L" HttpSendRequestEx failed, last error: %lu");
    static constexpr auto kWriteFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::SendUrlRequestImpl", L" Write content failed.");
    static constexpr auto kEndRequestFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::SendUrlRequestImpl", L" HttpEndRequest failed, last error: %lu");
    static constexpr auto kUploadWithoutLength =
        OfTwin<Text>(L"[Error] NetKernelBase::SendUrlRequestImpl",
                     L" Has upload stream but return 0 content length, should be error.");
    static constexpr auto kUploadSendFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::SendUrlRequestImpl", L" HttpSendRequestExA failed, last error: %lu");
    static constexpr auto kUploadLength =
        OfTwin<Text>(L" NetKernelBase::SendUrlRequestImpl", L" Send request with Content-Length: %lu");
    static constexpr auto kUploadFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::SendUrlRequestImpl", L" Write stream content failed.");
    static constexpr auto kUploadWritten =
        OfTwin<Text>(L" NetKernelBase::SendUrlRequestImpl", L" Write stream content success.");
    static constexpr auto kUploadEnded =
        OfTwin<Text>(L" NetKernelBase::SendUrlRequestImpl", L" HttpEndRequest success");
    static constexpr auto kUploadSent =
        OfTwin<Text>(L" NetKernelBase::SendUrlRequestImpl", L" Send multi-part request success end.");
    static constexpr auto kPlainSendFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::SendUrlRequestImpl", L" SendHttpReq failed, last error: %lu");
    static constexpr auto kQueryFailed =
        OfTwin<Text>(L"[Error] NetKernelBase::SendUrlRequestImpl", L" QueryResponseInfo failed.");
    static constexpr auto kUseProxy =
        OfTwin<Text>(L" NetKernelBase::SendHttpReq", L" PyNetKernel::SendHttpReq Use proxy in thread: %lu");
    static constexpr auto kBeforeDialog =
        OfTwin<Text>(L" NetKernelBase::SendHttpReq", L" Last error before internet error dialog: 0x%08X");
    static constexpr auto kDialogResult =
        OfTwin<Text>(L" NetKernelBase::SendHttpReq", L" InternetErrorDlg result: 0x%08X");
};

}  // namespace kvmpd
