// How far a request and its response may go. What lies beyond is refused with a logged line and costs that request
// only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvmpd {

/// Characters of a URL. Servers take a few thousand; one of a megabyte is a mistake or an attack.
inline constexpr size_t kLongestUrl = 0x10000;

/// Bytes that a response may announce for a body that is received into memory: 64 MiB. The memory is taken when the
/// length is announced, so without a bound the peer would decide how much this process allocates. A manifest of two
/// hours in every quality has a few MiB.
inline constexpr std::uint64_t kLargestBodyInMemory = 0x4000000;

}  // namespace kvmpd
