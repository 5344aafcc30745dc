#pragma once

namespace kvmpd::test {

/// Removes a variable from this process's environment.
void UnsetVariable(const char* name);

/// Whether the tests run on Wine instead of Windows. Where Wine falls short of a documented call, a test skips there and
/// says why.
bool UnderWine();

}  // namespace kvmpd::test
