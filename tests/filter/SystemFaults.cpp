#include "tests/filter/SystemFaults.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int t_allocationsUntilFailure = 0;
thread_local std::size_t t_failingSize = 0;
thread_local kvmpd::test::WatchedSettings* t_watched = nullptr;

/// Whether this allocation is the one that is to fail.
bool IsDue(std::size_t size) {
    return t_allocationsUntilFailure > 0 && size >= t_failingSize && --t_allocationsUntilFailure == 0;
}

}  // namespace

// The names are the linker's; those of the settings calls are as the compiler writes them.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __real_malloc(std::size_t size);
LSTATUS __real__Z13RegOpenKeyExWP6HKEY__PKwjjPS0_(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result);
LSTATUS __real__Z15RegCreateKeyExWP6HKEY__PKwjPwjjPK19SECURITY_ATTRIBUTESPS0_Pj(HKEY key, LPCWSTR subKey,
                                                                                DWORD reserved, LPWSTR className,
                                                                                DWORD options, REGSAM access,
                                                                                const SECURITY_ATTRIBUTES* attributes,
                                                                                PHKEY result, LPDWORD disposition);

void* __wrap_malloc(std::size_t size) {
    return IsDue(size) ? nullptr : __real_malloc(size);
}

LSTATUS __wrap__Z13RegOpenKeyExWP6HKEY__PKwjjPS0_(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access,
                                                  PHKEY result) {
    if (t_watched != nullptr) {
        t_watched->opened.push_back({key, subKey, access});
        t_watched->onOpen();
    }
    return __real__Z13RegOpenKeyExWP6HKEY__PKwjjPS0_(key, subKey, options, access, result);
}

LSTATUS __wrap__Z15RegCreateKeyExWP6HKEY__PKwjPwjjPK19SECURITY_ATTRIBUTESPS0_Pj(HKEY key, LPCWSTR subKey,
                                                                                DWORD reserved, LPWSTR className,
                                                                                DWORD options, REGSAM access,
                                                                                const SECURITY_ATTRIBUTES* attributes,
                                                                                PHKEY result, LPDWORD disposition) {
    if (t_watched != nullptr) {
        ++t_watched->created;
    }
    return __real__Z15RegCreateKeyExWP6HKEY__PKwjPwjjPK19SECURITY_ATTRIBUTESPS0_Pj(
        key, subKey, reserved, className, options, access, attributes, result, disposition);
}
}
// NOLINTEND(bugprone-reserved-identifier)

// C++ objects come from the same place, wherever they are made: the standard library's own included.
void* operator new(std::size_t size) {
    if (void* memory = std::malloc(size > 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size > 0 ? size : 1);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

namespace kvmpd::test {

FailingAllocation::FailingAllocation(int which, std::size_t size) {
    t_allocationsUntilFailure = which;
    t_failingSize = size;
}

FailingAllocation::~FailingAllocation() {
    t_allocationsUntilFailure = 0;
}

bool FailingAllocation::Happened() const {
    return t_allocationsUntilFailure == 0;
}

WatchedSettings::WatchedSettings() {
    t_watched = this;
}

WatchedSettings::~WatchedSettings() {
    t_watched = nullptr;
}

}  // namespace kvmpd::test
