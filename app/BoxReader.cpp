#include "app/BoxReader.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace kvmpd::app {
namespace {

constexpr std::size_t kHeader = 8;
constexpr std::size_t kLongHeader = 16;
// A header that claims more is no header: no segment of a few seconds is that long. The limit lies just below what any
// four characters of text give as a size, so that an error page in place of a segment is never taken for a box.
constexpr std::uint64_t kMaxBoxBytes = 512u << 20;
constexpr std::size_t kPieceBytes = 256u << 10;

std::uint32_t Read32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

std::uint64_t Read64(const std::uint8_t* p) {
    return static_cast<std::uint64_t>(Read32(p)) << 32 | Read32(p + 4);
}

bool IsPlausibleType(std::uint32_t type) {
    for (int shift = 0; shift < 32; shift += 8) {
        const auto c = static_cast<unsigned char>(type >> shift);
        if ((c < 0x20 || c > 0x7E) && c != 0xA9) {
            return false;
        }
    }
    return true;
}

// The boxes at which reading can be taken up again.
bool IsEntryPoint(std::uint32_t type) {
    constexpr std::array entries{FourCc("ftyp"), FourCc("styp"), FourCc("moov"), FourCc("moof"), FourCc("sidx")};
    return std::find(entries.begin(), entries.end(), type) != entries.end();
}

}  // namespace

ReadStatus BoxReader::FillTo(std::size_t size) {
    while (m_have < size) {
        // Grown piece by piece: memory follows what was delivered, not what a header claims.
        const std::size_t piece = std::min(kPieceBytes, size - m_have);
        m_box.bytes.resize(m_have + piece);
        const ReadStatus status = m_source.Read(m_base + m_position + static_cast<std::int64_t>(m_have),
                                                std::span(m_box.bytes).subspan(m_have, piece));
        if (status != ReadStatus::kOk) {
            return status;
        }
        m_have += piece;
    }
    return ReadStatus::kOk;
}

ReadStatus BoxReader::Next(Box& box) {
    if (const ReadStatus status = FillTo(kHeader); status != ReadStatus::kOk) {
        return status;
    }
    std::uint64_t size = Read32(m_box.bytes.data());
    std::size_t header = kHeader;
    m_box.type = Read32(m_box.bytes.data() + 4);
    if (!IsPlausibleType(m_box.type)) {
        return ReadStatus::kUnreadable;
    }
    if (size == 1) {
        header = kLongHeader;
        if (const ReadStatus status = FillTo(header); status != ReadStatus::kOk) {
            return status;
        }
        size = Read64(m_box.bytes.data() + kHeader);
    }
    // Size 0 means "to the end of the file"; a live stream has no end.
    if (size < header || size > kMaxBoxBytes) {
        return ReadStatus::kUnreadable;
    }
    if (const ReadStatus status = FillTo(static_cast<std::size_t>(size)); status != ReadStatus::kOk) {
        return status;
    }
    m_box.position = m_position;
    m_position += static_cast<std::int64_t>(size);
    m_have = 0;
    box = std::exchange(m_box, Box{});
    return ReadStatus::kOk;
}

ReadStatus BoxReader::SkipToNextBox() {
    for (;;) {
        if (m_canProbe) {
            if (const ReadStatus status = ProbeNext(); status != ReadStatus::kOk) {
                return status;
            }
        }
        if (const ReadStatus status = FillTo(kHeader); status != ReadStatus::kOk) {
            return status;
        }
        const std::uint32_t size = Read32(m_box.bytes.data());
        if (IsEntryPoint(Read32(m_box.bytes.data() + 4)) && size >= kHeader && size <= kMaxBoxBytes) {
            m_have = 0;
            m_box.bytes.clear();
            return ReadStatus::kOk;
        }
        m_box.bytes.erase(m_box.bytes.begin());
        m_box.bytes.resize(kHeader);
        m_have = kHeader - 1;
        ++m_position;
        ++m_skippedBytes;
    }
}

void BoxReader::Restart() {
    m_position = 0;
    m_have = 0;
    m_box = Box{};
}

}  // namespace kvmpd::app
