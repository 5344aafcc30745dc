#include "tests/fuzz/FakeInternet.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "common/Text.h"
#include "tests/fuzz/MediaPattern.h"

namespace kvmpd::test {
namespace {

/// A session, a connection or a request; only a request uses more than its existence.
struct FakeHandle {
    FakeHandle() { ++FakeInternet::Get().handles; }
    ~FakeHandle() { --FakeInternet::Get().handles; }
    FakeHandle(const FakeHandle&) = delete;
    FakeHandle& operator=(const FakeHandle&) = delete;

    std::string path = {};
    FakeInternet::Response response = {};
    size_t taken = 0;
};

FakeHandle& Of(HINTERNET handle) {
    return *static_cast<FakeHandle*>(handle);
}

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

HINTERNET OpenRequest(std::string path) {
    auto request = std::make_unique<FakeHandle>();
    request->path = std::move(path);
    return request.release();
}

BOOL Send(HINTERNET request) {
    FakeHandle& handle = Of(request);
    handle.response = FakeInternet::Get().Answer(handle.path);
    return handle.response.sent ? TRUE : Fail(ERROR_INTERNET_CANNOT_CONNECT);
}

template <class Number>
BOOL Put(std::uint64_t number, LPVOID buffer, LPDWORD length) {
    const auto value = static_cast<Number>(number);
    std::memcpy(buffer, &value, sizeof(value));
    *length = sizeof(value);
    return TRUE;
}

bool IsManifest(std::string_view path) {
    return path.ends_with(".mpd");
}

}  // namespace

FakeInternet& FakeInternet::Get() {
    static FakeInternet internet;
    return internet;
}

void FakeInternet::Reset() {
    const std::lock_guard lock(m_mutex);
    m_manifest.clear();
    m_videoSize = m_audioSize = 0;
    m_manifestFault = m_mediaFault = NetworkFault::kNone;
    m_spoiled = 0;
    m_media.clear();
}

void FakeInternet::SetManifest(std::string manifest) {
    const std::lock_guard lock(m_mutex);
    m_manifest = std::move(manifest);
}

void FakeInternet::SetMediaSize(size_t video, size_t audio) {
    const std::lock_guard lock(m_mutex);
    m_videoSize = video;
    m_audioSize = audio;
}

void FakeInternet::SetFaults(NetworkFault manifest, NetworkFault media) {
    const std::lock_guard lock(m_mutex);
    m_manifestFault = manifest;
    m_mediaFault = media;
}

size_t FakeInternet::SpoiledMedia() const {
    const std::lock_guard lock(m_mutex);
    return m_spoiled;
}

std::optional<FakeInternet::Media> FakeInternet::Find(std::uint32_t id) const {
    const std::lock_guard lock(m_mutex);
    return id > 0 && id <= m_media.size() ? std::optional(m_media[id - 1]) : std::nullopt;
}

FakeInternet::Response FakeInternet::Answer(std::string_view path) {
    const std::lock_guard lock(m_mutex);
    const bool isManifest = IsManifest(path);
    const bool isVideo = path.find("/v") != path.npos;
    const NetworkFault fault = isManifest ? m_manifestFault : m_mediaFault;
    Response response;
    response.sent = true;
    if (isManifest) {
        response.body = m_manifest;
    } else {
        const size_t size = isVideo ? m_videoSize : m_audioSize;
        m_media.push_back({isVideo, size});
        response.body = MediaBody(isVideo, static_cast<std::uint32_t>(m_media.size()), size);
    }
    response.length = response.body.size();
    switch (fault) {
        case NetworkFault::kNone:
            break;
        case NetworkFault::kRefused:
            response = {};
            break;
        case NetworkFault::kNotFound:
            response.status = 404;
            break;
        case NetworkFault::kTruncated:
            ++response.length;
            break;
        case NetworkFault::kReadFails:
            response.endsInFailure = true;
            ++response.length;
            break;
        case NetworkFault::kEmpty:
            response.body.clear();
            response.length = 0;
            break;
        case NetworkFault::kNoLength:
            response.announced = false;
            break;
    }
    const bool whole = fault == NetworkFault::kNone || fault == NetworkFault::kNotFound ||
                       fault == NetworkFault::kNoLength || fault == NetworkFault::kEmpty;
    if (!isManifest && !whole) {
        ++m_spoiled;
        m_media.back().isSpoiled = true;
    }
    return response;
}

}  // namespace kvmpd::test

using kvmpd::test::Fail;
using kvmpd::test::FakeHandle;
using kvmpd::test::FakeInternet;
using kvmpd::test::Of;

