#include <gtest/gtest.h>

#include "tests/support/Environment.h"

namespace {

/// Tests talk to servers on loopback; a proxy from the environment would stand in between.
void ForgetProxies() {
    for (const char* name :
         {"http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        kvmpd::test::UnsetVariable(name);
    }
}

}  // namespace

int main(int argc, char** argv) {
    ForgetProxies();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
