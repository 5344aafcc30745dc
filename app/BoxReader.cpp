#include "app/BoxReader.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace kvmpd::app {
namespace {

constexpr std::size_t kHeader = 8;
constexpr std::size_t kLongHeader = 16;
// A header that claims more is no header: no segment of a few seconds is that long. The limit lies just below what any
// four printable characters give as a size, so that an error page in place of a segment is never taken for a box.
constexpr std::uint64_t kMaxBoxBytes = 512u << 20;
// The same for types that are no segment's: a page that begins with a line feed claims some hundred megabytes.
constexpr std::uint64_t kMaxOtherBytes = 1u << 20;

constexpr std::size_t kVideoPiece = 256u << 10;
// A read that goes past the end of what is there holds the reader up until the rest comes, and of audio nothing can be
// asked for in advance. So audio is read in pieces shorter than any segment: where a segment was cut short, the next
// one alone completes the piece.
constexpr std::size_t kAudioPiece = 512;
constexpr std::int64_t kSearchStep = 4096;

std::uint64_t ReadBig64(const std::uint8_t* p) {
    return static_cast<std::uint64_t>(ReadBig32(p)) << 32 | ReadBig32(p + 4);
}

bool IsPrintable(std::uint32_t type) {
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
    while (m_bytes.size() < size) {
        // Grown piece by piece: memory follows what was delivered, not what a header claims.
        const std::size_t have = m_bytes.size();
        const std::size_t piece = std::min(m_canProbe ? kVideoPiece : kAudioPiece, size - have);
        m_bytes.resize(have + piece);
        const ReadStatus status = m_source.Read(m_base + m_position + static_cast<std::int64_t>(have),
                                                std::span(m_bytes).subspan(have, piece));
        if (status != ReadStatus::kOk) {
            m_bytes.resize(have);
            return status;
        }
    }
    return ReadStatus::kOk;
}

void BoxReader::DropFront(std::size_t count) {
    m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(count));
    m_position += static_cast<std::int64_t>(count);
    m_scanned = 0;
    m_endChecked = false;
    m_tail.clear();
}

// A segment begins at this place in what was read: what stands before it has no end.
ReadStatus BoxReader::StartsAt(std::size_t offset) {
    m_skippedBytes += static_cast<std::int64_t>(offset);
    DropFront(offset);
    m_flaw = Flaw::kCutShort;
    m_knownStart = true;
    return ReadStatus::kUnreadable;
}

// Where a box was short of a few bytes only, it took them from the next segment's header, which is found again in its
// tail.
bool BoxReader::FindStartInTail() {
    std::vector<std::uint8_t> joined = m_tail;
    joined.insert(joined.end(), m_bytes.begin(), m_bytes.end());
    const auto start = FindSegmentStart(joined, 0);
    if (!start || start->offset >= m_tail.size()) {
        return false;
    }
    m_position -= static_cast<std::int64_t>(m_tail.size());
    m_skippedBytes -= static_cast<std::int64_t>(m_tail.size());
    m_bytes = std::move(joined);
    StartsAt(start->offset);
    m_flaw = Flaw::kSpoilt;
    return true;
}

ReadStatus BoxReader::Unreadable(Flaw flaw) {
    m_flaw = flaw;
    m_skipFrom = 1;  // what stands here has been found wanting
    return ReadStatus::kUnreadable;
}

ReadStatus BoxReader::ReadHeader(Header& header) {
    if (const ReadStatus status = FillTo(kHeader); status != ReadStatus::kOk) {
        return status;
    }
    std::uint64_t size = ReadBig32(m_bytes.data());
    header.length = kHeader;
    header.type = ReadBig32(m_bytes.data() + 4);
    if (!IsTopLevelType(header.type) && FindStartInTail()) {
        return ReadStatus::kUnreadable;
    }
    if (!IsPrintable(header.type)) {
        return Unreadable(Flaw::kNoBox);
    }
    if (size == 1) {
        header.length = kLongHeader;
        if (const ReadStatus status = FillTo(kLongHeader); status != ReadStatus::kOk) {
            return status;
        }
        size = ReadBig64(m_bytes.data() + kHeader);
    }
    // Size 0 means "to the end of the file"; a live stream has no end.
    if (size < header.length || size > (IsTopLevelType(header.type) ? kMaxBoxBytes : kMaxOtherBytes)) {
        return Unreadable(Flaw::kNoBox);
    }
    header.boxSize = static_cast<std::size_t>(size);
    return ReadStatus::kOk;
}

