// The second half of a request: the response's headers and body.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "common/Log.h"
#include "net/HttpLimits.h"
#include "net/NetKernelBase.h"

namespace kvmpd {
namespace {

constexpr size_t kTextSize = 260;  // first guess for the size of a header's value
constexpr size_t kETagSize = 256;
constexpr size_t kBufferWithoutLength = 4096;
constexpr DWORD kReadFailed = 1;
constexpr DWORD kReadTimedOut = 2;

std::unique_ptr<BYTE[]> NewBuffer(size_t size) {
    return std::make_unique_for_overwrite<BYTE[]>(size);
}

/// One response header asked for by its name, null-terminated in `value`; false when the response has none.
bool QueryCustomHeader(HINTERNET request, const std::string& name, std::vector<char>& value) {
    value.assign(std::max(kTextSize, name.size() + 1), '\0');
    for (int attempt = 0; attempt < 2; ++attempt) {
        std::memcpy(value.data(), name.c_str(), name.size() + 1);
        DWORD length = static_cast<DWORD>(value.size());
        if (HttpQueryInfoA(request, HTTP_QUERY_CUSTOM, value.data(), &length, nullptr) != 0) {
            return true;
        }
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
            return false;
        }
        value.assign(std::max<size_t>(size_t{length} + 1, name.size() + 1), '\0');
    }
    return false;
}

/// A file that is appended to. What cannot be written is lost without a word, as with any output stream nobody asks.
class AppendedFile {
  public:
    explicit AppendedFile(const std::wstring& path)
        : m_file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL, nullptr)) {
        if (m_file) {
            SetFilePointer(m_file.get(), 0, nullptr, FILE_END);
        }
    }
    void Append(const BYTE* data, DWORD size) {
        DWORD written = 0;
        if (m_file && WriteFile(m_file.get(), data, size, &written, nullptr) == 0) {
            m_file.reset();
        }
    }

  private:
    UniqueFile m_file;
};

}  // namespace

bool NetKernelBase::QueryStatusCode(DWORD& statusCode) {
    DWORD size = sizeof(statusCode);
    return HttpQueryInfoA(m_hRequest.get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &statusCode, &size,
                          nullptr) != 0;
}

bool NetKernelBase::QueryResponseInfo(Outcome& outcome, std::string& contentType, INetKernelContentStream* stream) {
    if (!QueryStatusCode(outcome.statusCode)) {
        Log(3, L"[Error] NetKernelBase::QueryResponseInfo Status code query failed, error code: %lu", GetLastError());
        return false;
    }
    ULONGLONG length = 0;
    DWORD size = sizeof(length);
    if (HttpQueryInfoA(m_hRequest.get(), HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER64, &length, &size,
                       nullptr) != 0) {
        outcome.contentLength = length;
    }
    QueryContentType(contentType);
    if (stream == nullptr) {
        return true;
    }
    stream->OnContentLength(outcome.contentLength);
    stream->OnContentType(contentType.c_str());
    QueryETag(*stream);
    if (stream->WantsHeaders() != 0) {
        QueryWantedHeaders(*stream);
    }
    return true;
}

void NetKernelBase::QueryContentType(std::string& contentType) {
    contentType.assign(kTextSize, '\0');
    DWORD length = kTextSize;
    BOOL found = HttpQueryInfoA(m_hRequest.get(), HTTP_QUERY_CONTENT_TYPE, contentType.data(), &length, nullptr);
    if (found == 0 && GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        contentType.assign(size_t{length} + 1, '\0');
        length = static_cast<DWORD>(contentType.size());
        found = HttpQueryInfoA(m_hRequest.get(), HTTP_QUERY_CONTENT_TYPE, contentType.data(), &length, nullptr);
    }
    if (length < contentType.size()) {
        contentType[length] = '\0';
    }
}

void NetKernelBase::QueryETag(INetKernelContentStream& stream) {
    char etag[kETagSize] = {};
    DWORD length = sizeof(etag);
    if (HttpQueryInfoA(m_hRequest.get(), HTTP_QUERY_ETAG, etag, &length, nullptr) != 0) {
        Log(3, L" NetKernelBase::QueryResponseInfo Response ETag: %s", etag);
        stream.OnETag(etag);
    }
}

void NetKernelBase::QueryWantedHeaders(INetKernelContentStream& stream) {
    std::vector<char> value;
    for (const std::string& name : stream.GetQueryHeaders()) {
        Log(3, L" NetKernelBase::QueryResponseInfo Query header: %s", name);
        if (QueryCustomHeader(m_hRequest.get(), name, value)) {
            stream.OnQueryHeader(name, value.data());
        }
    }
}

bool NetKernelBase::ReceiveUrlDataImpl(Outcome& outcome, const wchar_t* responseFile, INetKernelContentStream* stream) {
    const bool success = ReceiveOnePath(outcome, responseFile, stream);
    const DWORD lastError = GetLastError();
    if (!success) {
        Log(4, L" NetKernelBase::ReceiveUrlDataImpl Does not receive response data correctly. Fail return.");
    }
    if (outcome.lastError == 0) {
        outcome.lastError = lastError;
    }
    Close();
    return success;
}

