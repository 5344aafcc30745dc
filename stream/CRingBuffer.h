// A fixed-size byte ring that is filled straight from a file range and drained from the front. Not locked: the owner's
// lock covers every call.
#pragma once

#include <memory>
#include <string>

#include "common/Handle.h"
#include "platform/win32.h"

namespace kvmpd {

class CRingBuffer {
  public:
    CRingBuffer();
    virtual ~CRingBuffer();
    CRingBuffer(const CRingBuffer&) = delete;
    CRingBuffer& operator=(const CRingBuffer&) = delete;

    /// Allocates `size` bytes, zeroed; false when there is no memory. One byte is always left free, so `size` - 1 fit.
    bool Create(DWORD size);

    /// Consumes `count` bytes from the front into `destination`; with a null destination they are only discarded.
    /// E_FAIL when fewer are there.
    HRESULT ReadBinary(BYTE* destination, DWORD count);

    /// Copies `count` bytes that lie `offset` bytes behind the front, consuming nothing. E_FAIL when they are not
    /// there.
    HRESULT PeekBinary(BYTE* destination, DWORD offset, DWORD count) const;

    /// Appends `count` bytes of the file from `fileOffset` on, all or none. E_FAIL: no room; E_ACCESSDENIED: the file
    /// could not be opened, positioned or read that far; E_POINTER: the write index ran past the array.
    HRESULT WriteBinaryFromFile(const std::wstring& fileName, LONGLONG fileOffset, DWORD count);

    DWORD Used() const;
    DWORD Free() const;
    bool HasArray() const { return m_pBuffer != nullptr; }

    /// Forgets the content and zeroes the array; closes the file of a failed read.
    void Clear();

    /// Lets go of the file of a failed read. For who is about to delete it: Windows deletes no file that is open.
    void CloseFailedFile() { m_failedFile.reset(); }

  private:
    friend struct CRingBufferTestAccess;
    struct FreeArray {
        void operator()(BYTE* array) const;
    };
    using Array = std::unique_ptr<BYTE[], FreeArray>;
    static Array AllocateZeroed(DWORD size);
    void Destroy();
    bool ReadIntoArray(HANDLE file, DWORD request, DWORD& got);

    Array m_pBuffer;
    /// A second array of the same size that nothing reads or writes, kept deliberately. The system gives untouched
    /// zeroed pages no memory.
    Array m_pSpare;
    DWORD m_iReadPtr = 0;   // index of the oldest unread byte; may equal m_nBufSize
    DWORD m_iWritePtr = 0;  // index where the next byte goes
    DWORD m_nBufSize = 0;
    DWORD m_highWater = 0;  // indexes at or above were never written since they were zeroed
    /// The file of the last failed read deliberately stays open, but only until the next write, so that a
    /// failure that repeats never holds more than one, or until the file is to be deleted.
    UniqueFile m_failedFile;
};

}  // namespace kvmpd
