// The shorter list: what loopback sockets alone can make.
#include "tests/faults/PlatformList.h"
#include "tests/support/Wine.h"

namespace kvmpd::test {
namespace {

/// What Wine's HTTP client makes an answer of: the component is not told that there was a fault.
std::string_view NotToldByWine(FaultKind kind, Target target) {
    switch (kind) {
        case FaultKind::kRedirectToClosedPort:
            return kWineAnswersFailedRequests;
        case FaultKind::kResetBeforeStatus:
            return kWineTakesAClosedConnectionForAResponse;
        case FaultKind::kBodyTooLong:
            return "Wine delivers a body to the end of its connection, whatever length was announced";
        case FaultKind::kRedirectToOtherScheme:  // for a manifest that is a failure, too: it is empty
            return IsManifest(target) ? "" : "Wine gives a redirect to another scheme for the answer";
        case FaultKind::kResetMidBody:
        case FaultKind::kTruncatedBody:
            return kWineEndsAShortBody;
        case FaultKind::kRedirectLoop:
            return "Wine follows redirects without end";
        default:
            return "";
    }
}

}  // namespace

std::string_view NotOnThisList(FaultKind kind, Target target) {
    if (IsTls(kind)) {
        return "the test's own certificate authority is not installed on this system";
    }
    if (IsStall(kind)) {
        return "the component's receive time-out of 30 s cannot be shortened here";
    }
    if (kind == FaultKind::kEndlessTrickle) {
        return "the cell has to outlast a receive time-out of 30 s, which cannot be shortened here";
    }
    if (StrikesBeforeRequest(kind)) {
        return "no function can be put in front of the system's look-up of names and its connections";
    }
    if (kind == FaultKind::kWrongContentLength) {
        return "what the system's HTTP client makes of it is the system's business";
    }
    if (kind == FaultKind::kFolderGone) {
        return UnderWine() ? "" : "a folder with an open file cannot be taken away on this system";
    }
    return UnderWine() ? NotToldByWine(kind, target) : "";
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
