// The registry itself. The keys lie below a name that this test alone has; writing below the machine's root takes an
// administrator.
#include <stdexcept>

#include "tests/filter/SettingsKeys.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {
namespace {

HKEY Hive(RegistryKeyPair::Root root) {
    return root == RegistryKeyPair::kMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}

}  // namespace

struct SettingsKeys::Store {
    ~Store() {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, top.c_str());
        RegDeleteTreeW(HKEY_CURRENT_USER, top.c_str());
    }

    TempDir folder;  // its name is taken by nobody else
    std::wstring top = L"Software\\" + folder.Path().filename().wstring();
};

SettingsKeys::SettingsKeys() : m_store(std::make_unique<Store>()) {}

SettingsKeys::~SettingsKeys() = default;

std::wstring SettingsKeys::Path(const wchar_t* name) const {
    return m_store->top + L"\\" + name;
}

void SettingsKeys::Make(RegistryKeyPair::Root root, const wchar_t* name) {
    HKEY created = nullptr;
    if (RegCreateKeyExW(Hive(root), Path(name).c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &created, nullptr) !=
        ERROR_SUCCESS) {
        throw std::runtime_error("a registry key of the test's cannot be made: run it as an administrator");
    }
    const UniqueRegKey key(created);
    const DWORD size = 3;
    RegSetValueExW(key.get(), L"size", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&size), sizeof size);
}

bool SettingsKeys::IsEmpty(RegistryKeyPair::Root root) const {
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenKeyExW(Hive(root), m_store->top.c_str(), 0, KEY_READ, &opened);
    const UniqueRegKey key(opened);
    return status == ERROR_FILE_NOT_FOUND;
}

}  // namespace kvmpd::test
