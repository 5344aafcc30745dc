// Lets a test put the settings files of the registry calls into folders of its own.
#ifndef PLATFORM_POSIX_SETTINGS_FOR_TEST_H_
#define PLATFORM_POSIX_SETTINGS_FOR_TEST_H_

#include <string>

namespace kvmpd::platform {

// While alive, `machineRoot` takes the place of /etc and `userRoot` that of the user's configuration folder, for the
// keys that are opened from then on. One at a time in a process; any thread. The environment variables that override
// values still do.
class SettingsRootsForTest {
  public:
    SettingsRootsForTest(std::string machineRoot, std::string userRoot);
    ~SettingsRootsForTest();
    SettingsRootsForTest(const SettingsRootsForTest&) = delete;
    SettingsRootsForTest& operator=(const SettingsRootsForTest&) = delete;
};

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_SETTINGS_FOR_TEST_H_
