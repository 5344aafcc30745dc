// From libcurl's results to WinINet's error numbers.
#ifndef PLATFORM_POSIX_WININET_ERRORS_H_
#define PLATFORM_POSIX_WININET_ERRORS_H_

#include <curl/curl.h>

#include "platform/posix/win32_api.h"
#include "platform/posix/wininet_api.h"

namespace kvmpd::platform::internet {

/// The error number for a transfer of `easy` that ended with `result`; 0 for CURLE_OK.
DWORD ErrorOfTransfer(CURL* easy, CURLcode result);

}  // namespace kvmpd::platform::internet

#endif  // PLATFORM_POSIX_WININET_ERRORS_H_
