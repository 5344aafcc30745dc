// The module's entry point, called by the loader through the runtime's start-up code. The loader's lock is held here,
// so nothing is started, waited for or joined: worker threads belong to the objects, and the module is not unloaded
// while one is alive. Notifications of threads are turned off where that is possible: the call declines by itself in a
// module whose runtime has thread-local storage to look after. The module handle is not kept, because nothing here
// loads a resource or asks for the module's path.

#include "platform/win32.h"

BOOL APIENTRY DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}
