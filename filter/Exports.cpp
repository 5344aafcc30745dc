// What the module exports, besides DllMain on Windows and KVMPDCreateInstance elsewhere: see the module definition file
// (win/KVMPDSrc.def) and the version script (KVMPDSrc.map). Everything else stays inside.

#include "directshow/CClassFactory.h"
#include "filter/KVMPDSrc.h"
#include "filter/Module.h"

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    return kvmpd::GetClassObject(kvmpd::ModuleTemplates(), rclsid, riid, ppv);
}

STDAPI DllCanUnloadNow() {
    return kvmpd::CanUnloadNow();
}

STDAPI DllRegisterServer() {
    return S_OK;
}

STDAPI DllUnregisterServer() {
    return S_OK;
}
