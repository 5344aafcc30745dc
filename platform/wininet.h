// The door to HTTP: the internet calls, constants and error numbers that this project uses.
//
// On Windows this is the SDK's own header. Elsewhere it is our declarations of the same names over libcurl; what a call
// does differently there is said where it is declared.
#ifndef PLATFORM_WININET_H_
#define PLATFORM_WININET_H_

#include "platform/win32.h"

#ifdef _WIN32
#include <wininet.h>
#else
#include "platform/posix/wininet_api.h"
#endif

#endif  // PLATFORM_WININET_H_
