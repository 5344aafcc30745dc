#include "tests/common/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local size_t t_allocations = 0;
thread_local bool t_exhausted = false;

void* Allocate(size_t size) {
    ++t_allocations;
    void* const memory = t_exhausted ? nullptr : std::malloc(size ? size : 1);
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

NoMemory::NoMemory() {
    t_exhausted = true;
}

NoMemory::~NoMemory() {
    t_exhausted = false;
}

}  // namespace kvmpd::test
