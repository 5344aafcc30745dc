// Loads the module, lets it log at each of its levels, and ends. The test that starts it listens on its debugger
// channel: the verbosity is read once in a process, so each setting needs one of its own.

#include <string>

#include "tests/graph/LoadedModule.h"

int main() {
    kvmpd::test::LoadedModule module;
    const kvmpd::ComPtr<IBaseFilter> filter = module.NewFilter();
    if (!filter) {
        return 1;
    }
    kvmpd::ComPtr<IFileSourceFilter> source;
    filter->QueryInterface(IID_IFileSourceFilter, source.putVoid());
    filter->Run(0);  // level 3; the construction before it wrote lines of level 4
    LPOLESTR name = nullptr;
    source->GetCurFile(&name, nullptr);  // level 6
    CoTaskMemFree(name);
    return 0;
}
