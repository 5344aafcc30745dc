// The internet calls that the project uses, for systems without <wininet.h>, over libcurl. A comment says only where a
// call differs from the documented Windows behaviour; everything else is as documented there, including error numbers.
//
// What the calls have in common:
// - They are synchronous, may be used from any thread, and run no thread of ours. (libcurl resolves a host name that is
//   neither a literal nor "localhost" on a thread of its own, which ends with the look-up.)
// - A handle is a number from a table: a closed or made-up one is refused with ERROR_INVALID_HANDLE, one of another
// kind
//   with ERROR_INTERNET_INCORRECT_HANDLE_TYPE. Closing a handle closes those opened from it, and ends a call that
//   another thread has in progress on one of them with ERROR_INTERNET_OPERATION_CANCELLED.
// - There is no response cache, no cookie and no stored credential. No connection is used for two requests.
// - Narrow text is UTF-8.
// - Servers' certificates are verified against OpenSSL's default store (on Debian /etc/ssl/certs), which is read once
//   and shared by all requests. The environment variable KAVOTRA_MPDSOURCE_CA_FILE may name a PEM file of further
//   authorities; when it cannot be read, https requests fail with ERROR_INTERNET_INVALID_CA.
// - A request holds at most 256 KiB of its body that has not been read yet: the transfer stands still while nobody
//   reads. Response headers may have 256 KiB.
#ifndef PLATFORM_POSIX_WININET_API_H_
#define PLATFORM_POSIX_WININET_API_H_

#include "platform/posix/win32_types.h"

using HINTERNET = LPVOID;
using INTERNET_PORT = WORD;

// --- Error numbers ---

constexpr DWORD ERROR_INTERNET_TIMEOUT = 12002;
constexpr DWORD ERROR_INTERNET_INTERNAL_ERROR = 12004;
constexpr DWORD ERROR_INTERNET_INVALID_URL = 12005;
constexpr DWORD ERROR_INTERNET_UNRECOGNIZED_SCHEME = 12006;
constexpr DWORD ERROR_INTERNET_NAME_NOT_RESOLVED = 12007;
constexpr DWORD ERROR_INTERNET_INVALID_OPTION = 12009;
constexpr DWORD ERROR_INTERNET_BAD_OPTION_LENGTH = 12010;
constexpr DWORD ERROR_INTERNET_OPERATION_CANCELLED = 12017;
constexpr DWORD ERROR_INTERNET_INCORRECT_HANDLE_TYPE = 12018;
constexpr DWORD ERROR_INTERNET_INCORRECT_HANDLE_STATE = 12019;
constexpr DWORD ERROR_INTERNET_CANNOT_CONNECT = 12029;
constexpr DWORD ERROR_INTERNET_CONNECTION_ABORTED = 12030;
constexpr DWORD ERROR_INTERNET_CONNECTION_RESET = 12031;
constexpr DWORD ERROR_INTERNET_FORCE_RETRY = 12032;
constexpr DWORD ERROR_INTERNET_SEC_CERT_DATE_INVALID = 12037;
constexpr DWORD ERROR_INTERNET_SEC_CERT_CN_INVALID = 12038;
constexpr DWORD ERROR_INTERNET_CLIENT_AUTH_CERT_NEEDED = 12044;
constexpr DWORD ERROR_INTERNET_INVALID_CA = 12045;
constexpr DWORD ERROR_HTTP_HEADER_NOT_FOUND = 12150;
constexpr DWORD ERROR_HTTP_INVALID_SERVER_RESPONSE = 12152;
constexpr DWORD ERROR_HTTP_INVALID_HEADER = 12153;
constexpr DWORD ERROR_HTTP_INVALID_QUERY_REQUEST = 12154;
constexpr DWORD ERROR_HTTP_REDIRECT_FAILED = 12156;
constexpr DWORD ERROR_INTERNET_SECURITY_CHANNEL_ERROR = 12157;
constexpr DWORD ERROR_INTERNET_SEC_CERT_REVOKED = 12170;

// --- Sessions and connections ---