HINTERNET InternetOpenA(LPCSTR, DWORD, LPCSTR, LPCSTR, DWORD) {
    return new FakeHandle;
}
HINTERNET InternetOpenW(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) {
    return new FakeHandle;
}

HINTERNET InternetConnectA(HINTERNET, LPCSTR host, INTERNET_PORT, LPCSTR, LPCSTR, DWORD, DWORD, DWORD_PTR) {
    return *host != '\0' ? new FakeHandle : (SetLastError(ERROR_INTERNET_INVALID_URL), nullptr);
}
HINTERNET InternetConnectW(HINTERNET, LPCWSTR host, INTERNET_PORT, LPCWSTR, LPCWSTR, DWORD, DWORD, DWORD_PTR) {
    return *host != L'\0' ? new FakeHandle : (SetLastError(ERROR_INTERNET_INVALID_URL), nullptr);
}

HINTERNET HttpOpenRequestA(HINTERNET, LPCSTR, LPCSTR path, LPCSTR, LPCSTR, LPCSTR*, DWORD, DWORD_PTR) {
    return kvmpd::test::OpenRequest(path);
}
HINTERNET HttpOpenRequestW(HINTERNET, LPCWSTR, LPCWSTR path, LPCWSTR, LPCWSTR, LPCWSTR*, DWORD, DWORD_PTR) {
    return kvmpd::test::OpenRequest(kvmpd::WideToUtf8(path));
}

BOOL InternetCloseHandle(HINTERNET handle) {
    delete &Of(handle);
    return TRUE;
}

BOOL InternetSetOptionW(HINTERNET, DWORD, LPVOID, DWORD) {
    return TRUE;
}

BOOL HttpSendRequestA(HINTERNET request, LPCSTR, DWORD, LPVOID, DWORD) {
    return kvmpd::test::Send(request);
}
BOOL HttpSendRequestW(HINTERNET request, LPCWSTR, DWORD, LPVOID, DWORD) {
    return kvmpd::test::Send(request);
}

BOOL HttpQueryInfoA(HINTERNET request, DWORD what, LPVOID buffer, LPDWORD length, LPDWORD) {
    const FakeInternet::Response& response = Of(request).response;
    if (!response.sent) {
        return Fail(ERROR_INTERNET_INCORRECT_HANDLE_STATE);
    }
    switch (what) {
        case HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER:
            return kvmpd::test::Put<DWORD>(response.status, buffer, length);
        case HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER64:
            return response.announced ? kvmpd::test::Put<ULONGLONG>(response.length, buffer, length)
                                      : Fail(ERROR_HTTP_HEADER_NOT_FOUND);
        default:
            return Fail(ERROR_HTTP_HEADER_NOT_FOUND);
    }
}

BOOL InternetReadFile(HINTERNET request, LPVOID buffer, DWORD size, LPDWORD count) {
    FakeHandle& handle = Of(request);
    const std::string_view rest = std::string_view(handle.response.body).substr(handle.taken);
    const size_t part = std::min<size_t>(rest.size(), size);
    if (part == 0 && handle.response.endsInFailure) {
        return Fail(ERROR_INTERNET_CONNECTION_RESET);
    }
    std::memcpy(buffer, rest.data(), part);
    handle.taken += part;
    *count = static_cast<DWORD>(part);
    return TRUE;
}

// The component uploads nothing and names no proxy.
BOOL HttpSendRequestExA(HINTERNET, INTERNET_BUFFERSA*, INTERNET_BUFFERSA*, DWORD, DWORD_PTR) {
    return Fail(ERROR_INTERNET_INTERNAL_ERROR);
}
BOOL HttpSendRequestExW(HINTERNET, INTERNET_BUFFERSW*, INTERNET_BUFFERSW*, DWORD, DWORD_PTR) {
    return Fail(ERROR_INTERNET_INTERNAL_ERROR);
}
BOOL InternetWriteFile(HINTERNET, LPCVOID, DWORD, LPDWORD) {
    return Fail(ERROR_INTERNET_INTERNAL_ERROR);
}
BOOL HttpEndRequestW(HINTERNET, INTERNET_BUFFERSW*, DWORD, DWORD_PTR) {
    return Fail(ERROR_INTERNET_INTERNAL_ERROR);
}
DWORD InternetErrorDlg(HWND, HINTERNET, DWORD, DWORD, LPVOID*) {
    return ERROR_INTERNET_FORCE_RETRY;
}
