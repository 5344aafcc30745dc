// Which request fails how: the kinds of faults, how often each comes, and the answers that make them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tests/soak/AnswerLoop.h"

namespace kvmpd::test {

enum class SegmentFault {
    kNone,
    kCloseAtOnce,
    kReset,
    kResetMidBody,
    kTruncated,
    kEmptyBody,
    kErrorPage,  // a 404 or 500 whose body is stored as the segment
    kStall,      // before the status line, released later
    kStallMidBody,
    kTrickle,
    kNoLength,
};
enum class ManifestFault {
    kNone,
    kCloseAtOnce,
    kReset,
    kTruncated,
    kEmptyBody,
    kErrorPage,
    kMalformed,
    kOtherShape,
    kEmptyTimeline,
    kStall,
    kTrickle,
    kHole,
    kNumberJump,
    kEdgeBackwards,
};

std::string_view NameOf(SegmentFault fault);
std::string_view NameOf(ManifestFault fault);

/// `dice`: random; `percent`: of the usual share of requests that fail.
SegmentFault ChooseSegmentFault(std::uint64_t dice, unsigned percent);
ManifestFault ChooseManifestFault(std::uint64_t dice, unsigned percent);

/// A correct response.
Answer Respond(std::string_view status, std::string_view type, const std::string& body);
/// The same response spoiled; faults that lie in what a body says leave it as it is. `dice` decides places and times.
Answer Spoil(SegmentFault fault, const std::string& body, std::uint64_t dice);
Answer Spoil(ManifestFault fault, const std::string& body, std::uint64_t dice);

}  // namespace kvmpd::test