constexpr DWORD INTERNET_OPEN_TYPE_PRECONFIG = 0;
constexpr DWORD INTERNET_OPEN_TYPE_DIRECT = 1;
constexpr DWORD INTERNET_OPEN_TYPE_PROXY = 3;

// The preconfigured access type takes its proxies from the environment, as curl documents it (http_proxy, https_proxy,
// all_proxy, no_proxy). A bypass list is handed to curl as its "no proxy" list: host names and domain suffixes.
HINTERNET InternetOpenA(LPCSTR agent, DWORD accessType, LPCSTR proxy, LPCSTR proxyBypass, DWORD flags);
HINTERNET InternetOpenW(LPCWSTR agent, DWORD accessType, LPCWSTR proxy, LPCWSTR proxyBypass, DWORD flags);

constexpr INTERNET_PORT INTERNET_INVALID_PORT_NUMBER = 0;
constexpr INTERNET_PORT INTERNET_DEFAULT_HTTP_PORT = 80;
constexpr INTERNET_PORT INTERNET_DEFAULT_HTTPS_PORT = 443;
constexpr DWORD INTERNET_SERVICE_HTTP = 3;

// Service must be HTTP; user name and password must be null or empty (ERROR_INVALID_PARAMETER).
HINTERNET InternetConnectA(HINTERNET session, LPCSTR serverName, INTERNET_PORT serverPort, LPCSTR userName,
                           LPCSTR password, DWORD service, DWORD flags, DWORD_PTR context);
HINTERNET InternetConnectW(HINTERNET session, LPCWSTR serverName, INTERNET_PORT serverPort, LPCWSTR userName,
                           LPCWSTR password, DWORD service, DWORD flags, DWORD_PTR context);

BOOL InternetCloseHandle(HINTERNET handle);

// --- Options ---

constexpr DWORD INTERNET_OPTION_SEND_TIMEOUT = 5;     // of sessions (for later requests) and requests
constexpr DWORD INTERNET_OPTION_RECEIVE_TIMEOUT = 6;  // of sessions (for later requests) and requests
constexpr DWORD INTERNET_OPTION_PROXY = 38;           // of sessions, for requests sent from now on

// The texts are wide for InternetSetOptionW and narrow for InternetSetOptionA, whatever the members' type says.
struct INTERNET_PROXY_INFO {
    DWORD dwAccessType;
    LPCWSTR lpszProxy;
    LPCWSTR lpszProxyBypass;
};

// Other options are refused with ERROR_INTERNET_INVALID_OPTION. The receive time-out bounds the silence of the server
// from the moment the connection stands; connecting itself may take 60 seconds.
BOOL InternetSetOptionA(HINTERNET handle, DWORD option, LPVOID buffer, DWORD bufferLength);
BOOL InternetSetOptionW(HINTERNET handle, DWORD option, LPVOID buffer, DWORD bufferLength);

// --- Requests ---

constexpr DWORD INTERNET_FLAG_RESYNCHRONIZE = 0x00000800;  // no cache, so nothing to do
constexpr DWORD INTERNET_FLAG_NO_COOKIES = 0x00080000;     // always so
constexpr DWORD INTERNET_FLAG_SECURE = 0x00800000;

// Flags without a comment above are ignored. Accept types must be null. The version is always HTTP/1.1.
HINTERNET HttpOpenRequestA(HINTERNET connection, LPCSTR verb, LPCSTR objectName, LPCSTR version, LPCSTR referrer,
                           LPCSTR* acceptTypes, DWORD flags, DWORD_PTR context);
HINTERNET HttpOpenRequestW(HINTERNET connection, LPCWSTR verb, LPCWSTR objectName, LPCWSTR version, LPCWSTR referrer,
                           LPCWSTR* acceptTypes, DWORD flags, DWORD_PTR context);

// A request handle serves one request; a second send is refused (ERROR_INTERNET_INCORRECT_HANDLE_STATE). The call
// returns when the response's headers are there. Up to ten redirects are followed, within http and https in either
// direction; one more, or one to another scheme, is ERROR_HTTP_REDIRECT_FAILED. Header lines without a colon and a
// "Host" without a value are left out. Bodies are delivered as they were sent, never decompressed.
BOOL HttpSendRequestA(HINTERNET request, LPCSTR headers, DWORD headersLength, LPVOID optional, DWORD optionalLength);
BOOL HttpSendRequestW(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID optional, DWORD optionalLength);

