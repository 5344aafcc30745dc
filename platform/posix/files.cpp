#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "platform/posix/annotated_lock.h"
#include "platform/posix/handles.h"
#include "platform/posix/last_error.h"
#include "platform/posix/paths.h"
#include "platform/posix/unique_fd.h"
#include "platform/posix/win32_api.h"

namespace kvmpd::platform {
namespace {

template <typename Call>
auto RetryInterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

// An open file. It keeps the file pointer itself, because Windows allows every position below 2^63 while file systems
// here refuse to seek beyond what they could store; a pipe or a terminal has no position and is read as it comes.
class File final : public KernelObject {
  public:
    File(UniqueFd fd, bool readable, bool writable)
        : m_fd(std::move(fd)),
          m_readable(readable),
          m_writable(writable),
          m_seekable(lseek(m_fd.get(), 0, SEEK_CUR) != -1) {}

    // Both return the Win32 error and say in `done` how many bytes were moved, also on failure.
    DWORD Read(char* buffer, DWORD size, DWORD& done);
    DWORD Write(const char* data, DWORD size, DWORD& done);

    // The new position in `position`, which is unchanged on failure.
    DWORD Seek(LONGLONG distance, DWORD moveMethod, bool mustFitLowHalf, LONGLONG& position);

    DWORD Size(LONGLONG& size) const;

  private:
    // How many of `size` bytes from the file pointer on have a position at all.
    DWORD WithinReach(DWORD size) const PLATFORM_REQUIRES(m_lock) {
        const LONGLONG room = std::numeric_limits<off_t>::max() - m_position;
        return room < size ? static_cast<DWORD>(room) : size;
    }

    const UniqueFd m_fd;
    const bool m_readable;
    const bool m_writable;
    const bool m_seekable;

