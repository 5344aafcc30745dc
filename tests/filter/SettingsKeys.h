// Settings that a test makes for itself, under both roots, and that are gone with it.
#pragma once

#include <memory>
#include <string>

#include "filter/RegistryKeyPair.h"

namespace kvmpd::test {

class SettingsKeys {
  public:
    SettingsKeys();
    ~SettingsKeys();

    /// The path of a key below both roots that nobody else uses.
    std::wstring Path(const wchar_t* name) const;

    /// Makes that key with the number 3 as its value "size".
    void Make(RegistryKeyPair::Root root, const wchar_t* name);

    /// Whether anything of this test's is below `root`.
    bool IsEmpty(RegistryKeyPair::Root root) const;

  private:
    struct Store;
    std::unique_ptr<Store> m_store;
};

}  // namespace kvmpd::test
