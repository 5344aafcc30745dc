// The heap as seen and disturbed by one thread of a test program. Needs Allocations.cpp in the program, which replaces
// the global operator new.
#pragma once

#include <cstddef>

namespace kvmpd::test {

/// Counts what the calling thread takes from the heap while it lives.
class AllocationCount {
  public:
    AllocationCount();
    size_t Count() const;

  private:
    size_t m_before;
};

/// While it lives, every allocation of the calling thread throws std::bad_alloc.
class NoMemory {
  public:
    NoMemory();
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};

}  // namespace kvmpd::test
