// The module: how a host gets at the source filter. On Windows it is a COM server, which a host loads and asks for its
// class factory; KVMPDCreateInstance is then compiled into the host (filter/CreateInstance.cpp). Elsewhere these five
// functions are all that the library exports.

#pragma once

#include "events/EventIds.h"
#include "events/IKVMPDCallback.h"
#include "filter/IKVMPDSource.h"
#include "platform/com.h"

// {7D3E2A91-5C4B-4F18-A6E2-3B9C0D4E1F27}: the source filter, "Kavotra MPD Source".
inline constexpr CLSID CLSID_KVMPDFilter{0x7D3E2A91, 0x5C4B, 0x4F18, {0xA6, 0xE2, 0x3B, 0x9C, 0x0D, 0x4E, 0x1F, 0x27}};

// The class factory of a class of this module. riid: IID_IClassFactory or IID_IUnknown, else E_NOINTERFACE; any class
// but CLSID_KVMPDFilter: CLASS_E_CLASSNOTAVAILABLE. *ppv is null after a failure.
STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv);

// S_FALSE while an object of the module is alive or its server is locked; S_OK when the library may be unloaded.
STDAPI DllCanUnloadNow();

// Both do nothing and report success: where and whether the class is registered is the host's business.
STDAPI DllRegisterServer();
STDAPI DllUnregisterServer();

// Creates an object by class id, as the class factory does, in one call. outer: the controlling unknown of an
// aggregation (riid is then IID_IUnknown), or null. The reference in *ppv is the caller's; *ppv is null after a
// failure.
STDAPI KVMPDCreateInstance(REFCLSID rclsid, IUnknown* outer, REFIID riid, void** ppv);
