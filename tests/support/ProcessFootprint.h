#pragma once

#include <cstddef>
#include <optional>

namespace kvmpd::test {

/// What this process holds of things that leak.
struct ProcessFootprint {
    size_t threads = 0;
    size_t descriptors = 0;

    /// Empty where the system does not tell.
    static std::optional<ProcessFootprint> Now();
    /// Now, but waits (for a bounded time) while more descriptors are open than `bound` has: a peer in the same process
    /// closes its side of a connection a moment after the client.
    static std::optional<ProcessFootprint> Settled(const ProcessFootprint& bound);
};

}  // namespace kvmpd::test
