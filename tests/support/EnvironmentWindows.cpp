#include "tests/support/Environment.h"

#include <windows.h>

#include <cstdlib>

namespace kvmpd::test {

void UnsetVariable(const char* name) {
    _putenv_s(name, "");
}

bool UnderWine() {
    const HMODULE system = GetModuleHandleW(L"ntdll.dll");
    return system != nullptr && GetProcAddress(system, "wine_get_version") != nullptr;
}

}  // namespace kvmpd::test