    // Held during the transfer: the operations on one file handle go one after the other, as on Windows.
    Lock m_lock;
    LONGLONG m_position PLATFORM_GUARDED_BY(m_lock) = 0;
};

DWORD File::Read(char* buffer, DWORD size, DWORD& done) {
    if (!m_readable) {
        return ERROR_ACCESS_DENIED;
    }
    const LockHold hold(m_lock);
    if (!m_seekable) {
        const ssize_t count = RetryInterrupted([&] { return read(m_fd.get(), buffer, size); });
        if (count < 0) {
            return ErrorFromErrno(errno);
        }
        done = static_cast<DWORD>(count);
        return NO_ERROR;
    }
    size = WithinReach(size);
    while (done < size) {
        const off_t at = m_position;
        const ssize_t count = RetryInterrupted([&] { return pread(m_fd.get(), buffer + done, size - done, at); });
        if (count < 0) {
            // What arrived before the failure counts; the next read meets the failure again.
            return done > 0 ? NO_ERROR : ErrorFromErrno(errno);
        }
        if (count == 0) {
            break;
        }
        done += static_cast<DWORD>(count);
        m_position += count;
    }
    return NO_ERROR;
}

DWORD File::Write(const char* data, DWORD size, DWORD& done) {
    if (!m_writable) {
        return ERROR_ACCESS_DENIED;
    }
    const LockHold hold(m_lock);
    if (m_seekable && WithinReach(size) < size) {
        return ERROR_INVALID_PARAMETER;
    }
    while (done < size) {
        const off_t at = m_position;
        const ssize_t count = RetryInterrupted([&] {
            return m_seekable ? pwrite(m_fd.get(), data + done, size - done, at)
                              : write(m_fd.get(), data + done, size - done);
        });
        if (count < 0) {
            return ErrorFromErrno(errno);
        }
        if (count == 0) {
            return ERROR_DISK_FULL;  // a device that takes nothing more and calls it no error
        }
        done += static_cast<DWORD>(count);
        m_position += count;
    }
    return NO_ERROR;
}

DWORD File::Seek(LONGLONG distance, DWORD moveMethod, bool mustFitLowHalf, LONGLONG& position) {
    if (!m_seekable) {
        return ERROR_NOT_SUPPORTED;
    }
    const LockHold hold(m_lock);
    LONGLONG start = 0;
    if (moveMethod == FILE_CURRENT) {
        start = m_position;
    } else if (moveMethod == FILE_END) {
        if (const DWORD error = Size(start); error != NO_ERROR) {
            return error;
        }
    }
    if (distance > std::numeric_limits<LONGLONG>::max() - start) {
        return ERROR_INVALID_PARAMETER;
    }
    if (start + distance < 0) {
        return ERROR_NEGATIVE_SEEK;
    }
    if (mustFitLowHalf && start + distance > UINT32_MAX) {
        return ERROR_INVALID_PARAMETER;
    }
    m_position = start + distance;
    position = m_position;
    return NO_ERROR;
}

DWORD File::Size(LONGLONG& size) const {
    struct stat status {};
    if (fstat(m_fd.get(), &status) != 0) {
        return ErrorFromErrno(errno);
    }
    size = status.st_size;
    return NO_ERROR;
}

// open() flags for the access; without read and write access nothing but the file's existence and size is reachable.
int AccessFlags(DWORD access) {
    const bool reads = (access & GENERIC_READ) != 0;
    const bool writes = (access & GENERIC_WRITE) != 0;
    return writes ? (reads ? O_RDWR : O_WRONLY) : O_RDONLY;
}

struct Opened {
    UniqueFd fd;
    bool existed = false;
    int error = 0;
};

Opened OpenOnce(const std::string& path, int flags) {
    constexpr mode_t kOwnerOnly = 0600;
    Opened opened;
    opened.fd =
        UniqueFd(RetryInterrupted([&] { return open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, kOwnerOnly); }));
    opened.error = opened.fd ? 0 : errno;
    return opened;
}

// Opens or creates, and knows which: tries each in turn until no other process has come in between.
Opened OpenOrCreate(const std::string& path, int flags, int flagsWhenExisting) {
    for (;;) {
        Opened opened = OpenOnce(path, flags | O_CREAT | O_EXCL);
        if (opened.error != EEXIST) {
            return opened;
        }
        opened = OpenOnce(path, flags | flagsWhenExisting);
        opened.existed = static_cast<bool>(opened.fd);
        struct stat status {};
        // A link that leads nowhere exists and does not, for ever.
        if (opened.error != ENOENT || lstat(path.c_str(), &status) == 0) {
            return opened;
        }
    }
}

// Empty when the disposition, or its combination with the access, is none.
std::optional<Opened> OpenFor(const std::string& path, DWORD access, DWORD disposition) {
    const int flags = AccessFlags(access);
    switch (disposition) {
        case CREATE_NEW:
            return OpenOnce(path, flags | O_CREAT | O_EXCL);
        case CREATE_ALWAYS:
            return OpenOrCreate(path, flags, O_TRUNC);
        case OPEN_EXISTING:
            return OpenOnce(path, flags);
        case OPEN_ALWAYS:
            return OpenOrCreate(path, flags, 0);
        case TRUNCATE_EXISTING:
            return (access & GENERIC_WRITE) != 0 ? std::optional(OpenOnce(path, flags | O_TRUNC)) : std::nullopt;
        default:
            return std::nullopt;
    }
}

HANDLE Fail(DWORD error) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

HANDLE OpenFile(LPCWSTR fileName, DWORD access, DWORD disposition) {
    const std::optional<std::string> path = NativePath(fileName);
    if (!path) {
        return Fail(ERROR_INVALID_NAME);
    }
    std::optional<Opened> opened = OpenFor(*path, access, disposition);
    if (!opened) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (!opened->fd) {
        return Fail(PathError(opened->error, *path));
    }
    struct stat status {};
    if (fstat(opened->fd.get(), &status) == 0 && S_ISDIR(status.st_mode)) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    const bool existed = opened->existed;
    const HANDLE handle = OpenHandle(
        std::make_shared<File>(std::move(opened->fd), (access & GENERIC_READ) != 0, (access & GENERIC_WRITE) != 0));
    if (!handle) {
        return INVALID_HANDLE_VALUE;
    }
    SetLastError(existed ? ERROR_ALREADY_EXISTS : NO_ERROR);
    return handle;
}

}  // namespace
}  // namespace kvmpd::platform

