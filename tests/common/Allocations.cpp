#include "tests/common/Allocations.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

thread_local size_t t_allocations = 0;
thread_local size_t t_largest = SIZE_MAX;  // what the heap still gives

void* Allocate(size_t size) {
    ++t_allocations;
    void* const memory = size > t_largest || t_largest == 0 ? nullptr : std::malloc(size ? size : 1);
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

void* operator new(size_t size) {
    return Allocate(size);
}
void* operator new[](size_t size) {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}

namespace kvmpd::test {

AllocationCount::AllocationCount() : m_before(t_allocations) {}

size_t AllocationCount::Count() const {
    return t_allocations - m_before;
}

NoMemory::NoMemory() : NoMemoryBeyond(0) {}

NoMemoryBeyond::NoMemoryBeyond(size_t largest) {
    t_largest = largest;
}

NoMemoryBeyond::~NoMemoryBeyond() {
    t_largest = SIZE_MAX;
}

}  // namespace kvmpd::test
