// COM and the DirectShow interfaces, by their Windows names.
//
// On Windows this is the SDK; elsewhere it is our own declarations of the same interfaces, with the documented slot
// order, interface ids, record layouts and result codes. Interface ids elsewhere are inline constants, and the task
// allocator is inline: a host that includes this needs no link symbol and gets no function that it could not call.

#pragma once

#ifdef _WIN32
#include "platform/win32.h"

#include <objbase.h>
#include <unknwn.h>

#include <dshow.h>
#else
#include "platform/posix/com_types.h"
#endif
