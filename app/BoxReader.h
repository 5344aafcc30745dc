// Reads one stream of ISO base media boxes (ISO/IEC 14496-12) through a byte source, one whole top-level box at a time:
// the header, then exactly the body. Segments enter the cache whole, so once a header is there the body is too, and the
// reader never asks for bytes of a segment that does not exist yet.
//
// A body that is not there although its header is, or that has the beginning of a segment inside, is the sign of a
// segment that was cut short; the reader then goes on at the next segment and loses no byte of it.
//
// One thread. A read that could not be finished is continued by the next call where it left off.

#pragma once

#include <cstdint>
#include <vector>

#include "app/ByteSource.h"
#include "app/SegmentStart.h"

namespace kvmpd::app {

struct Box {
    std::uint32_t type = 0;
    std::int64_t position = 0;        // of the header's first byte, without the stream's base
    std::vector<std::uint8_t> bytes;  // header and body
};

class BoxReader {
  public:
    enum class Flaw {
        kNoBox,     // no box header: not media
        kCutShort,  // a box without its end
        kSpoilt,    // the box before this place was without its end, and was delivered with the next segment's bytes
        kReleased   // bytes that had left the cache
    };

    // base: added to every position (0 for video, kAudioPositionBase for audio).
    BoxReader(ByteSource& source, std::int64_t base)
        : m_source(source), m_base(base), m_canProbe(base < kAudioPositionBase) {}

    // kOk: box holds the next box. kUnreadable: there is no whole box at the present position, WhatIsWrong tells why;
    // go on with SkipToNextBox. Any other status: nothing lost, call again.
    ReadStatus Next(Box& box);
    Flaw WhatIsWrong() const { return m_flaw; }

    // Moves on to the next position where a box that begins or continues a segment may start. kOk: found. kNotYet: the
    // end of what is there was reached; call again. Counts what it passes over in SkippedBytes. Looks before it reads
    // where it can.
    // inSteps: kInterrupted after a few bytes, so that the caller can look elsewhere before bytes are waited for. So
    // few that even the shortest error page ends the wait for them.
    ReadStatus SkipToNextBox(bool inSteps = false);

    // After kReleased: moves to the earliest byte that can still be read, from where SkipToNextBox goes on. kNotYet: it
    // was not found; call again.
    ReadStatus MoveToEarliest();

    // Whether the next read starts a new box.
    bool AtBoundary() const { return m_bytes.empty(); }
    // Whether a box is known to start here, whole header and all: after a kUnreadable that came with the next segment.
    bool AtKnownStart() const { return m_knownStart; }
    // Whether the byte source has the next header, without waiting; for video only.
    ReadStatus ProbeNext() { return m_source.Probe(m_position); }

    // Forgets a box read in part and starts at position 0 again.
    void Restart();

    std::int64_t Position() const { return m_position; }
    std::int64_t SkippedBytes() const { return m_skippedBytes; }

  private:
    struct Header {
        std::uint32_t type = 0;
        std::size_t length = 0;
        std::size_t boxSize = 0;
    };

    ReadStatus FillTo(std::size_t size);
    ReadStatus ReadHeader(Header& header);
    ReadStatus ReadBody(const Header& header);
    ReadStatus CheckEnd(const Header& header);
    ReadStatus CheckWhatFollows(const Header& header);
    ReadStatus Unreadable(Flaw flaw);
    ReadStatus StartsAt(std::size_t offset);
    bool FindStartInTail();
    void DropFront(std::size_t count);
    std::size_t SkipStep();
    ReadStatus StatusAt(std::int64_t position);

    ByteSource& m_source;
    const std::int64_t m_base;
    const bool m_canProbe;
    std::int64_t m_position = 0;  // of the present box's header
    std::int64_t m_skippedBytes = 0;
    std::vector<std::uint8_t> m_bytes;  // read from the present position on
    std::size_t m_scanned = 0;          // of them, searched for the start of a segment
    bool m_endChecked = false;          // that the present box's end is there
    bool m_knownStart = false;
    std::vector<std::uint8_t> m_tail;  // the last bytes of the box before
    std::size_t m_skipFrom = 0;        // where in m_bytes the next box may start at the earliest
    Flaw m_flaw = Flaw::kNoBox;
};

}  // namespace kvmpd::app
