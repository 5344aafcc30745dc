// Registration through the exports, seen from where it would leave something behind.
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "filter/KVMPDSrc.h"
#include "tests/support/TempDir.h"

namespace {

TEST(Module, RegistrationSucceedsAndDoesNothing) {
    // The user's settings, which are the ones that anybody may write, in a folder of the test's own.
    const kvmpd::test::TempDir settings;
    ASSERT_EQ(setenv("XDG_CONFIG_HOME", settings.Path().c_str(), /*overwrite=*/1), 0);
    EXPECT_EQ(DllRegisterServer(), S_OK);
    EXPECT_TRUE(std::filesystem::is_empty(settings.Path()));
    EXPECT_EQ(DllUnregisterServer(), S_OK);
    EXPECT_TRUE(std::filesystem::is_empty(settings.Path()));
    unsetenv("XDG_CONFIG_HOME");
}

}  // namespace
