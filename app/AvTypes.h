// Owners for libav's objects, and the packets that travel from demuxer to muxer.

#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstdint>
#include <memory>
#include <string>

namespace kvmpd::app {

struct AvPacketDeleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using AvPacketPtr = std::unique_ptr<AVPacket, AvPacketDeleter>;

struct AvParametersDeleter {
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
};
using AvParametersPtr = std::unique_ptr<AVCodecParameters, AvParametersDeleter>;

// libav's own words for one of its error numbers.
std::string AvErrorText(int error);

enum class Track { kVideo = 0, kAudio = 1 };
inline constexpr int kTracks = 2;

constexpr int IndexOf(Track track) {
    return static_cast<int>(track);
}
constexpr const char* NameOf(Track track) {
    return track == Track::kVideo ? "video" : "audio";
}

}  // namespace kvmpd::app
