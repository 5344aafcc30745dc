// From a path in the Windows form, as the component builds it, to one of this system.
#ifndef PLATFORM_POSIX_PATHS_H_
#define PLATFORM_POSIX_PATHS_H_

#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/win32_types.h"

namespace kvmpd::platform {

// Drops the prefix "\\?\" and turns every backslash into a slash. Empty when the text is no valid Unicode. Throws
// std::bad_alloc.
std::optional<std::string> NativePath(std::wstring_view path);

// The Win32 number for `error` from an operation on `path`: a missing folder on the way is ERROR_PATH_NOT_FOUND, a
// missing last element ERROR_FILE_NOT_FOUND.
DWORD PathError(int error, const std::string& path);

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_PATHS_H_
