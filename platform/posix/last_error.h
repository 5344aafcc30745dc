// The bridge from errno to the calling thread's last error.
#ifndef PLATFORM_POSIX_LAST_ERROR_H_
#define PLATFORM_POSIX_LAST_ERROR_H_

#include "platform/posix/win32_types.h"

namespace kvmpd::platform {

// The Win32 number for an errno value of a file operation. ENOENT becomes ERROR_FILE_NOT_FOUND; whether it is the path
// that is missing only the caller can tell (paths.h).
DWORD ErrorFromErrno(int error);

// Sets the last error and returns FALSE, so that a failing call is one statement.
BOOL FailWith(DWORD error);

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_LAST_ERROR_H_
