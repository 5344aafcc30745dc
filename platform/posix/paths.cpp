#include "platform/posix/paths.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/posix/last_error.h"
#include "platform/posix/utf8.h"
#include "platform/posix/win32_api.h"

namespace kvmpd::platform {

std::optional<std::string> NativePath(std::wstring_view path) {
    constexpr std::wstring_view kLongPathPrefix = LR"(\\?\)";
    if (path.starts_with(kLongPathPrefix)) {
        path.remove_prefix(kLongPathPrefix.size());
    }
    std::string native;
    native.reserve(path.size());
    for (const wchar_t unit : path) {
        const auto value = static_cast<char32_t>(unit);
        if (!IsScalarValue(value)) {
            return std::nullopt;
        }
        char encoded[kMaxUtf8Length];
        native.append(encoded, EncodeUtf8(value == U'\\' ? U'/' : value, encoded));
    }
    return native;
}

DWORD PathError(int error, const std::string& path) {
    if (error != ENOENT) {
        return ErrorFromErrno(error);
    }
    const std::size_t nameEnd = path.find_last_not_of('/');
    if (nameEnd == std::string::npos) {
        return ERROR_PATH_NOT_FOUND;
    }
    const std::size_t separator = path.find_last_of('/', nameEnd);
    if (separator == std::string::npos) {
        return ERROR_FILE_NOT_FOUND;
    }
    struct stat status {};
    const bool isFolder = stat(path.substr(0, separator + 1).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    return isFolder ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

}  // namespace kvmpd::platform
