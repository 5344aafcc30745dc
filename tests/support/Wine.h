// Where Wine falls short of the documented internet calls in ways that tests of several rooms meet: what they expect
// instead, and the reasons that they print when they skip what cannot hold there.
#pragma once

#include <cstdint>

#include "tests/support/Environment.h"

namespace kvmpd::test {

inline constexpr char kWineKnowsNoLength[] =
    "Wine does not know HTTP_QUERY_FLAG_NUMBER64: the length of a body is never known there";
inline constexpr char kWineAnswersFailedRequests[] =
    "Wine answers the status query of a request that failed: it counts as answered there";
inline constexpr char kWineTakesAClosedConnectionForAResponse[] =
    "Wine takes a connection that closes without a byte for an empty response";
inline constexpr char kWineEndsAShortBody[] = "Wine ends a body that is short of its length like a whole one";
inline constexpr char kWineWritesMoreThanAnnounced[] = "Wine sends more of a body than HttpSendRequestEx announced";
inline constexpr char kWineTellsSocketErrors[] =
    "Wine tells a time-out as 12030 before the headers and as 10060 after them, and a reset as 12030 or 10054";
inline constexpr char kWineHasNoProxyOption[] = "Wine does not take INTERNET_OPTION_PROXY for a session";
inline constexpr char kWineSendsAnEmptyHost[] = "Wine sends a Host header without a value as it is";

/// What a client learns of the length of a body that announced `length`.
inline std::uint64_t KnownLength(std::uint64_t length) {
    return UnderWine() ? 0 : length;
}

}  // namespace kvmpd::test
