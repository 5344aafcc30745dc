#include "origin/SegmentMuxer.h"

#include <cstdint>

namespace kvmpd::origin {

namespace {

// A format context that writes into memory.
class MemoryOutput {
  public:
    MemoryOutput() {
        AvCheck(avformat_alloc_output_context2(&context_, nullptr, "mp4", nullptr), "cannot write MP4");
        context_->flags |= AVFMT_FLAG_BITEXACT;
        const int opened = avio_open_dyn_buf(&context_->pb);
        if (opened < 0) {
            avformat_free_context(context_);
            AvCheck(opened, "cannot write to memory");
        }
    }
    ~MemoryOutput() {
        Take();
        avformat_free_context(context_);
    }
    MemoryOutput(const MemoryOutput&) = delete;
    MemoryOutput& operator=(const MemoryOutput&) = delete;

    AVFormatContext* Context() { return context_; }

    std::string Take() {
        if (context_->pb == nullptr) {
            return {};
        }
        std::uint8_t* data = nullptr;
        const int size = avio_close_dyn_buf(context_->pb, &data);
        context_->pb = nullptr;
        std::string bytes(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
        av_free(data);
        return bytes;
    }

  private:
    AVFormatContext* context_ = nullptr;
};

void WriteHeader(AVFormatContext* output) {
    AVDictionary* options = nullptr;
    // frag_discont makes the fragment's decode time the packet's own; as the muxer comes, every output starts at 0.
    av_dict_set(&options, "movflags", "empty_moov+default_base_moof+frag_custom+frag_discont+skip_trailer", 0);
    av_dict_set(&options, "use_editlist", "0", 0);
    av_dict_set(&options, "avoid_negative_ts", "disabled", 0);
    av_dict_set_int(&options, "video_track_timescale", kVideoTimeBase.den, 0);
    const int result = avformat_write_header(output, &options);
    av_dict_free(&options);
    AvCheck(result, "cannot write an MP4 header");
}

}  // namespace

std::string MuxSegment(const AVCodecParameters& parameters, AVRational timeBase, std::span<const PacketPtr> packets) {
    MemoryOutput output;
    AVStream* stream = avformat_new_stream(output.Context(), nullptr);
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    AvCheck(avcodec_parameters_copy(stream->codecpar, &parameters), "cannot describe a track");
    stream->codecpar->codec_tag = 0;
    stream->time_base = timeBase;
    WriteHeader(output.Context());

    const PacketPtr copy = NewPacket();
    for (const PacketPtr& packet : packets) {
        AvCheck(av_packet_ref(copy.get(), packet.get()), "cannot copy a packet");
        copy->stream_index = stream->index;
        av_packet_rescale_ts(copy.get(), timeBase, stream->time_base);
        AvCheck(av_write_frame(output.Context(), copy.get()), "cannot write a packet");
        av_packet_unref(copy.get());
    }
    AvCheck(av_write_frame(output.Context(), nullptr), "cannot end a fragment");
    AvCheck(av_write_trailer(output.Context()), "cannot end a segment");
    return output.Take();
}

}  // namespace kvmpd::origin
