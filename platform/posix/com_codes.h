// Result codes of DirectShow, with their documented values. The general ones (S_OK, E_FAIL ...) are in win32_types.h.

#pragma once

#include "platform/posix/win32_types.h"

inline constexpr HRESULT ComResult(unsigned long code) {
    return static_cast<HRESULT>(code);
}

inline constexpr HRESULT OLE_S_FIRST = ComResult(0x00040000);

inline constexpr HRESULT VFW_S_NO_MORE_ITEMS = ComResult(0x00040103);
inline constexpr HRESULT VFW_S_STATE_INTERMEDIATE = ComResult(0x00040237);
inline constexpr HRESULT VFW_S_CANT_CUE = ComResult(0x00040268);
inline constexpr HRESULT VFW_S_NO_STOP_TIME = ComResult(0x00040270);

inline constexpr HRESULT VFW_E_INVALIDMEDIATYPE = ComResult(0x80040200);
inline constexpr HRESULT VFW_E_ENUM_OUT_OF_SYNC = ComResult(0x80040203);
inline constexpr HRESULT VFW_E_ALREADY_CONNECTED = ComResult(0x80040204);
inline constexpr HRESULT VFW_E_NO_ACCEPTABLE_TYPES = ComResult(0x80040207);
inline constexpr HRESULT VFW_E_INVALID_DIRECTION = ComResult(0x80040208);
inline constexpr HRESULT VFW_E_NOT_CONNECTED = ComResult(0x80040209);
inline constexpr HRESULT VFW_E_NO_ALLOCATOR = ComResult(0x8004020A);
inline constexpr HRESULT VFW_E_BUFFER_OVERFLOW = ComResult(0x8004020D);
inline constexpr HRESULT VFW_E_BADALIGN = ComResult(0x8004020E);
inline constexpr HRESULT VFW_E_ALREADY_COMMITTED = ComResult(0x8004020F);
inline constexpr HRESULT VFW_E_BUFFERS_OUTSTANDING = ComResult(0x80040210);
inline constexpr HRESULT VFW_E_NOT_COMMITTED = ComResult(0x80040211);
inline constexpr HRESULT VFW_E_SIZENOTSET = ComResult(0x80040212);
inline constexpr HRESULT VFW_E_NO_CLOCK = ComResult(0x80040213);
inline constexpr HRESULT VFW_E_NOT_FOUND = ComResult(0x80040216);
inline constexpr HRESULT VFW_E_NOT_STOPPED = ComResult(0x80040224);
inline constexpr HRESULT VFW_E_WRONG_STATE = ComResult(0x80040227);
inline constexpr HRESULT VFW_E_TYPE_NOT_ACCEPTED = ComResult(0x8004022A);
inline constexpr HRESULT VFW_E_TIMEOUT = ComResult(0x8004022E);
inline constexpr HRESULT VFW_E_SAMPLE_TIME_NOT_SET = ComResult(0x80040249);
inline constexpr HRESULT VFW_E_MEDIA_TIME_NOT_SET = ComResult(0x80040251);
inline constexpr HRESULT VFW_E_NO_TRANSPORT = ComResult(0x80040266);
