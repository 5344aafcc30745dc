// The module's entry point. The loader's lock is held here, so nothing is started, waited for or joined: worker threads
// belong to the objects, and the module is not unloaded while one is alive.

#include "platform/win32.h"

BOOL APIENTRY DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}