// Asks for the box's last bytes, where that can be done without waiting.
ReadStatus BoxReader::CheckEnd(const Header& header) {
    if (!m_canProbe || m_endChecked || header.boxSize <= kHeader) {
        return ReadStatus::kOk;
    }
    const ReadStatus status = m_source.Probe(m_position + static_cast<std::int64_t>(header.boxSize - kHeader));
    if (status == ReadStatus::kNotYet) {
        return Unreadable(Flaw::kCutShort);
    }
    m_endChecked = status == ReadStatus::kOk;
    return status;
}

// Reads to the box's end, or up to a segment's start in it.
ReadStatus BoxReader::ReadBody(const Header& header) {
    m_scanned = std::max(m_scanned, header.length);
    while (m_bytes.size() < header.boxSize || m_scanned < m_bytes.size()) {
        const std::size_t piece = m_canProbe ? kVideoPiece : kAudioPiece;
        const std::size_t upTo = std::min(header.boxSize, std::max(m_bytes.size(), m_scanned) + piece);
        if (const ReadStatus status = FillTo(upTo); status != ReadStatus::kOk) {
            return status;
        }
        const std::size_t end = std::min(m_bytes.size(), header.boxSize);
        const auto start = FindSegmentStart(std::span(m_bytes).first(end), m_scanned);
        if (start && (start->certain || end == header.boxSize)) {
            return StartsAt(start->offset);
        }
        if (end == header.boxSize) {
            return ReadStatus::kOk;
        }
        // A start that is not certain yet, or one whose first bytes are the last that came, is looked at again.
        m_scanned = start ? start->offset : std::max(m_scanned, end - (kHeader - 1));
    }
    return ReadStatus::kOk;
}

// Whether the box's last bytes are already those of another segment, where that can be seen without waiting.
ReadStatus BoxReader::CheckWhatFollows(const Header& header) {
    if (!m_canProbe || header.type != FourCc("mdat") ||
        m_source.Probe(m_position + static_cast<std::int64_t>(header.boxSize)) != ReadStatus::kOk) {
        return ReadStatus::kOk;
    }
    if (const ReadStatus status = FillTo(header.boxSize + kHeader); status != ReadStatus::kOk) {
        return status;
    }
    const std::size_t from = std::max(header.length, header.boxSize - std::min(header.boxSize, kHeader - 1));
    const auto start = FindSegmentStart(std::span(m_bytes).first(header.boxSize + kHeader), from);
    return start && start->offset < header.boxSize ? StartsAt(start->offset) : ReadStatus::kOk;
}

ReadStatus BoxReader::Next(Box& box) {
    m_knownStart = false;
    Header header;
    ReadStatus status = ReadHeader(header);
    if (status == ReadStatus::kOk) {
        status = CheckEnd(header);
    }
    if (status == ReadStatus::kOk) {
        status = ReadBody(header);
    }
    if (status == ReadStatus::kOk) {
        status = CheckWhatFollows(header);
    }
    if (status != ReadStatus::kOk) {
        return status;
    }
    box.type = header.type;
    box.position = m_position;
    if (m_bytes.size() == header.boxSize) {
        box.bytes = std::exchange(m_bytes, {});
        m_position += static_cast<std::int64_t>(header.boxSize);
        m_scanned = 0;
        m_endChecked = false;
        m_tail.clear();
    } else {
        box.bytes.assign(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(header.boxSize));
        DropFront(header.boxSize);
    }
    m_tail.assign(box.bytes.end() - static_cast<std::ptrdiff_t>(kHeader - 1), box.bytes.end());
    return ReadStatus::kOk;
}

