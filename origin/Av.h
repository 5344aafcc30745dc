#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kvmpd::origin {

template <auto Free>
struct AvFree {
    template <class T>
    void operator()(T* object) const {
        Free(&object);
    }
};

using CodecContextPtr = std::unique_ptr<AVCodecContext, AvFree<avcodec_free_context>>;
using CodecParametersPtr = std::unique_ptr<AVCodecParameters, AvFree<avcodec_parameters_free>>;
using FramePtr = std::unique_ptr<AVFrame, AvFree<av_frame_free>>;
using PacketPtr = std::unique_ptr<AVPacket, AvFree<av_packet_free>>;
using InputPtr = std::unique_ptr<AVFormatContext, AvFree<avformat_close_input>>;
using ResamplerPtr = std::unique_ptr<SwrContext, AvFree<swr_free>>;

struct ScalerFree {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using ScalerPtr = std::unique_ptr<SwsContext, ScalerFree>;

// Allocation; throws std::bad_alloc instead of answering nullptr.
FramePtr NewFrame();
PacketPtr NewPacket();

// FFmpeg's own words for one of its error numbers.
std::string AvErrorText(int error);

// Throws OriginError "WHAT: WORDS" when `result` is negative; returns it otherwise.
int AvCheck(int result, std::string_view what);

// Time bases of the media that is served.
inline constexpr AVRational kVideoTimeBase{1, 90'000};
inline constexpr int kAudioRate = 48'000;
inline constexpr int kAudioChannels = 2;
inline constexpr AVRational kAudioTimeBase{1, kAudioRate};

// Milliseconds to the first tick at or after them: what begins at that tick belongs to what begins at those
// milliseconds.
constexpr std::int64_t CeilTicks(std::int64_t ms, AVRational rate) {
    const std::int64_t numerator = ms * rate.num;
    const std::int64_t denominator = std::int64_t{1000} * rate.den;
    return (numerator + denominator - 1) / denominator;
}

}  // namespace kvmpd::origin
