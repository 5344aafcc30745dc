#include "tests/app/TestMedia.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>

#include "app/AvTypes.h"
#include "app/BoxReader.h"

namespace kvmpd::app::test {
namespace {

struct ContextDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
using CodecPtr = std::unique_ptr<AVCodecContext, ContextDeleter>;

struct FrameDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;

void Check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + AvErrorText(result));
    }
}

// Encoders and muxers say a line each time, which no test is about.
[[maybe_unused]] const bool kQuiet = [] {
    av_log_set_level(AV_LOG_QUIET);
    return true;
}();

std::vector<AvPacketPtr> Encode(AVCodecContext& codec, const std::vector<FramePtr>& frames) {
    std::vector<AvPacketPtr> packets;
    const auto drain = [&] {
        for (;;) {
            AvPacketPtr packet(av_packet_alloc());
            if (avcodec_receive_packet(&codec, packet.get()) < 0) {
                return;
            }
            packets.push_back(std::move(packet));
        }
    };
    for (const FramePtr& frame : frames) {
        Check(avcodec_send_frame(&codec, frame.get()), "encoding");
        drain();
    }
    avcodec_send_frame(&codec, nullptr);
    drain();
    return packets;
}

std::size_t Find(const Bytes& bytes, const char* type, std::size_t from) {
    const auto at = std::search(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), type, type + 4);
    return at == bytes.end() ? std::string::npos : static_cast<std::size_t>(at - bytes.begin());
}

// Moves every fragment of the segment to a later decode time (tfdt, version 1: flags, then 64 bits).
void Shift(Bytes& segment, std::int64_t by) {
    for (std::size_t at = Find(segment, "tfdt", 0); at != std::string::npos; at = Find(segment, "tfdt", at + 4)) {
        if (segment.at(at + 4) != 1) {
            throw std::runtime_error("a 32-bit tfdt");
        }
        std::uint64_t time = 0;
        for (std::size_t i = 0; i < 8; ++i) {
            time = time << 8 | segment.at(at + 8 + i);
        }
        time += static_cast<std::uint64_t>(by);
        for (std::size_t i = 0; i < 8; ++i) {
            segment.at(at + 8 + i) = static_cast<std::uint8_t>(time >> (56 - 8 * i));
        }
    }
}

// Packets [from, to) as one segment that starts at decode time 0 of its own, then shifted.
Bytes MuxSegment(AVCodecContext& codec, const std::vector<AvPacketPtr>& packets, std::size_t from, std::size_t to,
                 int fragments, std::int64_t startSeconds) {
    AVFormatContext* context = nullptr;
    Check(avformat_alloc_output_context2(&context, nullptr, "mp4", nullptr), "muxer");
    Check(avio_open_dyn_buf(&context->pb), "buffer");
    AVStream* stream = avformat_new_stream(context, nullptr);
    Check(avcodec_parameters_from_context(stream->codecpar, &codec), "parameters");
    stream->time_base = codec.time_base;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "empty_moov+default_base_moof+frag_custom", 0);
    Check(avformat_write_header(context, &options), "header");
    av_dict_free(&options);
    const std::size_t perFragment = (to - from) / static_cast<std::size_t>(fragments) + 1;
    const std::int64_t base = packets[from]->dts;
    for (std::size_t i = from; i < to; ++i) {
        if (i != from && (i - from) % perFragment == 0) {
            Check(av_write_frame(context, nullptr), "fragment");
        }
        const AvPacketPtr copy(av_packet_clone(packets[i].get()));
        copy->dts -= base;
        copy->pts -= base;
        copy->duration = i + 1 < packets.size() ? packets[i + 1]->dts - packets[i]->dts : packets[i]->duration;
        copy->stream_index = 0;
        av_packet_rescale_ts(copy.get(), codec.time_base, stream->time_base);
        Check(av_write_frame(context, copy.get()), "packet");
    }
    Check(av_write_frame(context, nullptr), "fragment");
    std::uint8_t* data = nullptr;
    const int size = avio_close_dyn_buf(context->pb, &data);
    context->pb = nullptr;
    Bytes segment(data, data + size);
    av_free(data);
    Shift(segment, av_rescale_q(base, codec.time_base, stream->time_base) + startSeconds * stream->time_base.den);
    avformat_free_context(context);
    return segment;
}

// All packets in segments of one second.
std::vector<Bytes> MuxSegments(AVCodecContext& codec, const std::vector<AvPacketPtr>& packets,
                               const MediaShape& shape) {
    std::vector<Bytes> segments;
    std::size_t from = 0;
    for (int n = 1; n <= shape.segments; ++n) {
        const std::int64_t end = av_rescale_q(n * kSegmentSeconds, AVRational{1, 1}, codec.time_base);
        std::size_t to = from;
        while (to < packets.size() && packets[to]->dts < end) {
            ++to;
        }
        segments.push_back(MuxSegment(codec, packets, from, to, shape.fragmentsPerSegment, shape.startSeconds));
        from = to;
    }
    return segments;
}

}  // namespace

