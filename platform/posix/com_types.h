// COM as far as an in-process source component needs it: GUIDs, IUnknown, IClassFactory, the task allocator. The
// result codes are in com_codes.h, the DirectShow records and interfaces in com_dshow.h.
//
// Source of every layout, slot order and number: Microsoft's public documentation of COM and DirectShow. Included
// through platform/com.h only.

#pragma once

#include <cstdint>
#include <cstdlib>

#include "platform/posix/com_codes.h"
#include "platform/posix/win32_types.h"

#define STDAPI extern "C" HRESULT STDAPICALLTYPE

using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

inline bool IsEqualGUID(REFGUID a, REFGUID b) {
    return a == b;
}

using OLECHAR = wchar_t;
using LPOLESTR = wchar_t*;
using LPCOLESTR = const wchar_t*;

inline constexpr GUID GUID_NULL{};
inline constexpr IID IID_IUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IClassFactory{0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IPersist{0x0000010C, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

  protected:
    ~IUnknown() = default;  // an object is destroyed by its last Release, never through an interface
};
using LPUNKNOWN = IUnknown*;

struct IClassFactory : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) = 0;
};

struct IPersist : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetClassID(CLSID* pClassID) = 0;
};

// The task allocator is the C heap: memory that the component hands out may be freed by a host that was built apart.
inline void* CoTaskMemAlloc(SIZE_T bytes) {
    return std::malloc(bytes == 0 ? 1 : bytes);
}
inline void CoTaskMemFree(void* memory) {
    std::free(memory);
}

#include "platform/posix/com_dshow.h"
