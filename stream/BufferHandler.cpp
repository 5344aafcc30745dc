#include "stream/BufferHandler.h"

#include <algorithm>

#include "common/Log.h"

namespace kvmpd {
namespace {

/// A reader may ask for any position; its arithmetic wraps.
LONGLONG Wrapped(ULONGLONG position) {
    return static_cast<LONGLONG>(position);
}

}  // namespace

BufferHandler::~BufferHandler() {
    Log(6, L" BufferHandler::~BufferHandler ");
}

HRESULT BufferHandler::Init(DWORD size) {
    m_pRing = std::make_unique<CRingBuffer>();
    if (!m_pRing->Create(size)) {
        Log(4, L"[Error] BufferHandler::Init allocate buffer size %d failed", size);
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

DWORD BufferHandler::ReadBuffer(LONGLONG position, BYTE* destination, DWORD length) {
    Log(3, L" BufferHandler::ReadBuffer position: %lld, length: %ld", position, length);
    if (!m_pRing) {
        return 0;
    }
    m_llLastAccessPos = Wrapped(static_cast<ULONGLONG>(position) + length);
    if (position < m_llStartPos || position >= m_llEndPos || length >= m_llEndPos - position) {
        Log(3,
            L"[Error] BufferHandler::ReadBuffer failed to get data from buffer for data in %lld that buffer range is "
            L"in "
            L"%lld ~ %lld",
            position, m_llStartPos, m_llEndPos);
        return 0;
    }
    const DWORD used = m_pRing->Used();
    if (!m_pRing->HasArray() || used == 0) {
        Log(6, L" BufferHandler::ReadBuffer does not read data for dwMaxReadSize is 0");
        return 0;
    }
    const DWORD count = std::min(length, used);
    const HRESULT result = m_pRing->PeekBinary(destination, static_cast<DWORD>(position - m_llStartPos), count);
    if (FAILED(result)) {
        Log(3, L"[Error] BufferHandler::ReadBuffer failed to read %d from buffer. result: 0x%08X", used, result);
        return 0;
    }
    return count;
}

/// Frees space behind the reader for `length` bytes; the number of them that now fit.
DWORD BufferHandler::MakeRoom(DWORD length) {
    const DWORD free = m_pRing->Free();
    const DWORD used = m_pRing->Used();
    const LONGLONG readBytes =
        Wrapped(static_cast<ULONGLONG>(m_llLastAccessPos) - static_cast<ULONGLONG>(m_llStartPos));
    // A reader that went back before the ring's first byte is served from the cache files, so the ring need not wait
    // for it: the low 32 bits of that negative distance are near 4 GiB and free as much as the write asks for.
    const DWORD toFree = readBytes >= used ? used : static_cast<DWORD>(readBytes);
    Log(6, L" BufferHandler::WriteBinaryFromFile max write size is %d. Need to free %d.", free, toFree);
    if (toFree == 0) {
        Log(6,
            L" BufferHandler::WriteBinaryFromFile does not read buffer due to last access position is %lld and buffer "
            L"start position is %lld",
            m_llLastAccessPos, m_llStartPos);
        return free;
    }
    const DWORD count = std::min(toFree, length - free);
    if (count > 0 && SUCCEEDED(m_pRing->ReadBinary(nullptr, count))) {
        Log(6, L" BufferHandler::WriteBinaryFromFile increase %d start position from %lld", count, m_llStartPos);
        m_llStartPos += count;
        return std::min(length, m_pRing->Free());
    }
    Log(3, L"[Error] BufferHandler::WriteBinaryFromFile failed to read binary %d to free buffer %d", count, toFree);
    return free;
}

HRESULT BufferHandler::WriteBinaryFromFile(const std::wstring& fileName, LONGLONG fileOffset, DWORD length,
                                           DWORD& written) {
    if (length == 0) {
        return S_OK;
    }
    if (!m_pRing) {
        return E_FAIL;
    }
    const DWORD count = m_pRing->Free() < length ? MakeRoom(length) : length;
    if (count == 0) {
        return E_OUTOFMEMORY;
    }
    const HRESULT result = m_pRing->WriteBinaryFromFile(fileName, fileOffset, count);
    if (SUCCEEDED(result)) {
        written = count;
        m_llEndPos += count;
    }
    return result;
}

void BufferHandler::Clear() {
    Log(6, L" BufferHandler::Clear ");
    if (m_pRing) {
        m_pRing->Clear();
    }
    m_llStartPos = 0;
    m_llEndPos = 0;
    m_llLastAccessPos = 0;
}

void BufferHandler::CloseFailedFile() {
    if (m_pRing) {
        m_pRing->CloseFailedFile();
    }
}

void BufferHandler::StartAt(LONGLONG position) {
    m_llStartPos = position;
    m_llEndPos = position;
    m_llLastAccessPos = position;
}

}  // namespace kvmpd
