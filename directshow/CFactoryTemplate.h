// One creatable class of a module: its name, how it is made, and how its filter would be registered.

#pragma once

#include "directshow/CUnknown.h"
#include "platform/com.h"

namespace kvmpd {

// How a filter describes itself for registration. All pointers are to constants of the module.
struct FilterSetup {
    const CLSID* clsid;
    const wchar_t* name;
    DWORD merit;
    UINT pins;
    const REGFILTERPINS* pin;
};

struct CFactoryTemplate {
    // Makes the object with no reference yet. A failure is put into *phr; a null result without one means no memory.
    using CreateFunction = CUnknown* (*)(IUnknown* outer, HRESULT* phr);
    // Called when the module is loaded and unloaded.
    using InitFunction = void (*)(BOOL loading, const CLSID* clsid);

    const wchar_t* name;
    const CLSID* clsid;
    CreateFunction create;
    InitFunction init;         // may be null
    const FilterSetup* setup;  // may be null
};

}  // namespace kvmpd
