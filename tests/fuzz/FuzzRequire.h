#pragma once

#include <cstdio>
#include <cstdlib>

namespace kvmpd::test {

/// Ends the program, for the fuzzer to keep the input, unless `condition` holds.
inline void Require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

}  // namespace kvmpd::test
