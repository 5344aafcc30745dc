// The client's calls of the platform, seen and changed on their way: the linker puts functions of the test's in front
// of the platform's.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/wininet.h"

namespace kvmpd::test {

/// Watches the calls of the thread that makes it, while it lives; one at a time. The calls of either width are written
/// down alike.
class PlatformCalls {
  public:
    PlatformCalls();
    ~PlatformCalls();
    PlatformCalls(const PlatformCalls&) = delete;
    PlatformCalls& operator=(const PlatformCalls&) = delete;

    // What goes wrong; error numbers, 0 for nothing.
    DWORD openError = 0;                  ///< InternetOpen fails.
    DWORD openRequestError = 0;           ///< HttpOpenRequest fails.
    DWORD sendError = 0;                  ///< HttpSendRequest does its work and says that it failed.
    DWORD statusError = 0;                ///< The query of the status code fails.
    std::map<DWORD, DWORD> optionErrors;  ///< Setting this option fails.
    std::optional<DWORD> dialogAnswer;    ///< InternetErrorDlg answers this.

    /// "InternetOpen KV-NetKernel 0", "InternetConnect HOST PORT 3 0 1", "HttpOpenRequest GET /a 0x00080800 1",
    /// "option 6 = 30000", "proxy 3 ADDRESS", "InternetErrorDlg WINDOW ERROR FLAGS", "close request".
    std::vector<std::string> calls;
    /// The header text of each request that was sent.
    std::vector<std::string> headers;

    bool Called(const std::string& call) const;
    size_t CountPrefix(const std::string& text) const;

    HINTERNET session = nullptr;
    HINTERNET connection = nullptr;
    HINTERNET request = nullptr;
};

}  // namespace kvmpd::test
