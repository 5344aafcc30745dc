// The calls themselves, but for queries: arguments are checked and made narrow, handles looked up.
#include <new>
#include <string>
#include <utility>

#include "platform/posix/wininet_objects.h"

using namespace kvmpd::platform;
using internet::Connection;
using internet::Narrow;
using internet::ObjectOf;
using internet::ObjectTable;
using internet::ProxyChoice;
using internet::Request;
using internet::RequestState;
using internet::Session;

namespace {

/// Runs `call`; when memory runs out, the result is `failed` with the last error set. Nothing else is thrown here.
template <class Result, class Call>
Result Guarded(Result failed, const Call& call) {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return failed;
    }
}

HINTERNET FailHandle(DWORD error) {
    SetLastError(error);
    return nullptr;
}

bool IsAccessType(DWORD type) {
    return type == INTERNET_OPEN_TYPE_PRECONFIG || type == INTERNET_OPEN_TYPE_DIRECT ||
           type == INTERNET_OPEN_TYPE_PROXY;
}

bool IsProxyChoice(const ProxyChoice& choice) {
    return IsAccessType(choice.accessType) && (choice.accessType == INTERNET_OPEN_TYPE_PROXY) == !choice.proxy.empty();
}

template <class Char>
HINTERNET Open(const Char* agent, DWORD accessType, const Char* proxy, const Char* bypass) {
    return Guarded<HINTERNET>(nullptr, [&] {
        ProxyChoice choice{accessType, Narrow(proxy), Narrow(bypass)};
        if (!IsProxyChoice(choice)) {
            return FailHandle(ERROR_INVALID_PARAMETER);
        }
        return ObjectTable::Instance().Insert(std::make_shared<Session>(Narrow(agent), std::move(choice)), nullptr);
    });
}

/// Whether `host` can stand in a URL's authority without changing what is around it.
bool IsHost(const std::string& host) {
    return host.find_first_of("/\\?#@ \t\r\n") == std::string::npos;
}

template <class Char>
HINTERNET Connect(HINTERNET handle, const Char* server, INTERNET_PORT port, const Char* user, const Char* password,
                  DWORD service) {
    return Guarded<HINTERNET>(nullptr, [&]() -> HINTERNET {
        const auto session = ObjectOf<Session>(handle);
        if (session == nullptr) {
            return nullptr;
        }
        std::string host = Narrow(server);
        if (host.empty() || service != INTERNET_SERVICE_HTTP || !Narrow(user).empty() || !Narrow(password).empty()) {
            return FailHandle(ERROR_INVALID_PARAMETER);
        }
        if (!IsHost(host)) {
            return FailHandle(ERROR_INTERNET_INVALID_URL);
        }
        return ObjectTable::Instance().Insert(std::make_shared<Connection>(session, std::move(host), port), handle);
    });
}

template <class Char>
HINTERNET OpenRequest(HINTERNET handle, const Char* verb, const Char* path, const Char** acceptTypes, DWORD flags) {
    return Guarded<HINTERNET>(nullptr, [&]() -> HINTERNET {
        const auto connection = ObjectOf<Connection>(handle);
        if (connection == nullptr) {
            return nullptr;
        }
        if (acceptTypes != nullptr) {
            return FailHandle(ERROR_INVALID_PARAMETER);
        }
        std::string method = Narrow(verb);
        if (method.empty()) {
            method = "GET";
        }
        auto request =
            std::make_shared<Request>(connection, std::move(method), Narrow(path), (flags & INTERNET_FLAG_SECURE) != 0);
        return ObjectTable::Instance().Insert(std::move(request), handle);
    });
}

/// Runs `call` on a request, alone; its result is an error number.
template <class Call>
BOOL OnRequest(HINTERNET handle, const Call& call) {
    return Guarded<BOOL>(FALSE, [&]() -> BOOL {
        const auto request = ObjectOf<Request>(handle);
        if (request == nullptr) {
            return FALSE;
        }
        const LockHold hold(request->busy);
        const DWORD error = call(request->State());
        return error == 0 ? TRUE : FailWith(error);
    });
}

template <class Char>
BOOL Send(HINTERNET handle, const Char* headers, DWORD headersLength, const void* body, DWORD bodyLength) {
    return OnRequest(handle, [&](RequestState& request) {
        std::string content = body == nullptr ? std::string() : std::string(static_cast<const char*>(body), bodyLength);
        return request.Send(Narrow(headers, headersLength), std::move(content), std::nullopt);
    });
}

