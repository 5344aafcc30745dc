#pragma once

#include <cstdint>
#include <string>

#include "download/FileSeek.h"
#include "net/NetKernelContentStreamBase.h"

namespace kvmpd {

/// Receives a response's body into a new, hidden file. The file is created by the first block of the body, never
/// before, and never over an existing one. A sink may serve several attempts, one after the other, on one thread: one
/// that stopped inside WriteInputStream leaves the file open, and the next attempt appends.
class FileDownloadStream final : public NetKernelContentStreamBase {
  public:
    /// `path` is absolute.
    explicit FileDownloadStream(std::wstring path);

    // INetKernelContentStream
    BOOL WriteInputStream(const BYTE* data, DWORD size) override;
    /// Closes the file; 0 when no block had created it.
    BOOL OnWriteComplete() override;

    /// Bytes passed to the file; after a successful request, its size.
    std::uint64_t Written() const { return m_written; }

  private:
    friend class FileDownloadStreamTest;  // puts holders in place that no open file gives
    BOOL OpenResumeFile();

    std::wstring m_filePath;
    SharedFile m_file;
    std::int64_t m_resumeOffset = 0;  // where writing starts; downloads always start at the beginning so far
    std::uint64_t m_written = 0;      // counts a block whose write failed too: bytes asked for, not bytes on disk
};

}  // namespace kvmpd
