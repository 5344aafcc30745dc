// Takes one self-contained piece of fragmented MP4 apart into packets. Each piece is opened by itself, so nothing is
// carried over from one segment to the next: a damaged one spoils only itself.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "app/AvTypes.h"

namespace kvmpd::app {

struct DemuxedFragment {
    AvParametersPtr parameters;
    AVRational timeBase{1, 1};
    std::vector<AvPacketPtr> packets;  // in decoding order, each with its decode time (tfdt) and duration, in timeBase
};

// file: ftyp, moov, moof, mdat. The packets are those of the first track of the wanted kind. False, with error in
// words, when the piece cannot be taken apart or has no such track.
bool DemuxFragment(std::span<const std::uint8_t> file, Track wanted, DemuxedFragment& fragment, std::string& error);

}  // namespace kvmpd::app