std::vector<Bytes> MakeVideoSegments(const MediaShape& shape) {
    const AVCodec* encoder = avcodec_find_encoder_by_name("libx264");
    if (encoder == nullptr) {
        encoder = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    }
    const CodecPtr codec(avcodec_alloc_context3(encoder));
    codec->width = shape.width;
    codec->height = shape.height;
    codec->pix_fmt = AV_PIX_FMT_YUV420P;
    codec->time_base = {1, kFramesPerSecond};
    codec->framerate = {kFramesPerSecond, 1};
    codec->gop_size = kFramesPerSecond * kSegmentSeconds;
    codec->max_b_frames = 0;
    codec->thread_count = 1;
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_opt_set(codec->priv_data, "preset", "ultrafast", 0);
    av_opt_set(codec->priv_data, "x264-params", "scenecut=0:log=0", 0);
    Check(avcodec_open2(codec.get(), encoder, nullptr), "video encoder");
    std::vector<FramePtr> frames;
    for (int n = 0; n < shape.segments * kSegmentSeconds * kFramesPerSecond; ++n) {
        FramePtr frame(av_frame_alloc());
        frame->format = codec->pix_fmt;
        frame->width = codec->width;
        frame->height = codec->height;
        Check(av_frame_get_buffer(frame.get(), 0), "frame");
        std::memset(frame->data[0], (n * 5 + shape.brightness) & 0xFF,
                    static_cast<std::size_t>(frame->linesize[0]) * static_cast<std::size_t>(frame->height));
        for (const int plane : {1, 2}) {
            std::memset(frame->data[plane], 128,
                        static_cast<std::size_t>(frame->linesize[plane]) * static_cast<std::size_t>(frame->height / 2));
        }
        frame->pts = n;
        frames.push_back(std::move(frame));
    }
    const std::vector<AvPacketPtr> packets = Encode(*codec, frames);
    packets.back()->duration = 1;
    return MuxSegments(*codec, packets, shape);
}

std::vector<Bytes> MakeAudioSegments(const MediaShape& shape) {
    const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_AAC);
    const CodecPtr codec(avcodec_alloc_context3(encoder));
    codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
    codec->sample_rate = kSampleRate;
    codec->time_base = {1, kSampleRate};
    av_channel_layout_default(&codec->ch_layout, 1);
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    Check(avcodec_open2(codec.get(), encoder, nullptr), "audio encoder");
    std::vector<FramePtr> frames;
    const int samples = shape.segments * kSegmentSeconds * kSampleRate;
    for (int at = 0; at < samples; at += codec->frame_size) {
        FramePtr frame(av_frame_alloc());
        frame->format = codec->sample_fmt;
        frame->nb_samples = codec->frame_size;
        frame->sample_rate = kSampleRate;
        av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout);
        Check(av_frame_get_buffer(frame.get(), 0), "frame");
        auto* out = reinterpret_cast<float*>(frame->data[0]);
        for (int i = 0; i < frame->nb_samples; ++i) {
            out[i] = shape.silent ? 0 : 0.1F * static_cast<float>(std::sin((at + i) * 0.05));
        }
        frame->pts = at;
        frames.push_back(std::move(frame));
    }
    std::vector<AvPacketPtr> packets = Encode(*codec, frames);
    // The encoder's priming lies before 0; a live stream has none.
    std::erase_if(packets, [](const AvPacketPtr& packet) { return packet->dts < 0; });
    return MuxSegments(*codec, packets, shape);
}

FileFacts Inspect(const std::string& path) {
    FileFacts facts;
    AVFormatContext* input = nullptr;
    if (avformat_open_input(&input, path.c_str(), nullptr, nullptr) < 0) {
        return facts;
    }
    facts.opened = true;
    avformat_find_stream_info(input, nullptr);
    facts.duration = static_cast<double>(input->duration) / AV_TIME_BASE;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVCodecParameters& parameters = *input->streams[i]->codecpar;
        if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
            facts.width = parameters.width;
            facts.videoCodec = avcodec_get_name(parameters.codec_id);
        } else {
            facts.audioCodec = avcodec_get_name(parameters.codec_id);
        }
    }
    const AvPacketPtr packet(av_packet_alloc());
    std::map<int, std::int64_t> lastTimes;
    while (av_read_frame(input, packet.get()) >= 0) {
        const AVStream& stream = *input->streams[packet->stream_index];
        const double time = static_cast<double>(packet->pts) * av_q2d(stream.time_base);
        const auto last = lastTimes.find(packet->stream_index);
        const double step =
            last == lastTimes.end() ? 0 : static_cast<double>(packet->dts - last->second) * av_q2d(stream.time_base);
        facts.timesRise = facts.timesRise && (last == lastTimes.end() || step > 0);
        lastTimes[packet->stream_index] = packet->dts;
        if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            if (facts.videoPackets++ == 0) {
                facts.start = time;
                facts.firstVideoIsKey = (packet->flags & AV_PKT_FLAG_KEY) != 0;
            }
            facts.videoEnd = time;
            facts.largestVideoStep = std::max(facts.largestVideoStep, step);
        } else {
            ++facts.audioPackets;
            facts.audioEnd = time;
            facts.largestAudioStep = std::max(facts.largestAudioStep, step);
        }
        av_packet_unref(packet.get());
    }
    avformat_close_input(&input);
    return facts;
}

}  // namespace kvmpd::app::test
