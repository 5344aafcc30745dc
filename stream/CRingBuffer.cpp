#include "stream/CRingBuffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "common/Log.h"
#include "download/FileSeek.h"

namespace kvmpd {

void CRingBuffer::FreeArray::operator()(BYTE* array) const {
    std::free(array);
}

CRingBuffer::Array CRingBuffer::AllocateZeroed(DWORD size) {
    // calloc hands out fresh zero pages without touching them.
    return Array(static_cast<BYTE*>(std::calloc(std::max<DWORD>(size, 1), 1)));
}

CRingBuffer::CRingBuffer() {
    Log(6, L" CRingBuffer::CRingBuffer ");
}

CRingBuffer::~CRingBuffer() {
    Destroy();
}

void CRingBuffer::Destroy() {
    Log(6, L" CRingBuffer::Destroy ");
    m_pBuffer.reset();
    m_pSpare.reset();
    m_iReadPtr = 0;
    m_iWritePtr = 0;
}

bool CRingBuffer::Create(DWORD size) {
    m_pBuffer.reset();
    m_pSpare.reset();
    m_pBuffer = AllocateZeroed(size);
    if (!m_pBuffer) {
        return false;
    }
    m_nBufSize = size;
    m_highWater = 0;
    m_pSpare = AllocateZeroed(size);
    return m_pSpare != nullptr;
}

DWORD CRingBuffer::Used() const {
    if (!m_pBuffer || m_iReadPtr == m_iWritePtr) {
        return 0;
    }
    return m_iReadPtr < m_iWritePtr ? m_iWritePtr - m_iReadPtr : m_nBufSize - m_iReadPtr + m_iWritePtr;
}

DWORD CRingBuffer::Free() const {
    if (!m_pBuffer) {
        return 0;
    }
    if (m_iReadPtr == m_iWritePtr) {
        return m_nBufSize - 1;
    }
    return m_iWritePtr < m_iReadPtr ? m_iReadPtr - m_iWritePtr - 1 : m_nBufSize - m_iWritePtr - 1 + m_iReadPtr;
}

HRESULT CRingBuffer::ReadBinary(BYTE* destination, DWORD count) {
    if (count > Used()) {
        return E_FAIL;
    }
    if (count == 0) {
        destination = nullptr;  // there may be no array to copy nothing from
    }
    const DWORD toEnd = m_nBufSize - m_iReadPtr;
    if (count > toEnd) {
        const DWORD rest = count - toEnd;
        if (destination) {
            std::memcpy(destination, m_pBuffer.get() + m_iReadPtr, toEnd);
            std::memcpy(destination + toEnd, m_pBuffer.get(), rest);
        }
        m_iReadPtr = rest;
    } else {
        if (destination) {
            std::memcpy(destination, m_pBuffer.get() + m_iReadPtr, count);
        }
        m_iReadPtr += count;
    }
    Log(6, L" CRingBuffer::ReadBinary finish. m_iReadPtr become %d after read %d data", m_iReadPtr, count);
    return S_OK;
}

HRESULT CRingBuffer::PeekBinary(BYTE* destination, DWORD offset, DWORD count) const {
    const DWORD used = Used();
    if (offset > used || count > used - offset) {
        return E_FAIL;
    }
    if (count == 0) {
        return S_OK;  // there may be no array to copy nothing from
    }
    // 64 bits: the read index may stand at the end of a ring as large as 32 bits allow.
    const ULONGLONG begin = static_cast<ULONGLONG>(m_iReadPtr) + offset;
    if (begin > m_nBufSize) {
        std::memcpy(destination, m_pBuffer.get() + (begin - m_nBufSize), count);
        return S_OK;
    }
    const DWORD head = static_cast<DWORD>(std::min<ULONGLONG>(count, m_nBufSize - begin));
    std::memcpy(destination, m_pBuffer.get() + begin, head);
    std::memcpy(destination + head, m_pBuffer.get(), count - head);
    return S_OK;
}

/// Reads once into the array at the write index, which never lets a read cross the physical end.
bool CRingBuffer::ReadIntoArray(HANDLE file, DWORD request, DWORD& got) {
    if (static_cast<ULONGLONG>(m_iWritePtr) + request >= m_nBufSize) {
        request = m_nBufSize - m_iWritePtr;
    }
    got = 0;
    return ReadFile(file, m_pBuffer.get() + m_iWritePtr, request, &got, nullptr) && got != 0;
}

HRESULT CRingBuffer::WriteBinaryFromFile(const std::wstring& fileName, LONGLONG fileOffset, DWORD count) {
    CloseFailedFile();
    if (count > Free()) {
        return E_FAIL;
    }
    UniqueFile file(CreateFileW(fileName.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, /*flags=*/0,
                                /*template=*/nullptr));
    if (!file) {
        Log(3, L"[Error] CRingBuffer::WriteBinaryFromFile Create file fail, error code: %d", GetLastError());
        return E_ACCESSDENIED;
    }
    // A file just opened stands at 0.
    if (fileOffset != 0 && !SeekFilePosition(file.get(), fileOffset)) {
        return E_ACCESSDENIED;
    }
    const DWORD writePtrBefore = m_iWritePtr;
    for (DWORD done = 0; done < count;) {
        DWORD got = 0;
        if (!ReadIntoArray(file.get(), count - done, got)) {
            // Bytes that nobody counts would shift every later position.
            m_iWritePtr = writePtrBefore;
            m_failedFile = std::move(file);
            return E_ACCESSDENIED;
        }
        Log(6, L" CRingBuffer::WriteBinaryFromFile ReadFile success: %d bytes. First byte is 0x%08X to position %d",
            got, static_cast<DWORD>(m_pBuffer[m_iWritePtr]), m_iWritePtr);
        done += got;
        m_iWritePtr += got;
        m_highWater = std::max(m_highWater, m_iWritePtr);
        if (m_iWritePtr == m_nBufSize) {
            m_iWritePtr = 0;
        } else if (m_iWritePtr > m_nBufSize) {
            Log(3,
                L"[Error] CRingBuffer::WriteBinaryFromFile ReadFile to unexpected buffer area! targetLen: %d, "
                L"dwBytesRead: "
                L"%d, m_iWritePtr: %d, m_nBufSize: %d",
                count, got, m_iWritePtr, m_nBufSize);
            m_iWritePtr = 0;
            m_failedFile = std::move(file);
            return E_POINTER;
        }
    }
    return S_OK;
}

void CRingBuffer::Clear() {
    Log(6, L" CRingBuffer::Clear ");
    CloseFailedFile();
    m_iReadPtr = 0;
    m_iWritePtr = 0;
    if (m_pBuffer) {
        // Bytes never written since they were zeroed are zero still; touching them would cost memory.
        std::memset(m_pBuffer.get(), 0, std::min(m_highWater, m_nBufSize));
    }
    m_highWater = 0;
}

}  // namespace kvmpd
