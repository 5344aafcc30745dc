#include <windows.h>
// Needs what windows.h declares.
#include <tlhelp32.h>

#include "tests/support/ProcessFootprint.h"

namespace kvmpd::test {
namespace {

size_t CountThreads() {
    const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (all == INVALID_HANDLE_VALUE) {
        return 0;
    }
    size_t count = 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(all, &entry); more; more = Thread32Next(all, &entry)) {
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    CloseHandle(all);
    return count;
}

}  // namespace

std::optional<ProcessFootprint> ProcessFootprint::Now() {
    DWORD handles = 0;
    const size_t threads = CountThreads();
    if (threads == 0 || !GetProcessHandleCount(GetCurrentProcess(), &handles)) {
        return std::nullopt;
    }
    return ProcessFootprint{threads, handles};
}

}  // namespace kvmpd::test
