// Keeps a fuzzed client on this machine: a response may redirect to any address or name that the fuzzer thinks of.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvmpd::test {

/// From now on every connection of this process but one to 127.0.0.1:`port` is refused before a packet is sent, and no
/// name is looked up.
void AllowConnectionsTo(std::uint16_t port);

/// Connections to that port so far.
size_t AllowedConnections();

}  // namespace kvmpd::test
