#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "origin/Av.h"

namespace kvmpd::origin {

// Decodes a media file as endless media: at its end it begins again, and media time goes on. Times count from 0 at the
// file's start. Errors are OriginErrors of one sentence. One thread only.
class FileReader {
  public:
    // Opens the file; throws when it is missing, unreadable, or has neither video nor audio.
    explicit FileReader(std::string path);

    bool HasVideo() const { return video_.index >= 0; }
    bool HasAudio() const { return audio_.index >= 0; }

    // Of the video as it is to be shown: the height as stored, the width for square pixels, both even.
    int Width() const;
    int Height() const;
    // Between 10 and 60 per second; half of what the file has where that is more than 30, 25 where it is not known.
    AVRational FrameRate() const;

    // The picture that shows at this media time. Times must not go down. The picture is the reader's and stays valid
    // until the next call.
    const AVFrame& FrameAt(std::int64_t timeUs);

    // The next samples, 48 kHz, silence where the file has none.
    void ReadSamples(std::span<float> left, std::span<float> right);

  private:
    // One decoded stream. An empty packet in the queue marks where the file ended and began again.
    struct Track {
        int index = -1;
        CodecContextPtr decoder;
        std::deque<PacketPtr> packets;
        std::int64_t nextTimeUs = 0;
    };

    void Open();
    void OpenDecoder(Track& track, AVMediaType kind);
    void ReadPacket();
    void BeginAgain();
    FramePtr DecodeNext(Track& track);
    void FeedDecoder(Track& track);
    std::int64_t TimeOf(const Track& track, const AVFrame& frame) const;
    void DecodeAudio();

    const std::string path_;
    InputPtr input_;
    Track video_;
    Track audio_;
    // Added to the times in the file: the length of the passes that ended.
    std::int64_t offsetUs_ = 0;
    std::int64_t startUs_ = 0;
    // End of the media seen in this pass, from the file's start.
    std::int64_t passEndUs_ = 0;
    bool passGaveMedia_ = false;

    FramePtr shown_;
    FramePtr following_;
    std::int64_t followingTimeUs_ = 0;

    ResamplerPtr resampler_;
    std::vector<float> left_;
    std::vector<float> right_;
    std::size_t taken_ = 0;
    // Media time, in samples, of the end of what is in left_ and right_.
    std::int64_t samplesUntil_ = 0;
};

}  // namespace kvmpd::origin
