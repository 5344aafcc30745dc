#include "tests/net/PlatformCalls.h"

#include <algorithm>
#include <cstdio>

#include "common/Text.h"

namespace {

using kvmpd::test::PlatformCalls;

thread_local PlatformCalls* t_watcher = nullptr;

std::string Narrow(const char* text) {
    return text != nullptr ? text : "";
}
std::string Narrow(const wchar_t* text) {
    return text != nullptr ? kvmpd::WideToUtf8(text) : "";
}
std::string Narrow(const char* text, DWORD length) {
    return {text, length};
}
std::string Narrow(const wchar_t* text, DWORD length) {
    return kvmpd::WideToUtf8({text, length});
}

std::string Hex(DWORD value) {
    char text[11];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(value));
    return text;
}

void Note(std::string call) {
    if (t_watcher != nullptr) {
        t_watcher->calls.push_back(std::move(call));
    }
}

/// Whether a call is to fail with `error`, which is then the thread's last error.
bool Fails(DWORD error) {
    if (t_watcher == nullptr || error == 0) {
        return false;
    }
    SetLastError(error);
    return true;
}

template <class Char, class Real>
HINTERNET Open(const Char* agent, DWORD access, const Char* proxy, const Char* bypass, DWORD flags, Real real) {
    Note("InternetOpen " + Narrow(agent) + " " + std::to_string(access));
    if (t_watcher != nullptr && Fails(t_watcher->openError)) {
        return nullptr;
    }
    const HINTERNET handle = real(agent, access, proxy, bypass, flags);
    if (t_watcher != nullptr) {
        t_watcher->session = handle;
    }
    return handle;
}

template <class Char, class Real>
HINTERNET Connect(HINTERNET session, const Char* host, INTERNET_PORT port, const Char* user, const Char* password,
                  DWORD service, DWORD flags, DWORD_PTR context, Real real) {
    Note("InternetConnect " + Narrow(host) + " " + std::to_string(port) + " " + std::to_string(service) + " " +
         std::to_string(flags) + " " + std::to_string(context));
    const HINTERNET handle = real(session, host, port, user, password, service, flags, context);
    if (t_watcher != nullptr) {
        t_watcher->connection = handle;
    }
    return handle;
}

template <class Char, class Real>
HINTERNET OpenRequest(HINTERNET connection, const Char* verb, const Char* path, const Char* version,
                      const Char* referrer, const Char** accept, DWORD flags, DWORD_PTR context, Real real) {
    Note("HttpOpenRequest " + Narrow(verb) + " " + Narrow(path) + " " + Hex(flags) + " " + std::to_string(context));
    if (t_watcher != nullptr && Fails(t_watcher->openRequestError)) {
        return nullptr;
    }
    const HINTERNET handle = real(connection, verb, path, version, referrer, accept, flags, context);
    if (t_watcher != nullptr) {
        t_watcher->request = handle;
    }
    return handle;
}

template <class Char, class Real>
BOOL Send(HINTERNET request, const Char* headers, DWORD length, LPVOID optional, DWORD optionalLength, Real real) {
    if (t_watcher != nullptr) {
        t_watcher->headers.push_back(Narrow(headers, length));
    }
    const BOOL sent = real(request, headers, length, optional, optionalLength);
    return t_watcher != nullptr && Fails(t_watcher->sendError) ? FALSE : sent;
}

}  // namespace

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
HINTERNET __real__Z13InternetOpenAPKcjS0_S0_j(LPCSTR, DWORD, LPCSTR, LPCSTR, DWORD);
HINTERNET __real__Z13InternetOpenWPKwjS0_S0_j(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD);
HINTERNET __real__Z16InternetConnectAPvPKctS1_S1_jjm(HINTERNET, LPCSTR, INTERNET_PORT, LPCSTR, LPCSTR, DWORD, DWORD,
                                                     DWORD_PTR);
HINTERNET __real__Z16InternetConnectWPvPKwtS1_S1_jjm(HINTERNET, LPCWSTR, INTERNET_PORT, LPCWSTR, LPCWSTR, DWORD, DWORD,
                                                     DWORD_PTR);
HINTERNET __real__Z16HttpOpenRequestAPvPKcS1_S1_S1_PS1_jm(HINTERNET, LPCSTR, LPCSTR, LPCSTR, LPCSTR, LPCSTR*, DWORD,
                                                          DWORD_PTR);
HINTERNET __real__Z16HttpOpenRequestWPvPKwS1_S1_S1_PS1_jm(HINTERNET, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR*,
                                                          DWORD, DWORD_PTR);
BOOL __real__Z16HttpSendRequestAPvPKcjS_j(HINTERNET, LPCSTR, DWORD, LPVOID, DWORD);
BOOL __real__Z16HttpSendRequestWPvPKwjS_j(HINTERNET, LPCWSTR, DWORD, LPVOID, DWORD);
BOOL __real__Z18InternetSetOptionWPvjS_j(HINTERNET, DWORD, LPVOID, DWORD);
BOOL __real__Z14HttpQueryInfoAPvjS_PjS0_(HINTERNET, DWORD, LPVOID, LPDWORD, LPDWORD);
DWORD __real__Z16InternetErrorDlgP6HWND__PvjjPS1_(HWND, HINTERNET, DWORD, DWORD, LPVOID*);
BOOL __real__Z19InternetCloseHandlePv(HINTERNET);

