// What differs between the narrow and the wide twin of a request: the text type, the platform calls of that width, and
// the names under which the two log the same events.
#pragma once

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

    static constexpr wchar_t kOpen[] = L" NetKernelBase::OpenUrl open URL: %s";
    static constexpr wchar_t kFileTooLong[] =
        L"[Error] NetKernelBase::OpenUrl  Response file length too long (%d): '%s' ";
    static constexpr wchar_t kSendFailed[] = L"[Error] NetKernelBase::OpenUrl Fail to send URL request: %s";
    static constexpr wchar_t kReceiveFailed[] = L"[Error] NetKernelBase::OpenUrl Fail to receive URL request: %s";

    static constexpr wchar_t kInternetOpenFailed[] =
        L"[Error] NetKernelBase::PrepareConnection InternetOpen failed, last error: %lu";
    static constexpr wchar_t kInternetConnectFailed[] =
        L"[Error] NetKernelBase::PrepareConnection InternetConnect failed, last error: %lu";
    static constexpr wchar_t kHttpOpenRequestFailed[] =
        L"[Error] NetKernelBase::PrepareConnection HttpOpenRequest failed, last error: %lu";

    static constexpr wchar_t kDisableProxy[] = L" NetKernelBase::SendUrlRequestImpl Disable proxy. Success: %s";
    static constexpr wchar_t kSendTimeout[] =
        L" NetKernelBase::SendUrlRequestImpl Set send timeout to: %lu Success: %s";
    static constexpr wchar_t kSendRequestExFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImpl HttpSendRequestEx failed, last error: %lu";
    static constexpr wchar_t kWriteFailed[] = L"[Error] NetKernelBase::SendUrlRequestImpl Write content failed.";
    static constexpr wchar_t kEndRequestFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImpl HttpEndRequest failed, last error: %lu";
    static constexpr wchar_t kUploadWithoutLength[] =
        L"[Error] NetKernelBase::SendUrlRequestImpl Has upload stream but return 0 content length, should be error.";
    static constexpr wchar_t kUploadSendFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImpl HttpSendRequestExA failed, last error: %lu";
    static constexpr wchar_t kUploadLength[] =
        L" NetKernelBase::SendUrlRequestImpl Send request with Content-Length: %lu";
    static constexpr wchar_t kUploadFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImpl Write stream content failed.";
    static constexpr wchar_t kUploadWritten[] = L" NetKernelBase::SendUrlRequestImpl Write stream content success.";
    static constexpr wchar_t kUploadEnded[] = L" NetKernelBase::SendUrlRequestImpl HttpEndRequest success";
    static constexpr wchar_t kUploadSent[] = L" NetKernelBase::SendUrlRequestImpl Send multi-part request success end.";
    static constexpr wchar_t kPlainSendFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImpl SendHttpReq failed, last error: %lu";
    static constexpr wchar_t kQueryFailed[] = L"[Error] NetKernelBase::SendUrlRequestImpl QueryResponseInfo failed.";

    static constexpr wchar_t kUseProxy[] =
        L" NetKernelBase::SendHttpReq PyNetKernel::SendHttpReq Use proxy in thread: %lu";
    static constexpr wchar_t kBeforeDialog[] =
        L" NetKernelBase::SendHttpReq Last error before internet error dialog: 0x%08X";
    static constexpr wchar_t kDialogResult[] = L" NetKernelBase::SendHttpReq InternetErrorDlg result: 0x%08X";
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

    static constexpr wchar_t kOpen[] = L" NetKernelBase::OpenUrlW open URL: %s";
    static constexpr wchar_t kFileTooLong[] =
        L"[Error] NetKernelBase::OpenUrlW [NetKernelBase][Error] NetKernelBase::OpenUrlW Response file length too long "
        L"(%d): '%s' ";
    static constexpr wchar_t kSendFailed[] = L"[Error] NetKernelBase::OpenUrlW Fail to send URL request: %s";
    static constexpr wchar_t kReceiveFailed[] = L"[Error] NetKernelBase::OpenUrlW Fail to receive URL request: %s";

    static constexpr wchar_t kInternetOpenFailed[] =
        L"[Error] NetKernelBase::PrepareConnectionW InternetOpen failed, last error: %lu";
    static constexpr wchar_t kInternetConnectFailed[] =
        L"[Error] NetKernelBase::PrepareConnectionW InternetConnect failed, last error: %lu";
    static constexpr wchar_t kHttpOpenRequestFailed[] =
        L"[Error] NetKernelBase::PrepareConnectionW HttpOpenRequest failed, last error: %lu";

    static constexpr wchar_t kDisableProxy[] = L" NetKernelBase::SendUrlRequestImplW Disable proxy. Success: %s";
    static constexpr wchar_t kSendTimeout[] =
        L" NetKernelBase::SendUrlRequestImplW Set send timeout to: %lu Success: %s";
    static constexpr wchar_t kSendRequestExFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImplW HttpSendRequestEx failed, last error: %lu";
    static constexpr wchar_t kWriteFailed[] = L"[Error] NetKernelBase::SendUrlRequestImplW Write content failed.";
    static constexpr wchar_t kEndRequestFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImplW HttpEndRequest failed, last error: %lu";
    static constexpr wchar_t kUploadWithoutLength[] =
        L"[Error] NetKernelBase::SendUrlRequestImplW Has upload stream but return 0 content length, should be error.";
    static constexpr wchar_t kUploadSendFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImplW HttpSendRequestExA failed, last error: %lu";
    static constexpr wchar_t kUploadLength[] =
        L" NetKernelBase::SendUrlRequestImplW Send request with Content-Length: %lu";
    static constexpr wchar_t kUploadFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImplW Write stream content failed.";
    static constexpr wchar_t kUploadWritten[] = L" NetKernelBase::SendUrlRequestImplW Write stream content success.";
    static constexpr wchar_t kUploadEnded[] = L" NetKernelBase::SendUrlRequestImplW HttpEndRequest success";
    static constexpr wchar_t kUploadSent[] =
        L" NetKernelBase::SendUrlRequestImplW Send multi-part request success end.";
    static constexpr wchar_t kPlainSendFailed[] =
        L"[Error] NetKernelBase::SendUrlRequestImplW SendHttpReq failed, last error: %lu";
    static constexpr wchar_t kQueryFailed[] = L"[Error] NetKernelBase::SendUrlRequestImplW QueryResponseInfo failed.";

    static constexpr wchar_t kUseProxy[] =
        L" NetKernelBase::SendHttpReqW PyNetKernel::SendHttpReq Use proxy in thread: %lu";
    static constexpr wchar_t kBeforeDialog[] =
        L" NetKernelBase::SendHttpReqW Last error before internet error dialog: 0x%08X";
    static constexpr wchar_t kDialogResult[] = L" NetKernelBase::SendHttpReqW InternetErrorDlg result: 0x%08X";
};

}  // namespace kvmpd