struct INTERNET_BUFFERSA {
    DWORD dwStructSize;
    INTERNET_BUFFERSA* Next;
    LPCSTR lpcszHeader;
    DWORD dwHeadersLength;
    DWORD dwHeadersTotal;
    LPVOID lpvBuffer;
    DWORD dwBufferLength;
    DWORD dwBufferTotal;
    DWORD dwOffsetLow;
    DWORD dwOffsetHigh;
};

struct INTERNET_BUFFERSW {
    DWORD dwStructSize;
    INTERNET_BUFFERSW* Next;
    LPCWSTR lpcszHeader;
    DWORD dwHeadersLength;
    DWORD dwHeadersTotal;
    LPVOID lpvBuffer;
    DWORD dwBufferLength;
    DWORD dwBufferTotal;
    DWORD dwOffsetLow;
    DWORD dwOffsetHigh;
};

// One buffer structure, without data of its own (lpvBuffer); dwBufferTotal announces the body that InternetWriteFile
// delivers. Flags are ignored.
BOOL HttpSendRequestExA(HINTERNET request, INTERNET_BUFFERSA* buffersIn, INTERNET_BUFFERSA* buffersOut, DWORD flags,
                        DWORD_PTR context);
BOOL HttpSendRequestExW(HINTERNET request, INTERNET_BUFFERSW* buffersIn, INTERNET_BUFFERSW* buffersOut, DWORD flags,
                        DWORD_PTR context);

// Bytes beyond the announced total are refused with ERROR_INVALID_PARAMETER. Once the server has answered, what is left
// of the body counts as written but is not sent.
BOOL InternetWriteFile(HINTERNET request, LPCVOID buffer, DWORD bytesToWrite, LPDWORD bytesWritten);
BOOL HttpEndRequestW(HINTERNET request, INTERNET_BUFFERSW* buffersOut, DWORD flags, DWORD_PTR context);

constexpr DWORD HTTP_QUERY_CONTENT_TYPE = 1;
constexpr DWORD HTTP_QUERY_CONTENT_LENGTH = 5;
constexpr DWORD HTTP_QUERY_STATUS_CODE = 19;
constexpr DWORD HTTP_QUERY_ETAG = 54;
constexpr DWORD HTTP_QUERY_CUSTOM = 65535;
constexpr DWORD HTTP_QUERY_FLAG_NUMBER = 0x20000000;
constexpr DWORD HTTP_QUERY_FLAG_NUMBER64 = 0x08000000;

// Other headers are asked for by name (HTTP_QUERY_CUSTOM); another query is ERROR_HTTP_INVALID_QUERY_REQUEST.
BOOL HttpQueryInfoA(HINTERNET request, DWORD infoLevel, LPVOID buffer, LPDWORD bufferLength, LPDWORD index);

// Waits until the buffer is full or the body has ended. Bytes that came before a failure are delivered first: the next
// read reports the failure, and so does every one after it.
BOOL InternetReadFile(HINTERNET request, LPVOID buffer, DWORD bytesToRead, LPDWORD bytesRead);

// --- The error dialog ---

constexpr DWORD FLAGS_ERROR_UI_FILTER_FOR_ERRORS = 1;
constexpr DWORD FLAGS_ERROR_UI_FLAGS_CHANGE_OPTIONS = 2;
constexpr DWORD FLAGS_ERROR_UI_FLAGS_GENERATE_DATA = 4;
constexpr DWORD FLAGS_ERROR_UI_FLAGS_NO_UI = 8;

// There is nobody to ask: an untrustworthy certificate is always answered as if the user had declined it
// (ERROR_CANCELLED), every other error needs no dialog (ERROR_SUCCESS). Any window that is not null is taken for one.
DWORD InternetErrorDlg(HWND window, HINTERNET request, DWORD error, DWORD flags, LPVOID* data);

#endif  // PLATFORM_POSIX_WININET_API_H_
