// The Windows calls that the project uses, for systems without <windows.h>. A comment says only where a call differs
// from the documented Windows behaviour; everything else is as documented there, including the last-error numbers.
//
// Handles. A HANDLE names a reference-counted kernel object of ours through a table, so a closed or made-up handle is
// refused with ERROR_INVALID_HANDLE and is never taken for a younger object. Objects are never shared with another
// process: a name is refused (ERROR_NOT_SUPPORTED), security attributes are ignored, nothing is inherited.
//
// All calls may be used from any thread; calls on one critical section follow Windows' rules for it.
#ifndef PLATFORM_POSIX_WIN32_API_H_
#define PLATFORM_POSIX_WIN32_API_H_

#include "platform/posix/win32_types.h"

// --- Error numbers (GetLastError, registry results) ---

constexpr DWORD NO_ERROR = 0;
constexpr LONG ERROR_SUCCESS = 0;
constexpr LONG ERROR_FILE_NOT_FOUND = 2;
constexpr LONG ERROR_PATH_NOT_FOUND = 3;
constexpr LONG ERROR_TOO_MANY_OPEN_FILES = 4;
constexpr LONG ERROR_ACCESS_DENIED = 5;
constexpr LONG ERROR_INVALID_HANDLE = 6;
constexpr LONG ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr LONG ERROR_OUTOFMEMORY = 14;
constexpr LONG ERROR_WRITE_PROTECT = 19;
constexpr LONG ERROR_NOT_READY = 21;
constexpr LONG ERROR_GEN_FAILURE = 31;
constexpr LONG ERROR_SHARING_VIOLATION = 32;
constexpr LONG ERROR_HANDLE_EOF = 38;
constexpr LONG ERROR_NOT_SUPPORTED = 50;
constexpr LONG ERROR_FILE_EXISTS = 80;
constexpr LONG ERROR_INVALID_PARAMETER = 87;
constexpr LONG ERROR_BROKEN_PIPE = 109;
constexpr LONG ERROR_DISK_FULL = 112;
constexpr LONG ERROR_INSUFFICIENT_BUFFER = 122;
constexpr LONG ERROR_INVALID_NAME = 123;
constexpr LONG ERROR_NEGATIVE_SEEK = 131;
constexpr LONG ERROR_BAD_PATHNAME = 161;
constexpr LONG ERROR_MAX_THRDS_REACHED = 164;
constexpr LONG ERROR_BUSY = 170;
constexpr LONG ERROR_ALREADY_EXISTS = 183;
constexpr LONG ERROR_FILENAME_EXCED_RANGE = 206;
constexpr LONG ERROR_FILE_TOO_LARGE = 223;
constexpr LONG ERROR_MORE_DATA = 234;
constexpr LONG ERROR_NO_MORE_ITEMS = 259;
constexpr LONG ERROR_DIRECTORY = 267;
constexpr LONG ERROR_TOO_MANY_POSTS = 298;
constexpr LONG ERROR_NOACCESS = 998;
constexpr LONG ERROR_INVALID_FLAGS = 1004;
constexpr LONG ERROR_BADDB = 1009;
constexpr LONG ERROR_NO_UNICODE_TRANSLATION = 1113;
constexpr LONG ERROR_IO_DEVICE = 1117;
constexpr LONG ERROR_CANCELLED = 1223;
constexpr LONG ERROR_NO_SYSTEM_RESOURCES = 1450;
constexpr LONG ERROR_TIMEOUT = 1460;
constexpr LONG ERROR_CANT_RESOLVE_FILENAME = 1921;

DWORD GetLastError();
void SetLastError(DWORD error);

// --- Kernel objects and waits ---

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));

constexpr DWORD INFINITE = 0xFFFFFFFFu;
constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_ABANDONED_0 = 0x80;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES attributes, LONG initialCount, LONG maximumCount, LPCWSTR name);
BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LPLONG previousCount);

// Events, semaphores and threads can be waited for; a file or registry key is refused with ERROR_INVALID_HANDLE.
// Waiters are served in the order in which they began to wait. Time-outs run on a monotonic clock. A waiter keeps the
// objects alive: closing a handle during a wait neither wakes nor harms it.
// A wait satisfied by a thread returns after that thread has ended altogether (thread-local objects destroyed).
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds);

// Closes files, events, semaphores and threads.
BOOL CloseHandle(HANDLE handle);

// --- Critical sections ---

// Re-entrant lock. The storage is opaque; it holds all there is, so nothing is allocated.
struct CRITICAL_SECTION {
    alignas(void*) unsigned char storage[8 * sizeof(void*)];
};
using LPCRITICAL_SECTION = CRITICAL_SECTION*;

// Leaving a section that the calling thread does not hold ends the process: going on would corrupt what it guards.
void InitializeCriticalSection(LPCRITICAL_SECTION section);
void EnterCriticalSection(LPCRITICAL_SECTION section);
BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section);
void LeaveCriticalSection(LPCRITICAL_SECTION section);
void DeleteCriticalSection(LPCRITICAL_SECTION section);

// --- Threads and time ---

using LPTHREAD_START_ROUTINE = DWORD(WINAPI*)(LPVOID parameter);

constexpr DWORD STILL_ACTIVE = 259;
constexpr DWORD STACK_SIZE_PARAM_IS_A_RESERVATION = 0x00010000;

// A thread starts at once: CREATE_SUSPENDED and other flags but the stack one are refused (ERROR_INVALID_PARAMETER).
// The new thread blocks asynchronous signals, so that the program's signal handlers run on the program's own threads.
// An exception that leaves `start` ends the process.
HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE start, LPVOID parameter,
                    DWORD flags, LPDWORD threadId);
BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode);

// Numbers of our own, never zero and not the kernel's thread numbers; unlike on Windows none is used twice.
DWORD GetCurrentThreadId();

void Sleep(DWORD milliseconds);

// Milliseconds of a monotonic clock with an arbitrary start; time that the machine sleeps may not be counted.
ULONGLONG GetTickCount64();

// --- Interlocked arithmetic ---

inline LONG InterlockedIncrement(volatile LONG* value) noexcept {
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(volatile LONG* value) noexcept {
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}

// --- Files ---

constexpr DWORD MAX_PATH = 260;

constexpr DWORD GENERIC_READ = 0x80000000u;
constexpr DWORD GENERIC_WRITE = 0x40000000u;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD FILE_SHARE_WRITE = 2;
constexpr DWORD FILE_SHARE_DELETE = 4;
constexpr DWORD CREATE_NEW = 1;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD TRUNCATE_EXISTING = 5;
constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x1;
constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x2;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD FILE_BEGIN = 0;
constexpr DWORD FILE_CURRENT = 1;
constexpr DWORD FILE_END = 2;
constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFFu;
constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFFu;

// Paths: a backslash separates like a slash, the prefix "\\?\" is dropped, the rest is the system's own path in UTF-8;
// there are no drives. A text that is no valid Unicode is refused with ERROR_INVALID_NAME.
//
// Differences of the file system that a caller can see:
// - Share modes are not enforced: a second opener never meets ERROR_SHARING_VIOLATION.
// - Attributes have no counterpart and are ignored (a hidden file is an ordinary one).
// - A file that is created is readable and writable by its owner alone (mode 0600).
// - An open file can be deleted; its data lives until the last handle is closed.
// - Access bits other than GENERIC_READ and GENERIC_WRITE count for nothing; flags such as overlapped are ignored.
HANDLE CreateFileW(LPCWSTR fileName, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES attributes, DWORD disposition,
                   DWORD flagsAndAttributes, HANDLE templateFile);

// `overlapped` must be null (else ERROR_NOT_SUPPORTED). The byte count must be asked for (else
// ERROR_INVALID_PARAMETER). A failed write reports the bytes that reached the file before the failure, and the file
// pointer is behind them.
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD bytesToRead, LPDWORD bytesRead, LPOVERLAPPED overlapped);
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD bytesToWrite, LPDWORD bytesWritten, LPOVERLAPPED overlapped);

// Result 0xFFFFFFFF (INVALID_SET_FILE_POINTER) is a failure unless GetLastError() is NO_ERROR.
DWORD SetFilePointer(HANDLE file, LONG distanceLow, PLONG distanceHigh, DWORD moveMethod);
BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size);

// A read-only file is deleted when its folder may be written.
BOOL DeleteFileW(LPCWSTR fileName);

// --- Registry ---

inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000001u)));
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000002u)));

constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
constexpr REGSAM KEY_SET_VALUE = 0x0002;
constexpr REGSAM KEY_READ = 0x20019;
constexpr REGSAM KEY_WRITE = 0x20006;
constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_DWORD = 4;
constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
constexpr DWORD REG_CREATED_NEW_KEY = 1;
constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

// A key is a small settings file, its values are lines `name = value` (see registry.cpp for the mapping of key names
// and settings_file.h for the syntax). The values that a key shows are those at the time it was opened.
// A text value (REG_SZ) is kept as on Windows: UTF-16 code units of two bytes each, terminator included. The sizes are
// therefore Windows', and the data is not an array of this system's wchar_t.
LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result);

// Under HKEY_LOCAL_MACHINE a key that does not exist is created only where the caller may write (as a rule the
// administrator), else the result is ERROR_ACCESS_DENIED.
LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR className, DWORD options, REGSAM access,
                        const SECURITY_ATTRIBUTES* attributes, PHKEY result, LPDWORD disposition);
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD dataSize);
LSTATUS RegCloseKey(HKEY key);

// --- Debug output ---

// There is no debugger channel: the text goes to standard error as UTF-8, each line in one write() so that lines of
// several threads do not mix (a line of more than 4096 bytes takes several). What cannot be written is dropped. The
// narrow text is written as it is; a wide character that is no Unicode scalar value becomes U+FFFD. Never allocates,
// never fails, leaves the last error alone, and raises no SIGPIPE.
void OutputDebugStringA(LPCSTR text);
void OutputDebugStringW(LPCWSTR text);

// --- Text conversion ---

constexpr UINT CP_ACP = 0;
constexpr UINT CP_UTF8 = 65001;
constexpr DWORD MB_PRECOMPOSED = 1;
constexpr DWORD MB_ERR_INVALID_CHARS = 8;
constexpr DWORD WC_ERR_INVALID_CHARS = 0x80;

// The code pages are CP_UTF8 and CP_ACP, which is UTF-8 too; any other is refused with ERROR_INVALID_PARAMETER.
// A wide character is a whole code point of 32 bits, so a length counts one where Windows counts a surrogate pair as
// two; a surrogate in wide text is always invalid. Invalid input becomes U+FFFD (one for each maximal invalid prefix
// of a UTF-8 sequence) unless the flag asks for an error.
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int textBytes, LPWSTR wide, int wideSize);
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideChars, LPSTR text, int textSize,
                        LPCSTR defaultChar, LPBOOL usedDefaultChar);

#endif  // PLATFORM_POSIX_WIN32_API_H_
