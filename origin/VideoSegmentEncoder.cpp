#include "origin/VideoSegmentEncoder.h"

#include <array>
#include <cstdio>
#include <vector>

#include "origin/LiveOrigin.h"
#include "origin/SegmentMuxer.h"

namespace kvmpd::origin {

namespace {

CodecContextPtr OpenEncoder(const VideoFormat& format, std::int64_t frames) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (codec == nullptr) {
        throw OriginError("this system's FFmpeg has no libx264, which encodes the video");
    }
    CodecContextPtr encoder(avcodec_alloc_context3(codec));
    encoder->width = format.width;
    encoder->height = format.height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->color_range = AVCOL_RANGE_MPEG;
    encoder->sample_aspect_ratio = {1, 1};
    encoder->time_base = av_inv_q(format.frameRate);
    encoder->framerate = format.frameRate;
    encoder->gop_size = static_cast<int>(frames) + 1;
    encoder->max_b_frames = 0;
    // Each segment's encoder starts with a full buffer, which it may spend on top of the rate.
    encoder->rc_max_rate = format.maxBitrate * 7 / 8;
    encoder->rc_buffer_size = static_cast<int>(format.maxBitrate / 4);
    // One thread: an encoder per request has little to share out, and the result does not depend on the machine.
    encoder->thread_count = 1;
    encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_CLOSED_GOP;

    AVDictionary* options = nullptr;
    av_dict_set(&options, "preset", format.preset.c_str(), 0);
    av_dict_set(&options, "crf", "23", 0);
    av_dict_set(&options, "x264-params", "scenecut=0:rc-lookahead=10", 0);
    const int result = avcodec_open2(encoder.get(), codec, &options);
    av_dict_free(&options);
    AvCheck(result, "cannot open the H.264 encoder");
    return encoder;
}

CodecParametersPtr ParametersOf(const AVCodecContext& encoder) {
    CodecParametersPtr parameters(avcodec_parameters_alloc());
    AvCheck(avcodec_parameters_from_context(parameters.get(), &encoder), "cannot describe the video");
    return parameters;
}

}  // namespace

FrameRange FramesOf(std::int64_t startMs, std::int64_t endMs, AVRational frameRate) {
    return {CeilTicks(startMs, frameRate), CeilTicks(endMs, frameRate)};
}

VideoSegmentEncoder::VideoSegmentEncoder(const VideoFormat& format, FrameRange frames)
    : encoder_(OpenEncoder(format, frames.end - frames.first)), picture_(NewFrame()), next_(frames.first) {
    picture_->width = format.width;
    picture_->height = format.height;
    picture_->format = AV_PIX_FMT_YUV420P;
    AvCheck(av_frame_get_buffer(picture_.get(), 0), "cannot make a picture");
}

void VideoSegmentEncoder::Add(const PaintFrame& paint) {
    // The encoder may still refer to the picture before.
    AvCheck(av_frame_make_writable(picture_.get()), "cannot make a picture");
    paint(*picture_, next_);
    picture_->pts = next_++;
    AvCheck(avcodec_send_frame(encoder_.get(), picture_.get()), "cannot encode video");
    TakePackets();
}

std::string VideoSegmentEncoder::Finish() {
    AvCheck(avcodec_send_frame(encoder_.get(), nullptr), "cannot encode video");
    TakePackets();
    return MuxSegment(*ParametersOf(*encoder_), kVideoTimeBase, packets_);
}

void VideoSegmentEncoder::TakePackets() {
    for (;;) {
        PacketPtr packet = NewPacket();
        const int result = avcodec_receive_packet(encoder_.get(), packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return;
        }
        AvCheck(result, "cannot encode video");
        packet->duration = 1;
        av_packet_rescale_ts(packet.get(), encoder_->time_base, kVideoTimeBase);
        packets_.push_back(std::move(packet));
    }
}

std::string EncodeVideoSegment(const VideoFormat& format, FrameRange frames, const PaintFrame& paint,
                               const std::stop_token& stop) {
    VideoSegmentEncoder encoder(format, frames);
    for (std::int64_t i = frames.first; i < frames.end; ++i) {
        if (stop.stop_requested()) {
            return {};
        }
        encoder.Add(paint);
    }
    return encoder.Finish();
}

std::string VideoCodecs(const VideoFormat& format) {
    const CodecContextPtr encoder = OpenEncoder(format, 1);
    // The sequence parameter set in the header: profile, constraints and level are the three bytes after its type.
    for (int i = 0; i + 4 < encoder->extradata_size; ++i) {
        const std::uint8_t* data = encoder->extradata + i;
        if (data[0] == 1 && (data[1] & 0x1F) == 7) {
            std::array<char, 16> text{};
            std::snprintf(text.data(), text.size(), "avc1.%02x%02x%02x", data[2], data[3], data[4]);
            return text.data();
        }
    }
    throw OriginError("the H.264 encoder gave no sequence parameter set");
}

}  // namespace kvmpd::origin
