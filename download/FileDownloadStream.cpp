#include "download/FileDownloadStream.h"

#include <utility>

#include "common/Log.h"

namespace kvmpd {
namespace {

/// Whether there is a holder, even one of a null handle.
bool IsHeld(const SharedFile& file) {
    return file.use_count() != 0;
}

}  // namespace

FileDownloadStream::FileDownloadStream(std::wstring path) : m_filePath(std::move(path)) {}

BOOL FileDownloadStream::OpenResumeFile() {
    // Hidden, because a player's user has no business with cache files; created new, because a file that is already
    // there belongs to somebody else and must make this download fail.
    m_file =
        OpenFileAndSeek(m_filePath, m_resumeOffset, GENERIC_WRITE, FILE_SHARE_WRITE, CREATE_NEW, FILE_ATTRIBUTE_HIDDEN);
    if (!m_file) {
        Log(3, L"[Error] FileDownloadStream::OpenResumeFile Error when open file: %s", m_filePath);
        return 0;
    }
    return 1;
}

BOOL FileDownloadStream::WriteInputStream(const BYTE* data, DWORD size) {
    if (!IsHeld(m_file)) {
        Log(3, L" FileDownloadStream::WriteInputStream Target file does not ready. Try to open it.");
        if (OpenResumeFile() == 0) {
            Log(3, L"[Error] FileDownloadStream::WriteInputStream The file did not ready for write!!");
            return 0;
        }
    }
    if (m_file.get() == nullptr) {
        Log(3, L"[Error] FileDownloadStream::WriteInputStream Target file does not correct for write.");
        return 0;
    }
    DWORD written = 0;
    const BOOL success = WriteFile(m_file.get(), data, size, &written, nullptr);
    if (success == 0) {
        Log(3, L"[Error] FileDownloadStream::WriteInputStream Write buffer to file failed. Write %s bytes.", written);
    }
    m_written += size;
    return success;
}

BOOL FileDownloadStream::OnWriteComplete() {
    if (!IsHeld(m_file)) {
        Log(3, L"[Error] FileDownloadStream::OnWriteComplete The file did not ready!!");
        return 0;
    }
    m_file.reset();
    return 1;
}

}  // namespace kvmpd