// How many bytes can be read on without waiting; 0: none.
std::size_t BoxReader::SkipStep() {
    if (!m_canProbe) {
        return kAudioPiece;
    }
    const std::int64_t end = m_position + static_cast<std::int64_t>(m_bytes.size());
    for (const std::size_t step : {kVideoPiece, std::size_t{8192}, kAudioPiece, std::size_t{32}, std::size_t{1}}) {
        // A probe asks for a header's length; what it reaches back over has been read.
        const std::int64_t probe = end + static_cast<std::int64_t>(step) - static_cast<std::int64_t>(kHeader);
        if (m_source.Probe(std::max(m_position, probe)) == ReadStatus::kOk) {
            return step;
        }
    }
    return 0;
}

ReadStatus BoxReader::SkipToNextBox(bool inSteps) {
    if (std::exchange(m_knownStart, false)) {
        return ReadStatus::kOk;
    }
    for (;;) {
        for (; m_skipFrom + kHeader <= m_bytes.size(); ++m_skipFrom) {
            const std::uint8_t* const at = m_bytes.data() + m_skipFrom;
            const std::uint32_t size = ReadBig32(at);
            if (IsEntryPoint(ReadBig32(at + 4)) && size >= kHeader && size <= kMaxBoxBytes) {
                m_skippedBytes += static_cast<std::int64_t>(m_skipFrom);
                DropFront(std::exchange(m_skipFrom, 0));
                return ReadStatus::kOk;
            }
        }
        const std::size_t passed = std::min(m_skipFrom, m_bytes.size());
        m_skippedBytes += static_cast<std::int64_t>(passed);
        DropFront(passed);
        m_skipFrom -= passed;
        if (m_canProbe) {
            // Also tells errors from an end.
            const ReadStatus status = m_source.Probe(m_position);
            if (status != ReadStatus::kOk) {
                return status;
            }
        }
        const std::size_t step = inSteps ? kHeader : SkipStep();
        if (step == 0) {
            return ReadStatus::kNotYet;
        }
        if (const ReadStatus status = FillTo(m_bytes.size() + step); status != ReadStatus::kOk) {
            return status;
        }
        if (inSteps) {
            return ReadStatus::kInterrupted;
        }
    }
}

ReadStatus BoxReader::StatusAt(std::int64_t position) {
    if (m_canProbe) {
        return m_source.Probe(position);
    }
    std::array<std::uint8_t, kHeader> bytes{};
    return m_source.Read(m_base + position, bytes);
}

ReadStatus BoxReader::MoveToEarliest() {
    // What is released lies in front of what is not: search upwards, then between the two. In audio a position that
    // does not exist yet costs a long wait, while one that is released answers at once; there the steps are short.
    std::int64_t released = m_position + static_cast<std::int64_t>(m_bytes.size());
    std::int64_t readable = released;
    ReadStatus status = ReadStatus::kReleased;
    for (std::int64_t step = kSearchStep; status == ReadStatus::kReleased; step = m_canProbe ? 2 * step : step) {
        released = readable;
        readable += step;
        status = StatusAt(readable);
    }
    if (status != ReadStatus::kOk && !(m_canProbe && status == ReadStatus::kNotYet)) {
        return status;
    }
    while (readable - released > 1) {
        const std::int64_t middle = released + (readable - released) / 2;
        const ReadStatus there = StatusAt(middle);
        if (there == ReadStatus::kFailed || there == ReadStatus::kInterrupted) {
            return there;
        }
        if (there == ReadStatus::kReleased) {
            released = middle;
        } else {
            readable = middle;
            status = there;
        }
    }
    if (status == ReadStatus::kNotYet) {
        readable += static_cast<std::int64_t>(kHeader) - 1;  // nothing is left: a header was asked for, at the end
    }
    m_skippedBytes += readable - m_position;
    m_bytes.clear();
    m_scanned = 0;
    m_endChecked = false;
    m_tail.clear();
    m_position = readable;
    m_skipFrom = 0;
    m_flaw = Flaw::kReleased;
    return ReadStatus::kOk;
}

void BoxReader::Restart() {
    m_position = 0;
    m_bytes.clear();
    m_scanned = 0;
    m_skipFrom = 0;
    m_endChecked = false;
    m_knownStart = false;
    m_tail.clear();
}

}  // namespace kvmpd::app
