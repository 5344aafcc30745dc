#include "filter/RegistryKeyPair.h"

namespace kvmpd {

void RegistryKeyPair::Open(const std::wstring& subKey, bool create) {
    const std::array<HKEY, 2> roots{HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER};
    for (std::size_t slot = 0; slot < roots.size(); ++slot) {
        HKEY key = nullptr;
        m_keys[slot].reset();
        LSTATUS status = RegOpenKeyExW(roots[slot], subKey.c_str(), /*options=*/0, KEY_READ, &key);
        if (status != ERROR_SUCCESS && create && slot != kMachine) {
            status = RegCreateKeyExW(roots[slot], subKey.c_str(), /*reserved=*/0, /*className=*/nullptr, /*options=*/0,
                                     KEY_READ, /*attributes=*/nullptr, &key, /*disposition=*/nullptr);
        }
        if (status == ERROR_SUCCESS) {
            m_keys[slot].reset(key);
        }
    }
}

}  // namespace kvmpd
