// Which faults this system's list has, and what they need of it. CMake chooses one of two sources: the full list, or
// the faults that loopback sockets alone can make.
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

#include "tests/faults/FaultTable.h"
#include "tests/support/Sockets.h"

namespace kvmpd::test {

/// Why this system's list goes without this kind at this target; empty when it has it.
std::string_view NotOnThisList(FaultKind kind, Target target);

/// How many redirects one request follows at most.
size_t MostRedirects();

/// A server's side of TLS that the component trusts.
ConnectionWrap GoodTls();
/// One that it must not trust, or that does not speak TLS at all.
ConnectionWrap BadTls(FaultKind kind);

/// While this lives, the component waits `timeout` for a byte instead of 30 s. The control interface does not offer
/// that, so it is done where the component sets the time-out at the platform's door.
class ShortReceiveTimeout {
  public:
    explicit ShortReceiveTimeout(std::chrono::milliseconds timeout);
    ~ShortReceiveTimeout();
    ShortReceiveTimeout(const ShortReceiveTimeout&) = delete;
    ShortReceiveTimeout& operator=(const ShortReceiveTimeout&) = delete;
};

}  // namespace kvmpd::test
