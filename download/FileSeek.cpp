#include "download/FileSeek.h"

#include "common/Log.h"

namespace kvmpd {
namespace {

constexpr DWORD kSeekFailed = 0xFFFFFFFF;

DWORD LowPart(std::int64_t offset) {
    return static_cast<DWORD>(static_cast<std::uint64_t>(offset) & 0xFFFFFFFF);
}

LONG HighPart(std::int64_t offset) {
    return static_cast<LONG>(offset >> 32);
}

/// Moves an opened file to `offset` and checks that it got there.
bool MoveTo(HANDLE file, std::int64_t offset) {
    Log(3, L" OpenFileAndSeek Seek to: %llu", offset);
    const DWORD low = LowPart(offset);
    LONG high = HighPart(offset);
    const DWORD reachedLow = SetFilePointer(file, static_cast<LONG>(low), &high, FILE_BEGIN);
    const DWORD error = GetLastError();
    Log(3, L" OpenFileAndSeek Move file to offset: %lu + %lli offset high: 0x%08lX low: 0x%08lX", reachedLow,
        offset >> 32 << 32, HighPart(offset), low);
    const std::int64_t reached = (static_cast<std::int64_t>(high) << 32) | reachedLow;
    if (reachedLow == kSeekFailed || reached != offset) {
        Log(3,
            L" OpenFileAndSeek File seek does not correct (expect: %llu(0x%16llX) seek: %llu(0x%16llx)), last error: "
            L"%d",
            offset, offset, reached, reached, error);
        return false;
    }
    return true;
}

}  // namespace

SharedFile ShareFile(HANDLE handle) {
    return SharedFile(handle, [](HANDLE held) {
        if (held != nullptr && held != INVALID_HANDLE_VALUE) {
            CloseHandle(held);
        }
    });
}

SharedFile OpenFileAndSeek(const std::wstring& path, std::int64_t offset, DWORD access, DWORD share, DWORD disposition,
                           DWORD attributes) {
    const std::wstring fullName = L"\\\\?\\" + path;
    const HANDLE handle = CreateFileW(fullName.c_str(), access, share, /*securityAttributes=*/nullptr, disposition,
                                      attributes, /*templateFile=*/nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        Log(3, L"[Error] OpenFileAndSeek Create file fail, error code: %d", GetLastError());
        return {};
    }
    SharedFile file = ShareFile(handle);
    if (offset != 0 && !MoveTo(file.get(), offset)) {
        return {};
    }
    return file;
}

BOOL SeekFilePosition(HANDLE file, std::int64_t position) {
    const DWORD low = LowPart(position);
    const LONG high = HighPart(position);
    LONG reachedHigh = high;
    const DWORD reachedLow = SetFilePointer(file, static_cast<LONG>(low), &reachedHigh, FILE_BEGIN);
    if (reachedLow == kSeekFailed) {
        Log(3, L"[Error] SeekFilePosition Fail to set file pointer to: 0x%016llx (%lld)", position, position);
        return 0;
    }
    Log(3,
        L" SeekFilePosition Seek file to position: 0x%016llx (%lld) low: 0x%08lx (%ld) high: 0x%08lx (%ld) Result low: "
        L"0x%08lx (%lu) high: 0x%08lx (%ld)",
        position, position, low, low, high, high, reachedLow, reachedLow, reachedHigh, reachedHigh);
    return 1;
}

}  // namespace kvmpd
