// Windows' basic types, result codes and GUID for systems without <windows.h>.
//
// Self-contained and safe for a host program to include: it declares no function that needs linking, and defines no
// macro except Windows' own TRUE, FALSE and the (empty) calling conventions.
//
// Widths are Windows': LONG, ULONG, DWORD and HRESULT have 32 bits also where `long` has 64. Two things differ and can
// surprise: LONG, INT, BOOL and HRESULT are one and the same C++ type here (so they cannot overload each other), and
// wchar_t has 32 bits and holds a whole code point (there are no surrogate pairs in our wide text).
#ifndef PLATFORM_POSIX_WIN32_TYPES_H_
#define PLATFORM_POSIX_WIN32_TYPES_H_

#include <cstddef>
#include <cstdint>

// Calling conventions: there is only one here.
#ifndef WINAPI
#define WINAPI
#endif
#ifndef APIENTRY
#define APIENTRY
#endif
#ifndef CALLBACK
#define CALLBACK
#endif
#ifndef STDMETHODCALLTYPE
#define STDMETHODCALLTYPE
#endif
#ifndef STDAPICALLTYPE
#define STDAPICALLTYPE
#endif

// Macros and not constants, because other libraries define the same two names.
#ifndef FALSE
#define FALSE 0
#endif
#ifndef TRUE
#define TRUE 1
#endif

// --- Integers ---

using BOOL = int;
using BOOLEAN = unsigned char;
using BYTE = unsigned char;
using CHAR = char;
using UCHAR = unsigned char;
using WCHAR = wchar_t;
using SHORT = short;
using USHORT = unsigned short;
using WORD = unsigned short;
using INT = int;
using UINT = unsigned int;
using LONG = int;
using ULONG = unsigned int;
using DWORD = unsigned int;
using INT32 = int;
using UINT32 = unsigned int;
using LONGLONG = long long;
using ULONGLONG = unsigned long long;
using DWORDLONG = unsigned long long;
using INT64 = long long;
using UINT64 = unsigned long long;
using INT_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;

using HRESULT = LONG;
using LSTATUS = LONG;
using REGSAM = DWORD;

// --- Pointers ---

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using PBYTE = BYTE*;
using LPBYTE = BYTE*;
using PDWORD = DWORD*;
using LPDWORD = DWORD*;
using PLONG = LONG*;
using LPLONG = LONG*;
using LPBOOL = BOOL*;
using LPSTR = char*;
using LPCSTR = const char*;
using PWSTR = wchar_t*;
using LPWSTR = wchar_t*;
using PCWSTR = const wchar_t*;
using LPCWSTR = const wchar_t*;

// --- Handles ---

using HANDLE = void*;
using LPHANDLE = HANDLE*;
using HWND = struct HWND__*;
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using HKEY = struct HKEY__*;
using PHKEY = HKEY*;

// --- Structures ---

union LARGE_INTEGER {
    // The two names of the halves in use on Windows; little-endian layout, like there.
    __extension__ struct {
        DWORD LowPart;
        LONG HighPart;
    };
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};
using PLARGE_INTEGER = LARGE_INTEGER*;

union ULARGE_INTEGER {
    __extension__ struct {
        DWORD LowPart;
        DWORD HighPart;
    };
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
};
using PULARGE_INTEGER = ULARGE_INTEGER*;

// Accepted by the calls that take one and otherwise unused: objects here live in one process and have no descriptor.
struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

// Never defined: overlapped input and output is not offered.
struct OVERLAPPED;
using LPOVERLAPPED = OVERLAPPED*;

struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};

constexpr bool operator==(const GUID& a, const GUID& b) noexcept {
    for (int i = 0; i < 8; ++i) {
        if (a.Data4[i] != b.Data4[i]) {
            return false;
        }
    }
    return a.Data1 == b.Data1 && a.Data2 == b.Data2 && a.Data3 == b.Data3;
}

static_assert(sizeof(BYTE) == 1 && sizeof(WORD) == 2 && sizeof(BOOL) == 4 && sizeof(UINT) == 4);
static_assert(sizeof(LONG) == 4 && sizeof(ULONG) == 4 && sizeof(DWORD) == 4 && sizeof(HRESULT) == 4);
static_assert(sizeof(LONGLONG) == 8 && sizeof(ULONGLONG) == 8 && sizeof(LARGE_INTEGER) == 8);
static_assert(sizeof(DWORD_PTR) == sizeof(void*) && sizeof(HANDLE) == sizeof(void*));
static_assert(sizeof(GUID) == 16 && alignof(GUID) == 4);
static_assert(sizeof(wchar_t) == 4, "text.cpp, paths.cpp and debug_output.cpp treat a wchar_t as a code point");

// --- Result codes ---

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT NOERROR = 0;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004u);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005u);
constexpr HRESULT E_HANDLE = static_cast<HRESULT>(0x80070006u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110u);
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111u);

constexpr DWORD FACILITY_WIN32 = 7;

constexpr bool SUCCEEDED(HRESULT hr) noexcept {
    return hr >= 0;
}
constexpr bool FAILED(HRESULT hr) noexcept {
    return hr < 0;
}
constexpr DWORD HRESULT_CODE(HRESULT hr) noexcept {
    return static_cast<DWORD>(hr) & 0xFFFFu;
}
constexpr DWORD HRESULT_FACILITY(HRESULT hr) noexcept {
    return (static_cast<DWORD>(hr) >> 16) & 0x1FFFu;
}

// A value that is already a failed HRESULT (or zero) stays as it is.
constexpr HRESULT HRESULT_FROM_WIN32(DWORD error) noexcept {
    return static_cast<HRESULT>(error) <= 0
               ? static_cast<HRESULT>(error)
               : static_cast<HRESULT>((error & 0xFFFFu) | (FACILITY_WIN32 << 16) | 0x80000000u);
}

#endif  // PLATFORM_POSIX_WIN32_TYPES_H_
