// Reads one stream of ISO base media boxes (ISO/IEC 14496-12) through a byte source, one whole top-level box at a time:
// the header, then exactly the body. Segments enter the cache whole, so once a header is there the body is too, and the
// reader never asks for bytes of a segment that does not exist yet.
//
// One thread. A read that could not be finished is continued by the next call where it left off.

#pragma once

#include <cstdint>
#include <vector>

#include "app/ByteSource.h"

namespace kvmpd::app {

constexpr std::uint32_t FourCc(const char (&name)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(name[0])) << 24 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(name[1])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(name[2])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(name[3]));
}

struct Box {
    std::uint32_t type = 0;
    std::int64_t position = 0;        // of the header's first byte, without the stream's base
    std::vector<std::uint8_t> bytes;  // header and body
};

class BoxReader {
  public:
    // base: added to every position (0 for video, kAudioPositionBase for audio).
    BoxReader(ByteSource& source, std::int64_t base)
        : m_source(source), m_base(base), m_canProbe(base < kAudioPositionBase) {}

    // kOk: box holds the next box. kUnreadable: the bytes at the present position are no box header; go on with
    // SkipToNextBox. Any other status: nothing lost, call again.
    ReadStatus Next(Box& box);

    // Moves on to the next position where a box that begins or continues a segment may start. kOk: found. kNotYet: the
    // end of what is there was reached; call again. Counts what it passes over in SkippedBytes. Looks before it reads
    // where it can.
    ReadStatus SkipToNextBox();

    // Whether the next read starts a new box.
    bool AtBoundary() const { return m_have == 0; }
    // Whether the byte source has the next header, without waiting; for video only.
    ReadStatus ProbeNext() { return m_source.Probe(m_position); }

    // Forgets a box read in part and starts at position 0 again.
    void Restart();

    std::int64_t Position() const { return m_position; }
    std::int64_t SkippedBytes() const { return m_skippedBytes; }

  private:
    ReadStatus FillTo(std::size_t size);

    ByteSource& m_source;
    const std::int64_t m_base;
    const bool m_canProbe;
    std::int64_t m_position = 0;  // of the present box's header
    std::int64_t m_skippedBytes = 0;
    std::size_t m_have = 0;  // bytes of the present box in m_box
    Box m_box;
};

}  // namespace kvmpd::app
