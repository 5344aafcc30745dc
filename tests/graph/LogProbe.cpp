// Loads the module, lets it log at its levels, and ends. The test that starts it listens on its debugger channel: the
// verbosity is read once in a process, so each setting needs one of its own.

#include <string>

#include "tests/graph/LoadedModule.h"

int main() {
    kvmpd::test::LoadedModule module;
    const kvmpd::ComPtr<IBaseFilter> filter = module.NewFilter();
    kvmpd::ComPtr<IFileSourceFilter> source;
    kvmpd::ComPtr<IKVMPDSource> control;
    if (!filter || FAILED(filter->QueryInterface(IID_IFileSourceFilter, source.putVoid())) ||
        FAILED(filter->QueryInterface(IID_IKVMPDSource, control.putVoid()))) {
        return 1;
    }
    filter->Run(0);  // level 3; the construction before it wrote lines of level 4
    char folder[] = "C:\\probe";
    control->Backdoor(kvmpd::kBackdoorCacheFolder, folder);  // a narrow line
    // A value that changes now is for the next process.
    if (HKEY key = nullptr;
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Kavotra\\MpdSource", 0, KEY_SET_VALUE, &key) == ERROR_SUCCESS) {
        const DWORD silent = 0;
        RegSetValueExW(key, L"log", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&silent), sizeof(silent));
        RegCloseKey(key);
    }
    LPOLESTR name = nullptr;
    source->GetCurFile(&name, nullptr);  // level 6
    CoTaskMemFree(name);
    source->Load(std::wstring(2000, L'x').c_str(), nullptr);  // more than a line holds
    return 0;
}
