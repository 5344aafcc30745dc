// Failures of the platform, made on purpose: the linker puts these functions in front of the platform's.
#pragma once

#include <cstddef>

#include "platform/win32.h"

namespace kvmpd::test {

/// While it lives, the thread creation numbered `which` (from 1) of the calling thread fails with `error`.
class FailingThreadCreation {
  public:
    FailingThreadCreation(int which, DWORD error);
    ~FailingThreadCreation();
    FailingThreadCreation(const FailingThreadCreation&) = delete;
    FailingThreadCreation& operator=(const FailingThreadCreation&) = delete;
};

/// While it lives, the calloc numbered `which` (from 1) of `size` bytes finds no memory.
class FailingAllocation {
  public:
    FailingAllocation(int which, size_t size);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
};

/// While it lives, every ReadFile says that it read `more` bytes more than it did.
class OverstatingReads {
  public:
    explicit OverstatingReads(DWORD more);
    ~OverstatingReads();
    OverstatingReads(const OverstatingReads&) = delete;
    OverstatingReads& operator=(const OverstatingReads&) = delete;
};

}  // namespace kvmpd::test
