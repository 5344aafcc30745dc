// The pin's address space: one 64-bit range of byte positions that carries both byte streams.

#pragma once

#include "stream/CAsyncStream.h"

namespace kvmpd {

struct StreamPosition {
    bool audio;
    LONGLONG offset;  // byte position within that stream

    bool operator==(const StreamPosition&) const = default;
};

constexpr StreamPosition SplitPosition(LONGLONG position) {
    if (position >= AUDIO_POSITION_BASE) {
        return {true, position - AUDIO_POSITION_BASE};
    }
    return {false, position};
}

}  // namespace kvmpd
