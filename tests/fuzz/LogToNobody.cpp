// Stands in front of the platform's debug output: link with --wrap for both calls.
#include "tests/fuzz/LogToNobody.h"

#include "common/Log.h"
#include "platform/win32.h"

namespace kvmpd::test {

void LogToNobody() {
    LogTestHooks::SetLevel(6);
}

}  // namespace kvmpd::test

extern "C" {
void __wrap__Z18OutputDebugStringAPKc(LPCSTR text);
void __wrap__Z18OutputDebugStringWPKw(LPCWSTR text);

void __wrap__Z18OutputDebugStringAPKc(LPCSTR /*text*/) {}
void __wrap__Z18OutputDebugStringWPKw(LPCWSTR /*text*/) {}
}
