// Failures of the system below the platform's calls, made on purpose: the linker puts these functions in front of the
// system's.
#pragma once

#include <cstddef>

namespace kvmpd::test {

/// While it lives, the thread creation numbered `which` (from 1) of the calling thread fails.
class FailingThreadCreation {
  public:
    explicit FailingThreadCreation(int which);
    ~FailingThreadCreation();
    FailingThreadCreation(const FailingThreadCreation&) = delete;
    FailingThreadCreation& operator=(const FailingThreadCreation&) = delete;
};

/// While it lives, the zeroed allocation numbered `which` (from 1) of `size` bytes by the calling thread fails.
class FailingAllocation {
  public:
    FailingAllocation(int which, size_t size);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
};

/// While it lives, every read of a file by the calling thread says that it got `more` bytes more than it did.
class OverstatingReads {
  public:
    explicit OverstatingReads(size_t more);
    ~OverstatingReads();
    OverstatingReads(const OverstatingReads&) = delete;
    OverstatingReads& operator=(const OverstatingReads&) = delete;
};

}  // namespace kvmpd::test
