#pragma once

#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "origin/Av.h"

namespace kvmpd::origin {

struct VideoFormat {
    int width = 1280;  // pixels, even
    int height = 720;
    AVRational frameRate{25, 1};
    std::int64_t maxBitrate = 2'000'000;  // bits per second, of a whole segment
    std::string preset = "ultrafast";     // libx264's
};

// The frames whose start time lies in a segment's interval. Frame i starts at i / frameRate.
struct FrameRange {
    std::int64_t first = 0;
    std::int64_t end = 0;  // one behind the last
};
FrameRange FramesOf(std::int64_t startMs, std::int64_t endMs, AVRational frameRate);

// Paints the frame of this index into a writable YUV 4:2:0 picture of the format's size.
using PaintFrame = std::function<void(AVFrame& picture, std::int64_t index)>;

// Encodes one self-initialising segment of H.264 with its own encoder: it starts with an IDR picture, refers to nothing
// outside, has no B pictures (decode time = presentation time = index / frameRate), and the same pictures give the same
// bytes. Throws OriginError when the encoder fails. One thread at a time.
class VideoSegmentEncoder {
  public:
    VideoSegmentEncoder(const VideoFormat& format, FrameRange frames);

    // Paints and encodes the next frame; once for each of the range.
    void Add(const PaintFrame& paint);
    std::string Finish();

  private:
    void TakePackets();

    CodecContextPtr encoder_;
    FramePtr picture_;
    std::int64_t next_;
    std::vector<PacketPtr> packets_;
};

// A whole segment at once. Returns no bytes when stopped.
std::string EncodeVideoSegment(const VideoFormat& format, FrameRange frames, const PaintFrame& paint,
                               const std::stop_token& stop);

// The codecs attribute of a segment of this format, "avc1.64001f" (RFC 6381).
std::string VideoCodecs(const VideoFormat& format);

}  // namespace kvmpd::origin
