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

/// While it lives, an allocation of the calling thread of more than `largest` bytes throws std::bad_alloc.
class NoMemoryBeyond {
  public:
    explicit NoMemoryBeyond(size_t largest);
    ~NoMemoryBeyond();
    NoMemoryBeyond(const NoMemoryBeyond&) = delete;
    NoMemoryBeyond& operator=(const NoMemoryBeyond&) = delete;
};

/// While it lives, every allocation of the calling thread throws std::bad_alloc.
class NoMemory : public NoMemoryBeyond {
  public:
    NoMemory();
};

}  // namespace kvmpd::test
