#include "download/DownloadNetKernelStream.h"

#include <cstring>
#include <new>

#include "common/Log.h"
#include "net/HttpLimits.h"

namespace kvmpd {

BOOL DownloadNetKernelStream::OnContentLength(std::uint64_t length) {
    m_refused = length > kLargestBodyInMemory;
    if (m_refused) {
        Log(3, L"[Error] DownloadNetKernelStream::OnContentLength announced length is too large: %llu", length);
        return 0;
    }
    try {
        m_buffer.resize(static_cast<size_t>(length));
    } catch (const std::bad_alloc&) {
        Log(3, L" DownloadNetKernelStream::OnContentLength out of memory");
        return 0;
    }
    m_contentLength = length;
    return 1;
}

BOOL DownloadNetKernelStream::WriteInputStream(const BYTE* data, DWORD size) {
    if (size == 0) {
        return 1;
    }
    if (m_refused) {
        return 0;
    }
    if (m_contentLength == 0) {
        INetKernelContentStream& self = *this;
        if (self.OnContentLength(kAssumedLength) == 0) {
            return 0;
        }
        Log(6, L" DownloadNetKernelStream::WriteInputStream get content length failed. Use assume size: %llu",
            m_contentLength);
    }
    if (m_written + size > m_contentLength) {
        Log(3,
            L"[Error] DownloadNetKernelStream::WriteInputStream Get too large buffer: %d data. From: %llu, total: %llu",
            size, m_written, m_contentLength);
        return 0;
    }
    std::memcpy(m_buffer.data() + m_written, data, size);
    m_written += size;
    return 1;
}

BOOL DownloadNetKernelStream::OnWriteComplete() {
    Log(4, L" DownloadNetKernelStream::OnWriteComplete ");
    if (m_written == m_contentLength) {
        return 1;
    }
    Log(3, L"[Error] DownloadNetKernelStream::OnWriteComplete download unexpected size %lld. expected: %llu", m_written,
        m_contentLength);
    return 0;
}

}  // namespace kvmpd
