// Where settings are files: both roots in a folder of the test's own.
#include <filesystem>
#include <fstream>

#include "platform/posix/settings_for_test.h"
#include "tests/filter/SettingsKeys.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {

struct SettingsKeys::Store {
    Store() : roots(Root(RegistryKeyPair::kMachine).string(), Root(RegistryKeyPair::kUser).string()) {}

    std::filesystem::path Root(RegistryKeyPair::Root root) const {
        return folder.Path() / (root == RegistryKeyPair::kMachine ? "machine" : "user");
    }

    TempDir folder;
    platform::SettingsRootsForTest roots;
};

SettingsKeys::SettingsKeys() : m_store(std::make_unique<Store>()) {}

SettingsKeys::~SettingsKeys() = default;

std::wstring SettingsKeys::Path(const wchar_t* name) const {
    return std::wstring(L"Software\\Acme\\") + name;
}

void SettingsKeys::Make(RegistryKeyPair::Root root, const wchar_t* name) {
    // Settings files are found by the key's path in lower case, without the part that all programs share.
    std::wstring file(name);
    for (wchar_t& character : file) {
        character = character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character - L'A' + L'a') : character;
    }
    const auto folder = m_store->Root(root) / "acme";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / (file + L".conf")) << "size = 3\n";
}

bool SettingsKeys::IsEmpty(RegistryKeyPair::Root root) const {
    return !std::filesystem::exists(m_store->Root(root));
}

}  // namespace kvmpd::test
