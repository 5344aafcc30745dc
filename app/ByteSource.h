// The bytes of a stream by position, as the box reader sees them.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kvmpd::app {

// Positions below this address video bytes, positions from here on audio bytes, counted from 0 again.
inline constexpr std::int64_t kAudioPositionBase = 0x3FFFFFFFFFFFFFFF;

enum class ReadStatus {
    kOk,           // the whole range was delivered
    kNotYet,       // the range is not there yet
    kReleased,     // the range has already left the cache
    kFailed,       // another error; the source can say which
    kInterrupted,  // the host is stopping; nothing was read
    kUnreadable    // box reader only: what stands here is no whole box
};

class ByteSource {
  public:
    virtual ~ByteSource() = default;

    // Fills bytes from position on. May wait some seconds for bytes that are not there, then answers kNotYet.
    virtual ReadStatus Read(std::int64_t position, std::span<std::uint8_t> bytes) = 0;

    // Whether a box header at this video position could be read now; never waits. Video positions only.
    virtual ReadStatus Probe(std::int64_t position) = 0;

    // Told by the reading thread between two reads: positions start at 0 again, maybe those of another source.
    virtual void Restarted() {}
};

}  // namespace kvmpd::app
