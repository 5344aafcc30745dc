// Small real media for tests: self-initialising fragmented MP4 segments of H.264 (or MPEG-4 where libx264 is missing)
// and AAC, made with libav when they are needed.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/app/FakeSource.h"

namespace kvmpd::app::test {

struct MediaShape {
    int segments = 4;
    int fragmentsPerSegment = 1;
    std::int64_t startSeconds = 0;  // decode time of the first segment
    int width = 64;
    int height = 48;
    int brightness = 0;   // of the first picture: other pictures at the same times
    bool silent = false;  // the sound is the same bytes at all times
};

inline constexpr int kFramesPerSecond = 25;
inline constexpr int kSegmentSeconds = 1;
inline constexpr int kSampleRate = 48000;

// Each segment one second: ftyp, moov, then moof and mdat for each fragment, decode times continuous from the start.
std::vector<Bytes> MakeVideoSegments(const MediaShape& shape);
std::vector<Bytes> MakeAudioSegments(const MediaShape& shape);

struct FileFacts {
    bool opened = false;
    double duration = 0;  // as the container says, seconds
    double start = 0;     // first presentation time of the video, seconds
    std::int64_t videoPackets = 0;
    std::int64_t audioPackets = 0;
    int width = 0;
    std::string videoCodec;
    std::string audioCodec;
    bool firstVideoIsKey = false;
    bool timesRise = true;  // the decode times of each track
    double audioEnd = 0;    // presentation time of the last packet, seconds
    double videoEnd = 0;
    double largestAudioStep = 0;  // from one packet to the next, seconds
    double largestVideoStep = 0;
};

// What libav finds in a finished file.
FileFacts Inspect(const std::string& path);

}  // namespace kvmpd::app::test
