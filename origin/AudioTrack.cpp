#include "origin/AudioTrack.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "origin/LiveOrigin.h"
#include "origin/SegmentMuxer.h"

namespace kvmpd::origin {

namespace {

constexpr AVRational kSampleRate{kAudioRate, 1};

}  // namespace

AudioTrack::AudioTrack(std::int64_t bitrate, ReadSamples read) : read_(std::move(read)), frame_(NewFrame()) {
    const AVCodec* codec = avcodec_find_encoder_by_name("aac");
    if (codec == nullptr) {
        throw OriginError("this system's FFmpeg has no AAC encoder");
    }
    encoder_.reset(avcodec_alloc_context3(codec));
    encoder_->sample_rate = kAudioRate;
    encoder_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    av_channel_layout_default(&encoder_->ch_layout, kAudioChannels);
    encoder_->bit_rate = bitrate;
    encoder_->time_base = kAudioTimeBase;
    encoder_->thread_count = 1;
    encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
    AvCheck(avcodec_open2(encoder_.get(), codec, nullptr), "cannot open the AAC encoder");

    parameters_.reset(avcodec_parameters_alloc());
    AvCheck(avcodec_parameters_from_context(parameters_.get(), encoder_.get()), "cannot describe the audio");
    // The frame that only primes the decoder is not served, so there is nothing for a player to skip.
    parameters_->initial_padding = 0;

    frame_->nb_samples = encoder_->frame_size;
    frame_->format = encoder_->sample_fmt;
    frame_->sample_rate = kAudioRate;
    AvCheck(av_channel_layout_copy(&frame_->ch_layout, &encoder_->ch_layout), "cannot make an audio frame");
    AvCheck(av_frame_get_buffer(frame_.get(), 0), "cannot make an audio frame");
}

std::string AudioTrack::Segment(std::int64_t startMs, std::int64_t endMs, const std::stop_token& stop) {
    const std::int64_t first = CeilTicks(startMs, kSampleRate);
    const std::int64_t end = CeilTicks(endMs, kSampleRate);
    if (first < forgottenUntil_) {
        return {};
    }
    while (encodedUntil_ < end) {
        if (stop.stop_requested()) {
            return {};
        }
        EncodeFrame();
    }
    std::vector<PacketPtr> packets;
    for (const PacketPtr& packet : packets_) {
        if (packet->pts >= first && packet->pts < end) {
            packets.emplace_back(av_packet_clone(packet.get()));
        }
    }
    return MuxSegment(*parameters_, kAudioTimeBase, packets);
}

void AudioTrack::Forget(std::int64_t beforeMs) {
    forgottenUntil_ = std::max(forgottenUntil_, CeilTicks(beforeMs, kSampleRate));
    while (!packets_.empty() && packets_.front()->pts < forgottenUntil_) {
        packets_.pop_front();
    }
}

void AudioTrack::EncodeFrame() {
    AvCheck(av_frame_make_writable(frame_.get()), "cannot make an audio frame");
    const auto count = static_cast<std::size_t>(frame_->nb_samples);
    read_(nextSample_, {reinterpret_cast<float*>(frame_->extended_data[0]), count},
          {reinterpret_cast<float*>(frame_->extended_data[1]), count});
    frame_->pts = nextSample_;
    nextSample_ += frame_->nb_samples;
    AvCheck(avcodec_send_frame(encoder_.get(), frame_.get()), "cannot encode audio");
    TakePackets();
}

// Media time 0 is the first sample: the encoder's priming frame, which it stamps below 0, is left out.
void AudioTrack::TakePackets() {
    for (;;) {
        PacketPtr packet = NewPacket();
        const int result = avcodec_receive_packet(encoder_.get(), packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return;
        }
        AvCheck(result, "cannot encode audio");
        packet->duration = encoder_->frame_size;
        encodedUntil_ = packet->pts + packet->duration;
        if (packet->pts >= forgottenUntil_) {
            packets_.push_back(std::move(packet));
        }
    }
}

}  // namespace kvmpd::origin