template <class Buffers>
BOOL SendHead(HINTERNET handle, const Buffers* buffers) {
    return OnRequest(handle, [&](RequestState& request) -> DWORD {
        if (buffers == nullptr) {
            return request.Send({}, {}, 0);
        }
        if (buffers->dwStructSize != sizeof(Buffers) || buffers->Next != nullptr || buffers->lpvBuffer != nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        return request.Send(Narrow(buffers->lpcszHeader, buffers->dwHeadersLength), {}, buffers->dwBufferTotal);
    });
}

template <class Char>
DWORD SetProxyOption(HINTERNET handle, const void* buffer, DWORD length) {
    const auto session = ObjectOf<Session>(handle);
    if (session == nullptr) {
        return GetLastError();
    }
    if (length != sizeof(INTERNET_PROXY_INFO)) {
        return ERROR_INTERNET_BAD_OPTION_LENGTH;
    }
    const INTERNET_PROXY_INFO& info = *static_cast<const INTERNET_PROXY_INFO*>(buffer);
    const auto text = [](LPCWSTR pointer) { return Narrow(reinterpret_cast<const Char*>(pointer)); };
    ProxyChoice choice{info.dwAccessType, text(info.lpszProxy), text(info.lpszProxyBypass)};
    if (!IsProxyChoice(choice)) {
        return ERROR_INVALID_PARAMETER;
    }
    session->SetProxy(std::move(choice));
    return 0;
}

DWORD SetTimeOutOption(HINTERNET handle, DWORD option, const void* buffer, DWORD length) {
    if (length != sizeof(DWORD)) {
        return ERROR_INTERNET_BAD_OPTION_LENGTH;
    }
    const std::chrono::milliseconds value(*static_cast<const DWORD*>(buffer));
    const auto member =
        option == INTERNET_OPTION_RECEIVE_TIMEOUT ? &internet::TimeOuts::receive : &internet::TimeOuts::send;
    if (const auto session = std::dynamic_pointer_cast<Session>(ObjectTable::Instance().Find(handle))) {
        internet::TimeOuts timeOuts = session->GetTimeOuts();
        timeOuts.*member = value;
        session->SetTimeOuts(timeOuts);
        return 0;
    }
    const auto request = ObjectOf<Request>(handle);
    if (request == nullptr) {
        return GetLastError();
    }
    const LockHold hold(request->busy);
    request->State().timeOuts.*member = value;
    return 0;
}

template <class Char>
BOOL SetOption(HINTERNET handle, DWORD option, const void* buffer, DWORD length) {
    return Guarded<BOOL>(FALSE, [&]() -> BOOL {
        DWORD error = ERROR_INTERNET_INVALID_OPTION;
        if (buffer == nullptr) {
            error = ERROR_INVALID_PARAMETER;
        } else if (option == INTERNET_OPTION_PROXY) {
            error = SetProxyOption<Char>(handle, buffer, length);
        } else if (option == INTERNET_OPTION_RECEIVE_TIMEOUT || option == INTERNET_OPTION_SEND_TIMEOUT) {
            error = SetTimeOutOption(handle, option, buffer, length);
        }
        return error == 0 ? TRUE : FailWith(error);
    });
}

}  // namespace

HINTERNET InternetOpenA(LPCSTR agent, DWORD accessType, LPCSTR proxy, LPCSTR proxyBypass, DWORD /*flags*/) {
    return Open(agent, accessType, proxy, proxyBypass);
}

HINTERNET InternetOpenW(LPCWSTR agent, DWORD accessType, LPCWSTR proxy, LPCWSTR proxyBypass, DWORD /*flags*/) {
    return Open(agent, accessType, proxy, proxyBypass);
}

HINTERNET InternetConnectA(HINTERNET session, LPCSTR serverName, INTERNET_PORT serverPort, LPCSTR userName,
                           LPCSTR password, DWORD service, DWORD /*flags*/, DWORD_PTR /*context*/) {
    return Connect(session, serverName, serverPort, userName, password, service);
}

HINTERNET InternetConnectW(HINTERNET session, LPCWSTR serverName, INTERNET_PORT serverPort, LPCWSTR userName,
                           LPCWSTR password, DWORD service, DWORD /*flags*/, DWORD_PTR /*context*/) {
    return Connect(session, serverName, serverPort, userName, password, service);
}

BOOL InternetCloseHandle(HINTERNET handle) {
    return Guarded<BOOL>(
        FALSE, [&]() -> BOOL { return ObjectTable::Instance().Close(handle) ? TRUE : FailWith(ERROR_INVALID_HANDLE); });
}

BOOL InternetSetOptionA(HINTERNET handle, DWORD option, LPVOID buffer, DWORD bufferLength) {
    return SetOption<char>(handle, option, buffer, bufferLength);
}

