#pragma once

#include <span>
#include <string>

#include "origin/Av.h"

namespace kvmpd::origin {

// Writes one self-initialising segment (ISO/IEC 14496-12): ftyp and moov, then one moof and mdat with these packets.
// The decode time of the fragment (tfdt, 64 bits) is the first packet's, so segments written one after the other with
// continuous packet times join up; there is no edit list. The packets are in decode order and stay the caller's; their
// times are in `timeBase`, which becomes the track's time scale.
std::string MuxSegment(const AVCodecParameters& parameters, AVRational timeBase, std::span<const PacketPtr> packets);

}  // namespace kvmpd::origin
