// The shorter list: what loopback sockets alone can make.
#include "tests/faults/PlatformList.h"

namespace kvmpd::test {

std::string_view NotOnThisList(FaultKind kind) {
    if (IsTls(kind)) {
        return "the test's own certificate authority is not installed on this system";
    }
    if (IsStall(kind)) {
        return "the component's receive time-out of 30 s cannot be shortened here";
    }
    if (kind == FaultKind::kNameNotResolved) {
        return "no name server is asked";
    }
    if (kind == FaultKind::kWrongContentLength) {
        return "what the system's HTTP client makes of it is the system's business";
    }
    if (kind == FaultKind::kFolderGone) {
        return "a folder with an open file cannot be taken away on this system";
    }
    return {};
}

size_t MostRedirects() {
    return 100;  // the system's HTTP client decides; this is only not without end
}

ConnectionWrap GoodTls() {
    return {};
}

ConnectionWrap BadTls(FaultKind /*kind*/) {
    return {};
}

ShortReceiveTimeout::ShortReceiveTimeout(std::chrono::milliseconds /*timeout*/) {}

ShortReceiveTimeout::~ShortReceiveTimeout() = default;

}  // namespace kvmpd::test
