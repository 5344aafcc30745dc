#include <cstdlib>

#include "tests/support/Environment.h"

namespace kvmpd::test {

void UnsetVariable(const char* name) {
    unsetenv(name);
}

bool UnderWine() {
    return false;
}

}  // namespace kvmpd::test
