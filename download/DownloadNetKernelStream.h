#pragma once

#include <cstdint>
#include <vector>

#include "net/NetKernelContentStreamBase.h"

namespace kvmpd {

/// Receives a response's body into memory. The memory is allocated once, for the announced length or, without one, for
/// an assumed length; a body that grows beyond it is refused, and so is, with its first block, one that announces more
/// than kLargestBodyInMemory. When memory runs out the body counts as one without a length, and the engine fails it as
/// cut short.
/// Serves one request on one thread.
class DownloadNetKernelStream final : public NetKernelContentStreamBase {
  public:
    /// What a body without announced length may at most have: 5 MiB.
    static constexpr std::uint64_t kAssumedLength = 0x500000;

    // INetKernelContentStream
    BOOL OnContentLength(std::uint64_t length) override;
    BOOL WriteInputStream(const BYTE* data, DWORD size) override;
    /// 1 when the body has exactly the length that the memory was prepared for. One received under the assumed length
    /// hardly ever has; its bytes are valid all the same.
    BOOL OnWriteComplete() override;

    /// The memory; the body is its first Written() bytes.
    const std::vector<BYTE>& Buffer() const { return m_buffer; }
    std::uint64_t ContentLength() const { return m_contentLength; }
    std::uint64_t Written() const { return m_written; }

  private:
    std::vector<BYTE> m_buffer;
    std::uint64_t m_contentLength = 0;
    std::uint64_t m_written = 0;
    bool m_refused = false;  ///< The announced length is too large. The request's thread only, like the rest.
};

}  // namespace kvmpd