HINTERNET __wrap__Z13InternetOpenAPKcjS0_S0_j(LPCSTR agent, DWORD access, LPCSTR proxy, LPCSTR bypass, DWORD flags) {
    return Open(agent, access, proxy, bypass, flags, &__real__Z13InternetOpenAPKcjS0_S0_j);
}
HINTERNET __wrap__Z13InternetOpenWPKwjS0_S0_j(LPCWSTR agent, DWORD access, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
    return Open(agent, access, proxy, bypass, flags, &__real__Z13InternetOpenWPKwjS0_S0_j);
}
HINTERNET __wrap__Z16InternetConnectAPvPKctS1_S1_jjm(HINTERNET session, LPCSTR host, INTERNET_PORT port, LPCSTR user,
                                                     LPCSTR password, DWORD service, DWORD flags, DWORD_PTR context) {
    return Connect(session, host, port, user, password, service, flags, context,
                   &__real__Z16InternetConnectAPvPKctS1_S1_jjm);
}
HINTERNET __wrap__Z16InternetConnectWPvPKwtS1_S1_jjm(HINTERNET session, LPCWSTR host, INTERNET_PORT port, LPCWSTR user,
                                                     LPCWSTR password, DWORD service, DWORD flags, DWORD_PTR context) {
    return Connect(session, host, port, user, password, service, flags, context,
                   &__real__Z16InternetConnectWPvPKwtS1_S1_jjm);
}
HINTERNET __wrap__Z16HttpOpenRequestAPvPKcS1_S1_S1_PS1_jm(HINTERNET connection, LPCSTR verb, LPCSTR path,
                                                          LPCSTR version, LPCSTR referrer, LPCSTR* accept, DWORD flags,
                                                          DWORD_PTR context) {
    return OpenRequest(connection, verb, path, version, referrer, accept, flags, context,
                       &__real__Z16HttpOpenRequestAPvPKcS1_S1_S1_PS1_jm);
}
HINTERNET __wrap__Z16HttpOpenRequestWPvPKwS1_S1_S1_PS1_jm(HINTERNET connection, LPCWSTR verb, LPCWSTR path,
                                                          LPCWSTR version, LPCWSTR referrer, LPCWSTR* accept,
                                                          DWORD flags, DWORD_PTR context) {
    return OpenRequest(connection, verb, path, version, referrer, accept, flags, context,
                       &__real__Z16HttpOpenRequestWPvPKwS1_S1_S1_PS1_jm);
}
BOOL __wrap__Z16HttpSendRequestAPvPKcjS_j(HINTERNET request, LPCSTR headers, DWORD length, LPVOID optional,
                                          DWORD optionalLength) {
    return Send(request, headers, length, optional, optionalLength, &__real__Z16HttpSendRequestAPvPKcjS_j);
}
BOOL __wrap__Z16HttpSendRequestWPvPKwjS_j(HINTERNET request, LPCWSTR headers, DWORD length, LPVOID optional,
                                          DWORD optionalLength) {
    return Send(request, headers, length, optional, optionalLength, &__real__Z16HttpSendRequestWPvPKwjS_j);
}

BOOL __wrap__Z18InternetSetOptionWPvjS_j(HINTERNET handle, DWORD option, LPVOID buffer, DWORD length) {
    if (option == INTERNET_OPTION_PROXY) {
        const INTERNET_PROXY_INFO& info = *static_cast<const INTERNET_PROXY_INFO*>(buffer);
        const std::string address = Narrow(reinterpret_cast<const wchar_t*>(info.lpszProxy));
        Note("proxy " + std::to_string(info.dwAccessType) + (address.empty() ? "" : " " + address));
    } else {
        Note("option " + std::to_string(option) + " = " + std::to_string(*static_cast<const DWORD*>(buffer)));
    }
    if (t_watcher != nullptr) {
        const auto failure = t_watcher->optionErrors.find(option);
        if (failure != t_watcher->optionErrors.end() && Fails(failure->second)) {
            return FALSE;
        }
    }
    return __real__Z18InternetSetOptionWPvjS_j(handle, option, buffer, length);
}

BOOL __wrap__Z14HttpQueryInfoAPvjS_PjS0_(HINTERNET request, DWORD level, LPVOID buffer, LPDWORD length, LPDWORD index) {
    if (level == (HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER) && t_watcher != nullptr &&
        Fails(t_watcher->statusError)) {
        return FALSE;
    }
    return __real__Z14HttpQueryInfoAPvjS_PjS0_(request, level, buffer, length, index);
}

DWORD __wrap__Z16InternetErrorDlgP6HWND__PvjjPS1_(HWND window, HINTERNET request, DWORD error, DWORD flags,
                                                  LPVOID* data) {
    Note("InternetErrorDlg " + std::to_string(reinterpret_cast<std::uintptr_t>(window)) + " " + std::to_string(error) +
         " " + std::to_string(flags));
    if (t_watcher != nullptr && t_watcher->dialogAnswer) {
        return *t_watcher->dialogAnswer;
    }
    return __real__Z16InternetErrorDlgP6HWND__PvjjPS1_(window, request, error, flags, data);
}

BOOL __wrap__Z19InternetCloseHandlePv(HINTERNET handle) {
    if (t_watcher != nullptr) {
        Note(handle == t_watcher->request      ? "close request"
             : handle == t_watcher->connection ? "close connection"
             : handle == t_watcher->session    ? "close session"
                                               : "close something else");
    }
    return __real__Z19InternetCloseHandlePv(handle);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace kvmpd::test {

PlatformCalls::PlatformCalls() {
    t_watcher = this;
}

PlatformCalls::~PlatformCalls() {
    t_watcher = nullptr;
}

bool PlatformCalls::Called(const std::string& call) const {
    return std::ranges::count(calls, call) > 0;
}

size_t PlatformCalls::CountPrefix(const std::string& text) const {
    return static_cast<size_t>(
        std::ranges::count_if(calls, [&](const std::string& call) { return call.starts_with(text); }));
}

}  // namespace kvmpd::test