using kvmpd::platform::FailWith;
using kvmpd::platform::File;
using kvmpd::platform::ObjectOf;

HANDLE CreateFileW(LPCWSTR fileName, DWORD access, DWORD /*shareMode*/, LPSECURITY_ATTRIBUTES /*attributes*/,
                   DWORD disposition, DWORD /*flagsAndAttributes*/, HANDLE /*templateFile*/) {
    if (fileName == nullptr || *fileName == L'\0') {
        return kvmpd::platform::Fail(ERROR_PATH_NOT_FOUND);
    }
    try {
        return kvmpd::platform::OpenFile(fileName, access, disposition);
    } catch (const std::bad_alloc&) {
        return kvmpd::platform::Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD bytesToRead, LPDWORD bytesRead, LPOVERLAPPED overlapped) {
    if (overlapped != nullptr) {
        return FailWith(ERROR_NOT_SUPPORTED);
    }
    if (bytesRead == nullptr) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    *bytesRead = 0;
    const std::shared_ptr<File> object = ObjectOf<File>(file);
    if (!object) {
        return FALSE;
    }
    const DWORD error = object->Read(static_cast<char*>(buffer), bytesToRead, *bytesRead);
    return error == NO_ERROR ? TRUE : FailWith(error);
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD bytesToWrite, LPDWORD bytesWritten, LPOVERLAPPED overlapped) {
    if (overlapped != nullptr) {
        return FailWith(ERROR_NOT_SUPPORTED);
    }
    if (bytesWritten == nullptr) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    *bytesWritten = 0;
    const std::shared_ptr<File> object = ObjectOf<File>(file);
    if (!object) {
        return FALSE;
    }
    const DWORD error = object->Write(static_cast<const char*>(buffer), bytesToWrite, *bytesWritten);
    return error == NO_ERROR ? TRUE : FailWith(error);
}

DWORD SetFilePointer(HANDLE file, LONG distanceLow, PLONG distanceHigh, DWORD moveMethod) {
    const std::shared_ptr<File> object = ObjectOf<File>(file);
    if (!object) {
        return INVALID_SET_FILE_POINTER;
    }
    if (moveMethod > FILE_END) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    // Without a high part the low one is signed and the result must fit into 32 bits.
    const LONGLONG distance =
        distanceHigh
            ? static_cast<LONGLONG>((static_cast<ULONGLONG>(*distanceHigh) << 32) | static_cast<DWORD>(distanceLow))
            : distanceLow;
    LONGLONG position = 0;
    const DWORD error = object->Seek(distance, moveMethod, /*mustFitLowHalf=*/distanceHigh == nullptr, position);
    if (error != NO_ERROR) {
        SetLastError(error);
        return INVALID_SET_FILE_POINTER;
    }
    if (distanceHigh) {
        *distanceHigh = static_cast<LONG>(position >> 32);
    }
    const auto low = static_cast<DWORD>(position & 0xFFFFFFFF);
    if (low == INVALID_SET_FILE_POINTER) {
        SetLastError(NO_ERROR);
    }
    return low;
}

BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) {
    if (size == nullptr) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    const std::shared_ptr<File> object = ObjectOf<File>(file);
    if (!object) {
        return FALSE;
    }
    LONGLONG bytes = 0;
    if (const DWORD error = object->Size(bytes); error != NO_ERROR) {
        return FailWith(error);
    }
    size->QuadPart = bytes;
    return TRUE;
}

BOOL DeleteFileW(LPCWSTR fileName) {
    if (fileName == nullptr || *fileName == L'\0') {
        return FailWith(ERROR_PATH_NOT_FOUND);
    }
    try {
        const std::optional<std::string> path = kvmpd::platform::NativePath(fileName);
        if (!path) {
            return FailWith(ERROR_INVALID_NAME);
        }
        return unlink(path->c_str()) == 0 ? TRUE : FailWith(kvmpd::platform::PathError(errno, *path));
    } catch (const std::bad_alloc&) {
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
}
