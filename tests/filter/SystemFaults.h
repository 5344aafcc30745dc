// The system below the component, watched and made to fail: the linker puts these functions in front of the system's.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace kvmpd::test {

/// While it lives, allocation number `which` (from 1) of at least `size` bytes by the calling thread fails, be it for
/// C++ objects or for task memory.
class FailingAllocation {
  public:
    FailingAllocation(int which, std::size_t size);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether it has failed.
    bool Happened() const;
};

/// While it lives, keeps the settings keys that the calling thread opens and counts those that it creates.
class WatchedSettings {
  public:
    struct Opened {
        HKEY root;
        std::wstring subKey;
        REGSAM access;

        bool operator==(const Opened&) const = default;
    };

    WatchedSettings();
    ~WatchedSettings();
    WatchedSettings(const WatchedSettings&) = delete;
    WatchedSettings& operator=(const WatchedSettings&) = delete;

    std::vector<Opened> opened;
    int created = 0;
    std::function<void()> onOpen = [] {};
};

}  // namespace kvmpd::test
