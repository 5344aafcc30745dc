// The byte source behind the output pin: two byte streams, video and audio, read by position.
//
// The slot order is a contract: the pin calls these operations through the table, and a stream built apart must agree
// with it. A positioning and the read after it belong together: the reader holds Lock() around the pair, because the
// position is state of the stream, not of the call. No operation blocks for data; bytes that are not there yet are
// answered with S_FALSE and the reader retries.

#pragma once

#include "platform/com.h"

namespace kvmpd {

// Positions below this address video bytes; a position at or above it addresses the audio byte at (position - base).
inline constexpr LONGLONG AUDIO_POSITION_BASE = 0x3FFFFFFFFFFFFFFF;

class CAsyncStream {
  public:
    virtual ~CAsyncStream() = default;

    // Set the byte position of the next video or audio read. A failure is the result of the read that asked for it.
    virtual HRESULT SetPointer(LONGLONG llPos) = 0;
    virtual HRESULT SetAudioPointer(LONGLONG llPos) = 0;

    // Read dwBytesToRead bytes at the pointer into pbBuffer. S_OK: read; S_FALSE: fewer bytes than asked are there yet;
    // OLE_S_FIRST: read, and the bytes do not continue the ones before; or an error. bAlign says that the position and
    // length were aligned to Alignment(). *pdwBytesRead is written unless the result is an error.
    virtual HRESULT Read(BYTE* pbBuffer, DWORD dwBytesToRead, BOOL bAlign, DWORD* pdwBytesRead) = 0;
    virtual HRESULT ReadAudio(BYTE* pbBuffer, DWORD dwBytesToRead, BOOL bAlign, DWORD* pdwBytesRead) = 0;

    // First buffered byte position and one past the last, of the video or the audio stream.
    virtual HRESULT Size(LONGLONG* pllStart, LONGLONG* pllEnd) = 0;
    virtual HRESULT SizeAudio(LONGLONG* pllStart, LONGLONG* pllEnd) = 0;

    // Total and available length in bytes of the whole address space.
    virtual HRESULT Length(LONGLONG* pllTotal, LONGLONG* pllAvailable) = 0;

    // Bytes to which positions and lengths of aligned reads are multiples; at least 1.
    virtual DWORD Alignment() = 0;

    virtual void Lock() = 0;
    virtual void Unlock() = 0;

    // Non-zero while reads are refused.
    virtual BOOL IsStopped() = 0;
};

}  // namespace kvmpd
