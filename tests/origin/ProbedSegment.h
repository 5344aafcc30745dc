#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kvmpd::origin {

// What libavformat finds in bytes that are MP4.
struct ProbedPacket {
    std::int64_t pts = 0;  // in ticks of the track's own time scale
    std::int64_t dts = 0;
    std::int64_t duration = 0;
    bool key = false;
    std::string data;
};

struct ProbedMedia {
    std::string codec;
    int width = 0;
    int height = 0;
    int sampleRate = 0;
    int timeScale = 0;
    std::vector<ProbedPacket> packets;
};

// Throws when libavformat cannot read the bytes.
ProbedMedia Probe(const std::string& bytes);

// Types of the top-level boxes in order, "ftyp moov moof mdat".
std::string TopLevelBoxes(std::string_view bytes);

// Decode time in the first tfdt box; -1 when there is none or it has not 64 bits.
std::int64_t FirstDecodeTime(std::string_view bytes);

// Brightness of one pixel of each decoded picture, at these shares of width and height.
std::vector<int> BrightnessOfPictures(const std::string& bytes, double x, double y);

// Decoded sound, first channel.
std::vector<float> DecodedSamples(const std::string& bytes);

}  // namespace kvmpd::origin
