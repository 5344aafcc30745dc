// A look at what the ring and its handler keep to themselves.
#pragma once

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/Text.h"
#include "stream/BufferHandler.h"
#include "stream/CRingBuffer.h"
#include "tests/support/TempDir.h"

namespace kvmpd {

struct CRingBufferTestAccess {
    static DWORD ReadIndex(const CRingBuffer& ring) { return ring.m_iReadPtr; }
    static DWORD WriteIndex(const CRingBuffer& ring) { return ring.m_iWritePtr; }
    static DWORD Size(const CRingBuffer& ring) { return ring.m_nBufSize; }
    static bool HasSpare(const CRingBuffer& ring) { return ring.m_pSpare != nullptr; }
    static bool HoldsFailedFile(const CRingBuffer& ring) { return static_cast<bool>(ring.m_failedFile); }
    static std::vector<BYTE> Array(const CRingBuffer& ring) {
        return {ring.m_pBuffer.get(), ring.m_pBuffer.get() + ring.m_nBufSize};
    }
    static std::vector<BYTE> Spare(const CRingBuffer& ring) {
        return {ring.m_pSpare.get(), ring.m_pSpare.get() + ring.m_nBufSize};
    }
};

struct BufferHandlerTestAccess {
    static const CRingBuffer* Ring(const BufferHandler& handler) { return handler.m_pRing.get(); }
    /// Says that the ring holds the stream up to `position`, whatever it holds.
    static void SetEnd(BufferHandler& handler, LONGLONG position) { handler.m_llEndPos = position; }
    static void SetLastAccess(BufferHandler& handler, LONGLONG position) { handler.m_llLastAccessPos = position; }
    static bool HoldsFailedFile(const BufferHandler& handler) {
        return handler.m_pRing && CRingBufferTestAccess::HoldsFailedFile(*handler.m_pRing);
    }
    static LONGLONG LastAccess(const BufferHandler& handler) { return handler.m_llLastAccessPos; }
};

namespace test {

/// Byte `index` of every file that these tests write: neighbours differ, and so do bytes a power of two apart.
inline BYTE PatternByte(size_t index) {
    return static_cast<BYTE>(index * 7 + index / 251 + 1);
}

inline std::vector<BYTE> Pattern(size_t begin, size_t count) {
    std::vector<BYTE> bytes(count);
    for (size_t i = 0; i < count; ++i) {
        bytes[i] = PatternByte(begin + i);
    }
    return bytes;
}

/// A file of pattern bytes, gone with the test.
class PatternFile {
  public:
    explicit PatternFile(size_t size) {
        const std::vector<BYTE> bytes = Pattern(0, size);
        std::ofstream(m_dir.Path() / "file.bin", std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    std::wstring Name() const { return Utf8ToWide((m_dir.Path() / "file.bin").string()); }
    std::wstring NoSuchFile() const { return Utf8ToWide((m_dir.Path() / "missing.bin").string()); }

  private:
    TempDir m_dir;
};

}  // namespace test
}  // namespace kvmpd
