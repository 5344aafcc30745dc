// Puts stream positions on a ring buffer: which bytes of the video or audio byte stream the ring holds. Reads are by
// position and consume nothing. A write that does not fit frees space: what lies before the reader's last access, or,
// when the reader has gone back to before the ring's first byte, as much as the write wants. Not locked: the engine's
// buffer lock covers every call.
#pragma once

#include <memory>
#include <string>

#include "stream/CRingBuffer.h"

namespace kvmpd {

class BufferHandler {
  public:
    BufferHandler() = default;
    virtual ~BufferHandler();
    BufferHandler(const BufferHandler&) = delete;
    BufferHandler& operator=(const BufferHandler&) = delete;

    /// Makes a new ring of `size` bytes. E_OUTOFMEMORY when the arrays could not be had; the empty ring is kept then.
    HRESULT Init(DWORD size);
    bool HasRing() const { return m_pRing != nullptr; }

    /// Copies `length` bytes at `position` and returns their number; 0 when the ring does not hold them all. A request
    /// that ends exactly at the newest byte is not served here (the cache files serve it).
    DWORD ReadBuffer(LONGLONG position, BYTE* destination, DWORD length);

    /// Appends up to `length` bytes of the file from `fileOffset` on; `written` tells how many (a partial write
    /// succeeds). A length of 0 is S_OK and leaves `written` alone. E_OUTOFMEMORY: full of bytes not yet read; E_FAIL:
    /// no ring; else the ring's failure.
    HRESULT WriteBinaryFromFile(const std::wstring& fileName, LONGLONG fileOffset, DWORD length, DWORD& written);

    /// Empties the ring; all positions become 0.
    void Clear();

    /// Lets go of the file whose read failed last, so that it can be deleted.
    void CloseFailedFile();

    /// Lets an empty ring begin at stream position `position`.
    void StartAt(LONGLONG position);

    LONGLONG StartPos() const { return m_llStartPos; }
    LONGLONG EndPos() const { return m_llEndPos; }

  private:
    friend struct BufferHandlerTestAccess;
    DWORD MakeRoom(DWORD length);

    std::unique_ptr<CRingBuffer> m_pRing;
    LONGLONG m_llStartPos = 0;       // stream position of the ring's oldest byte
    LONGLONG m_llEndPos = 0;         // one past its newest; the difference is what the ring uses
    LONGLONG m_llLastAccessPos = 0;  // where the last read request ended, served or not
};

}  // namespace kvmpd
