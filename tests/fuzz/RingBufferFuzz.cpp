// Runs a sequence of operations on the ring buffer or on its handler, and the same sequence on a model that keeps the
// bytes in a plain queue. Any difference in a result, a count, a position or a byte ends the program.

#include <algorithm>
#include <cstdint>
#include <deque>

#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzRequire.h"
#include "tests/stream/RingTestAccess.h"

namespace kvmpd::test {
namespace {

constexpr size_t kFileSize = 1500;

const PatternFile& File() {
    static const PatternFile file(kFileSize);
    return file;
}

/// What the file holds at [offset, offset + count), or that it does not hold all of it.
bool ReadModelFile(size_t offset, size_t count, std::deque<BYTE>& to) {
    if (offset + count > kFileSize) {
        return false;
    }
    for (size_t i = 0; i < count; ++i) {
        to.push_back(PatternByte(offset + i));
    }
    return true;
}

void FuzzRing(FuzzInput input) {
    const DWORD size = input.Byte() + 1;
    CRingBuffer ring;
    Require(ring.Create(size), "create");
    std::deque<BYTE> model;
    while (!input.IsEmpty()) {
        const DWORD operation = input.Byte() % 5;
        if (operation == 0) {
            const DWORD offset = input.Short() % (2 * kFileSize);
            const DWORD count = input.Short() % (2 * size);
            const HRESULT result = ring.WriteBinaryFromFile(File().Name(), offset, count);
            HRESULT expected = E_FAIL;
            if (count <= size - 1 - model.size()) {
                expected = count == 0 || ReadModelFile(offset, count, model) ? S_OK : E_ACCESSDENIED;
            }
            Require(result == expected, "ring write");
        } else if (operation == 1) {
            const DWORD count = input.Short() % (2 * size);
            std::vector<BYTE> bytes(count);
            const bool discard = input.Byte() % 2 == 0;
            const HRESULT result = ring.ReadBinary(discard ? nullptr : bytes.data(), count);
            Require(result == (count <= model.size() ? S_OK : E_FAIL), "ring read");
            if (result == S_OK) {
                const auto end = model.begin() + static_cast<std::ptrdiff_t>(count);
                Require(discard || std::equal(bytes.begin(), bytes.end(), model.begin(), end), "ring bytes");
                model.erase(model.begin(), end);
            }
        } else if (operation == 2) {
            const DWORD offset = input.Short() % (2 * size);
            const DWORD count = input.Short() % (2 * size);
            std::vector<BYTE> bytes(count);
            const HRESULT result = ring.PeekBinary(bytes.data(), offset, count);
            Require(result == (offset + count <= model.size() ? S_OK : E_FAIL), "ring peek");
            if (result == S_OK) {
                const auto begin = model.begin() + static_cast<std::ptrdiff_t>(offset);
                Require(std::equal(bytes.begin(), bytes.end(), begin, begin + static_cast<std::ptrdiff_t>(count)),
                        "peeked bytes");
            }
        } else if (operation == 3 && input.Byte() % 8 == 0) {
            ring.Clear();
            model.clear();
            Require(CRingBufferTestAccess::Array(ring) == std::vector<BYTE>(size), "zeroed array");
        }
        Require(ring.Used() == model.size(), "used");
        Require(ring.Free() == size - 1 - model.size(), "free");
    }
}

class HandlerModel {
  public:
    explicit HandlerModel(DWORD size) : m_size(size) {}

    HRESULT Write(DWORD offset, DWORD length, DWORD& written) {
        if (length == 0) {
            return S_OK;
        }
        if (Free() < length) {
            MakeRoom(length);
        }
        const DWORD count = std::min(length, Free());
        if (count == 0) {
            return E_OUTOFMEMORY;
        }
        if (!ReadModelFile(offset, count, m_bytes)) {
            return E_ACCESSDENIED;
        }
        written = count;
        return S_OK;
    }

    DWORD Read(LONGLONG position, DWORD length, std::vector<BYTE>& bytes) {
        m_lastAccess = static_cast<ULONGLONG>(position) + length;
        if (position < Start() || position >= End() || length >= End() - position) {
            return 0;
        }
        const auto begin = m_bytes.begin() + static_cast<std::ptrdiff_t>(position - Start());
        bytes.assign(begin, begin + static_cast<std::ptrdiff_t>(length));
        return length;
    }

    void StartAt(LONGLONG position) {
        m_bytes.clear();
        m_start = position;
        m_lastAccess = static_cast<ULONGLONG>(position);
    }

    LONGLONG Start() const { return m_start; }
    LONGLONG End() const { return m_start + static_cast<LONGLONG>(m_bytes.size()); }

  private:
    DWORD Free() const { return m_size - 1 - static_cast<DWORD>(m_bytes.size()); }

    void MakeRoom(DWORD length) {
        const auto used = static_cast<DWORD>(m_bytes.size());
        const auto passed = static_cast<LONGLONG>(m_lastAccess - static_cast<ULONGLONG>(m_start));
        const DWORD droppable = passed >= static_cast<LONGLONG>(used) ? used : static_cast<DWORD>(passed);
        const DWORD count = std::min(droppable, length - Free());
        if (count <= used) {
            m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(count));
            m_start += count;
        }
    }

    const DWORD m_size;
    std::deque<BYTE> m_bytes;
    LONGLONG m_start = 0;
    ULONGLONG m_lastAccess = 0;
};

void FuzzHandler(FuzzInput input) {
    const DWORD size = input.Byte() + 1;
    BufferHandler handler;
    Require(handler.Init(size) == S_OK, "init");
    HandlerModel model(size);
    while (!input.IsEmpty()) {
        const DWORD operation = input.Byte() % 8;
        if (operation < 4) {
            const DWORD offset = input.Short() % (kFileSize + 100);
            const DWORD length = input.Short() % (2 * size);
            DWORD written = 77;
            DWORD expectedWritten = 77;
            const HRESULT expected = model.Write(offset, length, expectedWritten);
            Require(handler.WriteBinaryFromFile(File().Name(), offset, length, written) == expected, "handler write");
            Require(written == expectedWritten, "written");
        } else if (operation < 7) {
            const LONGLONG position =
                input.Byte() % 2 == 0 ? input.Position() : handler.StartPos() + static_cast<LONGLONG>(input.Byte());
            const DWORD length = input.Short() % (2 * size);
            std::vector<BYTE> bytes(length);
            std::vector<BYTE> expected;
            const DWORD count = handler.ReadBuffer(position, bytes.data(), length);
            Require(count == model.Read(position, length, expected), "handler read");
            bytes.resize(count);
            Require(bytes == expected, "handler bytes");
        } else if (input.Byte() % 8 == 0) {
            const LONGLONG position = input.Short();
            handler.Clear();
            handler.StartAt(position);
            model.StartAt(position);
        }
        Require(handler.StartPos() == model.Start() && handler.EndPos() == model.End(), "range");
    }
}

}  // namespace
}  // namespace kvmpd::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const kvmpd::test::FuzzInput input(data + 1, size - 1);
    if (data[0] % 2 == 0) {
        kvmpd::test::FuzzRing(input);
    } else {
        kvmpd::test::FuzzHandler(input);
    }
    return 0;
}
