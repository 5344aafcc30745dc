// One settings key of the machine and of the user, opened together.

#pragma once

#include <array>
#include <string>

#include "common/Handle.h"
#include "platform/win32.h"

namespace kvmpd {

// A key that does not exist leaves its slot empty; that is no failure. One thread.
class RegistryKeyPair {
  public:
    enum Root { kMachine = 0, kUser = 1 };

    // Nothing open.
    RegistryKeyPair() = default;
    // As Open.
    RegistryKeyPair(const std::wstring& subKey, bool create) { Open(subKey, create); }

    // Opens `subKey` for reading under both roots, machine first, closing what was open before. create: make the user's
    // key when it does not exist; the machine's is never made.
    void Open(const std::wstring& subKey, bool create);

    HKEY Get(Root root) const { return m_keys[root].get(); }  // null when not open

  private:
    std::array<UniqueRegKey, 2> m_keys;
};

}  // namespace kvmpd
