#include "platform/posix/last_error.h"

#include <cerrno>

#include "platform/posix/win32_api.h"

namespace {

thread_local constinit DWORD t_lastError = 0;

}  // namespace

DWORD GetLastError() {
    return t_lastError;
}

void SetLastError(DWORD error) {
    t_lastError = error;
}

namespace kvmpd::platform {

BOOL FailWith(DWORD error) {
    SetLastError(error);
    return FALSE;
}

DWORD ErrorFromErrno(int error) {
    switch (error) {
        case 0:
            return NO_ERROR;
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case EROFS:
            return ERROR_WRITE_PROTECT;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case EBADF:
            return ERROR_INVALID_HANDLE;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case ENOSPC:
        case EDQUOT:
            return ERROR_DISK_FULL;
        case EFBIG:
        case EOVERFLOW:
            return ERROR_FILE_TOO_LARGE;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case EFAULT:
            return ERROR_NOACCESS;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case ELOOP:
            return ERROR_CANT_RESOLVE_FILENAME;
        case ETXTBSY:
            return ERROR_SHARING_VIOLATION;
        case EBUSY:
            return ERROR_BUSY;
        case EPIPE:
            return ERROR_BROKEN_PIPE;
        case EIO:
            return ERROR_IO_DEVICE;
        case ENXIO:
        case ENODEV:
        case EAGAIN:
            return ERROR_NOT_READY;
        default:
            return ERROR_GEN_FAILURE;
    }
}

}  // namespace kvmpd::platform
