#include <cstdlib>

#include <gtest/gtest.h>

namespace {

/// Tests talk to servers on loopback; a proxy from the environment would stand in between.
void ForgetProxies() {
    for (const char* name :
         {"http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
#ifdef _WIN32
        _putenv_s(name, "");
#else
        unsetenv(name);
#endif
    }
}

}  // namespace

int main(int argc, char** argv) {
    ForgetProxies();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