BOOL InternetSetOptionW(HINTERNET handle, DWORD option, LPVOID buffer, DWORD bufferLength) {
    return SetOption<wchar_t>(handle, option, buffer, bufferLength);
}

HINTERNET HttpOpenRequestA(HINTERNET connection, LPCSTR verb, LPCSTR objectName, LPCSTR /*version*/,
                           LPCSTR /*referrer*/, LPCSTR* acceptTypes, DWORD flags, DWORD_PTR /*context*/) {
    return OpenRequest(connection, verb, objectName, acceptTypes, flags);
}

HINTERNET HttpOpenRequestW(HINTERNET connection, LPCWSTR verb, LPCWSTR objectName, LPCWSTR /*version*/,
                           LPCWSTR /*referrer*/, LPCWSTR* acceptTypes, DWORD flags, DWORD_PTR /*context*/) {
    return OpenRequest(connection, verb, objectName, acceptTypes, flags);
}

BOOL HttpSendRequestA(HINTERNET request, LPCSTR headers, DWORD headersLength, LPVOID optional, DWORD optionalLength) {
    return Send(request, headers, headersLength, optional, optionalLength);
}

BOOL HttpSendRequestW(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID optional, DWORD optionalLength) {
    return Send(request, headers, headersLength, optional, optionalLength);
}

BOOL HttpSendRequestExA(HINTERNET request, INTERNET_BUFFERSA* buffersIn, INTERNET_BUFFERSA* /*buffersOut*/,
                        DWORD /*flags*/, DWORD_PTR /*context*/) {
    return SendHead(request, buffersIn);
}

BOOL HttpSendRequestExW(HINTERNET request, INTERNET_BUFFERSW* buffersIn, INTERNET_BUFFERSW* /*buffersOut*/,
                        DWORD /*flags*/, DWORD_PTR /*context*/) {
    return SendHead(request, buffersIn);
}

BOOL InternetWriteFile(HINTERNET handle, LPCVOID buffer, DWORD bytesToWrite, LPDWORD bytesWritten) {
    if (bytesWritten != nullptr) {
        *bytesWritten = 0;
    }
    return OnRequest(handle, [&](RequestState& request) -> DWORD {
        if (bytesWritten == nullptr || (buffer == nullptr && bytesToWrite != 0)) {
            return ERROR_INVALID_PARAMETER;
        }
        if (!request.sent) {
            return ERROR_INTERNET_INCORRECT_HANDLE_STATE;
        }
        const DWORD error = request.transfer.Write({static_cast<const char*>(buffer), bytesToWrite});
        *bytesWritten = error == 0 ? bytesToWrite : 0;
        return error;
    });
}

BOOL HttpEndRequestW(HINTERNET handle, INTERNET_BUFFERSW* /*buffersOut*/, DWORD /*flags*/, DWORD_PTR /*context*/) {
    return OnRequest(handle, [&](RequestState& request) -> DWORD {
        if (!request.sent) {
            return ERROR_INTERNET_INCORRECT_HANDLE_STATE;
        }
        request.transfer.EndUpload();
        return request.transfer.AwaitResponse();
    });
}

BOOL InternetReadFile(HINTERNET handle, LPVOID buffer, DWORD bytesToRead, LPDWORD bytesRead) {
    if (bytesRead != nullptr) {
        *bytesRead = 0;
    }
    return OnRequest(handle, [&](RequestState& request) -> DWORD {
        if (bytesRead == nullptr || (buffer == nullptr && bytesToRead != 0)) {
            return ERROR_INVALID_PARAMETER;
        }
        if (!request.transfer.HasResponse()) {
            return ERROR_INTERNET_INCORRECT_HANDLE_STATE;
        }
        size_t count = 0;
        const DWORD error = request.transfer.Read({static_cast<char*>(buffer), bytesToRead}, count);
        *bytesRead = static_cast<DWORD>(count);
        return error;
    });
}

DWORD InternetErrorDlg(HWND window, HINTERNET handle, DWORD error, DWORD flags, LPVOID* /*data*/) {
    if (window == nullptr && (flags & FLAGS_ERROR_UI_FLAGS_NO_UI) == 0) {
        return ERROR_INVALID_HANDLE;
    }
    if (handle != nullptr && ObjectOf<Request>(handle) == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    switch (error) {
        case ERROR_INTERNET_SEC_CERT_DATE_INVALID:
        case ERROR_INTERNET_SEC_CERT_CN_INVALID:
        case ERROR_INTERNET_CLIENT_AUTH_CERT_NEEDED:
        case ERROR_INTERNET_INVALID_CA:
        case ERROR_INTERNET_SEC_CERT_REVOKED:
            return ERROR_CANCELLED;
        default:
            return ERROR_SUCCESS;
    }
}
