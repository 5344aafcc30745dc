// The HTTP client: blocking requests over the platform's internet calls. A request opens a session, a connection and a
// request handle of its own and closes the three at its end, so no connection is used twice and an idle client holds
// nothing of the network.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/Handle.h"
#include "net/INetKernelBase.h"
#include "net/INetKernelProgress.h"
#include "net/NetKernelDumper.h"
#include "net/SplitUrl.h"
#include "platform/wininet.h"

namespace kvmpd {

struct InternetHandlePolicy {
    using Type = HINTERNET;
    static Type Invalid() noexcept { return nullptr; }
    static bool IsValid(Type handle) noexcept { return handle != nullptr; }
    static void Close(Type handle) noexcept { InternetCloseHandle(handle); }
};
using UniqueInternet = UniqueHandle<InternetHandlePolicy>;

class NetKernelBase : public INetKernelBase, private NetKernelDumper {
  public:
    /// `parentWindow` owns the platform's error dialog, which is only shown when a request names a proxy; `progress`
    /// observes requests and outlives the client. Both may be null.
    explicit NetKernelBase(HWND parentWindow = nullptr, INetKernelProgress* progress = nullptr);
    ~NetKernelBase() override;
    NetKernelBase(const NetKernelBase&) = delete;
    NetKernelBase& operator=(const NetKernelBase&) = delete;

    // INetKernelBase
    void SetReceiveChunkSize(DWORD size) override;
    HRESULT OpenUrl(const char* url, const char* verb, const wchar_t* proxy, BOOL disableProxy, const char* headers,
                    const wchar_t* responseFile, const BYTE* postData, DWORD postLength,
                    INetKernelContentStream* stream) override;
    HRESULT OpenUrlW(const wchar_t* url, const wchar_t* verb, const wchar_t* proxy, BOOL disableProxy,
                     const wchar_t* headers, const wchar_t* responseFile, const BYTE* postData, DWORD postLength,
                     INetKernelContentStream* stream) override;
    void Close() override;
    DWORD Reset() override;
    DWORD GetErrorType() override;
    void SetReceiveTimeout(DWORD milliseconds) override;
    void SetSendTimeout(DWORD milliseconds) override;
    DWORD Reserved8() override;
    DWORD Reserved9() override;

  private:
    friend struct NetKernelBaseTestAccess;

    /// What the caller asked for, in the caller's text type.
    template <class Char>
    struct Request {
        std::basic_string<Char> url;
        const Char* verb;
        const wchar_t* proxy;
        bool disableProxy;
        const Char* headers;
        const wchar_t* responseFile;
        const BYTE* postData;
        DWORD postLength;
        INetKernelContentStream* stream;

        bool HasPostData() const { return postData != nullptr && postLength != 0; }
    };

    /// What became of it.
    struct Outcome {
        DWORD statusCode = 0;
        std::uint64_t contentLength = 0;
        DWORD lastError = 0;
        std::unique_ptr<BYTE[]> buffer;  // the body, when it was received into memory
        BYTE* streamsBuffer = nullptr;   // what the stream put in its place; never freed here

        BYTE* ForObserver() { return buffer ? buffer.release() : streamsBuffer; }
    };

    // The steps of a request. `Text` is what differs between the narrow and the wide twin: the text type, the platform
    // calls and the names in the log.
    template <class Text>
    HRESULT Run(const Request<typename Text::Char>& request);
    template <class Text>
    bool SendUrlRequestImpl(const Request<typename Text::Char>& request, Outcome& outcome);
    template <class Text>
    bool SendAndQuery(const Request<typename Text::Char>& request, Outcome& outcome);
    template <class Text>
    bool PrepareConnection(const typename Text::String& verb, const UrlParts<typename Text::Char>& url);
    template <class Text>
    bool ChooseProxy(const Request<typename Text::Char>& request, bool& proxyInUse);
    template <class Text>
    void SetTimeOuts();
    template <class Text>
    bool SendPostData(const Request<typename Text::Char>& request, const typename Text::String& headers);
    template <class Text>
    bool SendUploadStream(INetKernelContentStream& stream, const typename Text::String& headers);
    template <class Text>
    bool EndRequest();
    template <class Text>
    bool SendHttpReq(bool proxyInUse, const typename Text::String& headers, DWORD& statusCode);
    template <class Text>
    bool ErrorDialogAllows();

    bool WritePostData(const BYTE* data, DWORD length);
    bool WriteStreamContent(INetKernelContentStream& stream, DWORD length);

    bool QueryStatusCode(DWORD& statusCode);
    bool QueryResponseInfo(Outcome& outcome, std::string& contentType, INetKernelContentStream* stream);
    void QueryContentType(std::string& contentType);
    void QueryETag(INetKernelContentStream& stream);
    void QueryWantedHeaders(INetKernelContentStream& stream);

    bool ReceiveUrlDataImpl(Outcome& outcome, const wchar_t* responseFile, INetKernelContentStream* stream);
    bool ReceiveOnePath(Outcome& outcome, const wchar_t* responseFile, INetKernelContentStream* stream);
    bool ReceiveResponseToBuffer(Outcome& outcome);
    bool ReceiveResponseToFile(std::uint64_t length, const std::wstring& path);
    bool ReceiveResponseToStream(std::uint64_t length, INetKernelContentStream& stream);
    bool ReceiveResponseToStream2(std::uint64_t length, INetKernelContentStream& stream);

    /// Whether the observer, if there is one, cancels.
    bool Cancelled(const char* stage, std::uint64_t done, std::uint64_t total);

    BOOL m_bAbort = 0;  // fails a request whose body has been read; nobody sets it yet
    UniqueInternet m_hSession;
    UniqueInternet m_hConnect;
    UniqueInternet m_hRequest;
    HWND m_hParentWnd;
    INetKernelProgress* m_pProgress;
    DWORD m_nErrorType = 0;  // 0 none, 1 a read failed, 2 a read timed out
    DWORD m_nReceiveChunk = 0x20000;
    DWORD m_nReceiveTimeout = 30000;
    DWORD m_nSendTimeout = 0;
};

}  // namespace kvmpd