bool NetKernelBase::ReceiveOnePath(Outcome& outcome, const wchar_t* responseFile, INetKernelContentStream* stream) {
    if (responseFile != nullptr && *responseFile != L'\0') {
        return ReceiveResponseToFile(outcome.contentLength, responseFile);
    }
    if (stream != nullptr) {
        if (stream->UseResponseFile(&outcome.contentLength, responseFile, &outcome.streamsBuffer) != 0) {
            return ReceiveResponseToFile(outcome.contentLength, stream->GetResponseFile());
        }
        if (stream->UseStreamBuffer() != 0) {
            return ReceiveResponseToStream2(outcome.contentLength, *stream);
        }
        if (stream->UseStreamWrite() != 0) {
            return ReceiveResponseToStream(outcome.contentLength, *stream);
        }
    }
    return ReceiveResponseToBuffer(outcome);
}

bool NetKernelBase::ReceiveResponseToStream(std::uint64_t length, INetKernelContentStream& stream) {
    const std::unique_ptr<BYTE[]> block = NewBuffer(m_nReceiveChunk);
    std::uint64_t total = 0;
    while (!Cancelled("receive", total, length)) {
        DWORD count = 0;
        if (InternetReadFile(m_hRequest.get(), block.get(), m_nReceiveChunk, &count) == 0) {
            Log(3, L"[Error] NetKernelBase::ReceiveResponseToStream InternetReadFile failed. Last error: %lu",
                GetLastError());
            break;
        }
        if (count == 0) {
            break;
        }
        if (stream.WriteInputStream(block.get(), count) == 0) {
            return false;
        }
        total += count;
    }
    stream.OnWriteComplete();
    return total >= length;
}

bool NetKernelBase::ReceiveResponseToStream2(std::uint64_t length, INetKernelContentStream& stream) {
    std::uint64_t total = 0;
    DWORD size = 0;
    DWORD count = 0;
    do {
        if (Cancelled("receive", total, length)) {
            Log(3, L" NetKernelBase::ReceiveResponseToStream2 Cancel when downloading.");
            break;
        }
        BYTE* area = nullptr;
        size = 0;
        if (stream.GetWriteBuffer(&area, static_cast<DWORD>(total), &size) == 0) {
            return false;
        }
        size = std::min(size, m_nReceiveChunk);
        count = 0;
        if (size != 0 && InternetReadFile(m_hRequest.get(), area, size, &count) == 0) {
            const DWORD error = GetLastError();
            Log(3, L"[Error] NetKernelBase::ReceiveResponseToStream2 Read file failed, last error: %lu", error);
            m_nErrorType = error == ERROR_INTERNET_TIMEOUT ? kReadTimedOut : kReadFailed;
            count = 0;
        }
        total += count;
    } while (count != 0 && total < length && size != 0);
    Cancelled("receive", total, length);  // the observer's last report: there is nothing left to cancel
    stream.OnWriteComplete();
    const bool success = total >= length;
    Log(4, L" NetKernelBase::ReceiveResponseToStream2 End Success: %s", success ? L"True" : L"False");
    return success;
}

bool NetKernelBase::ReceiveResponseToFile(std::uint64_t length, const std::wstring& path) {
    AppendedFile file(path);
    const std::unique_ptr<BYTE[]> block = NewBuffer(m_nReceiveChunk);
    for (std::uint64_t total = 0;;) {
        if (Cancelled("receive", total, length)) {
            return false;
        }
        DWORD count = 0;
        if (InternetReadFile(m_hRequest.get(), block.get(), m_nReceiveChunk, &count) == 0) {
            Log(3, L"[Error] NetKernelBase::ReceiveResponseToFile InternetReadFile failed. Last error: %lu",
                GetLastError());
            return true;
        }
        if (count == 0) {
            return true;
        }
        file.Append(block.get(), count);
        total += count;
    }
}

bool NetKernelBase::ReceiveResponseToBuffer(Outcome& outcome) {
    const std::uint64_t length = outcome.contentLength;
    if (length > kLargestBodyInMemory) {
        Log(3, L"[Error] NetKernelBase::ReceiveResponseToBuffer announced length is too large: %llu", length);
        return false;
    }
    const size_t size = length == 0 ? kBufferWithoutLength : static_cast<size_t>(length) + 1;
    outcome.buffer = NewBuffer(size);
    size_t total = 0;
    for (;;) {
        if (Cancelled("receive", total, length)) {
            return false;
        }
        const DWORD room = static_cast<DWORD>(std::min<size_t>(size - total, m_nReceiveChunk));
        DWORD count = 0;
        if (InternetReadFile(m_hRequest.get(), outcome.buffer.get() + total, room, &count) == 0) {
            Log(3, L"[Error] NetKernelBase::ReceiveResponseToBuffer InternetReadFile failed. Last error: %lu",
                GetLastError());
            break;
        }
        if (count == 0) {
            break;
        }
        total += count;
        if (total == size) {
            // Bodies for memory announce their length. One that does not and fills the buffer keeps its first half
            // only, and is read no further: there is no room for another byte.
            auto half = std::make_unique<BYTE[]>(size);
            std::memcpy(half.get(), outcome.buffer.get(), size / 2);
            outcome.buffer = std::move(half);
        }
    }
    outcome.contentLength = total;
    return true;
}

}  // namespace kvmpd
