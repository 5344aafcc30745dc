#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <stop_token>
#include <string>

#include "origin/Av.h"

namespace kvmpd::origin {

// Fills both channels (float samples, -1 to 1, 48 kHz) from this sample of media time on. Asked for strictly in order.
using ReadSamples = std::function<void(std::int64_t firstSample, std::span<float> left, std::span<float> right)>;

// AAC-LC from one encoder that never restarts. A segment holds the frames whose start time lies in its interval: frames
// of 1024 samples do not divide a segment, so the counts vary by one and no frame is lost, repeated or cut. Not
// thread-safe.
class AudioTrack {
  public:
    AudioTrack(std::int64_t bitrate, ReadSamples read);

    // The self-initialising segment of an interval, encoding on as far as that needs. No bytes when the interval lies
    // before what was forgotten, or when stopped.
    std::string Segment(std::int64_t startMs, std::int64_t endMs, const std::stop_token& stop);

    // Drops the frames that start before this media time.
    void Forget(std::int64_t beforeMs);

  private:
    void EncodeFrame();
    void TakePackets();

    ReadSamples read_;
    CodecContextPtr encoder_;
    CodecParametersPtr parameters_;
    FramePtr frame_;
    std::int64_t nextSample_ = 0;
    std::int64_t encodedUntil_ = 0;
    std::int64_t forgottenUntil_ = 0;
    std::deque<PacketPtr> packets_;
};

}  // namespace kvmpd::origin
