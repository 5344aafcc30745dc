#include "tests/origin/ProbedSegment.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "origin/Av.h"

namespace kvmpd::origin {

namespace {

// Remarks on repeated moov boxes are expected and would bury the test results.
[[maybe_unused]] const bool kQuiet = (av_log_set_level(AV_LOG_QUIET), true);

constexpr int kBufferSize = 4096;
constexpr std::size_t kBoxHeader = 8;

std::uint64_t BigEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (const char byte : bytes) {
        value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
}

// Bytes in memory as a demuxer's input.
class MemoryInput {
  public:
    explicit MemoryInput(const std::string& bytes) : bytes_(bytes) {
        io_ = avio_alloc_context(static_cast<unsigned char*>(av_malloc(kBufferSize)), kBufferSize, 0, this, Read,
                                 nullptr, nullptr);
        AVFormatContext* context = avformat_alloc_context();
        context->pb = io_;
        if (avformat_open_input(&context, nullptr, av_find_input_format("mp4"), nullptr) < 0) {
            Free();
            throw std::runtime_error("libavformat cannot read the bytes");
        }
        input_.reset(context);
    }
    ~MemoryInput() {
        input_.reset();
        Free();
    }
    MemoryInput(const MemoryInput&) = delete;
    MemoryInput& operator=(const MemoryInput&) = delete;

    AVFormatContext* Context() { return input_.get(); }

  private:
    static int Read(void* self, std::uint8_t* buffer, int size) {
        auto* input = static_cast<MemoryInput*>(self);
        const std::size_t count = std::min(input->bytes_.size() - input->position_, static_cast<std::size_t>(size));
        if (count == 0) {
            return AVERROR_EOF;
        }
        std::memcpy(buffer, input->bytes_.data() + input->position_, count);
        input->position_ += count;
        return static_cast<int>(count);
    }
    void Free() {
        av_freep(&io_->buffer);
        avio_context_free(&io_);
    }

    const std::string& bytes_;
    std::size_t position_ = 0;
    AVIOContext* io_ = nullptr;
    InputPtr input_;
};

void DecodeAll(const std::string& bytes, const std::function<void(const AVFrame&)>& take) {
    MemoryInput input(bytes);
    const AVCodecParameters* parameters = input.Context()->streams[0]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    CodecContextPtr decoder(avcodec_alloc_context3(codec));
    AvCheck(avcodec_parameters_to_context(decoder.get(), parameters), "parameters");
    AvCheck(avcodec_open2(decoder.get(), codec, nullptr), "decoder");
    const FramePtr frame = NewFrame();
    for (bool more = true; more;) {
        const PacketPtr packet = NewPacket();
        more = av_read_frame(input.Context(), packet.get()) >= 0;
        AvCheck(avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr), "decode");
        while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
            take(*frame);
        }
    }
}

}  // namespace

ProbedMedia Probe(const std::string& bytes) {
    MemoryInput input(bytes);
    const AVStream* stream = input.Context()->streams[0];
    ProbedMedia media;
    media.codec = avcodec_get_name(stream->codecpar->codec_id);
    media.width = stream->codecpar->width;
    media.height = stream->codecpar->height;
    media.sampleRate = stream->codecpar->sample_rate;
    media.timeScale = stream->time_base.den;
    for (PacketPtr packet = NewPacket(); av_read_frame(input.Context(), packet.get()) >= 0; packet = NewPacket()) {
        media.packets.push_back(
            {packet->pts, packet->dts, packet->duration, (packet->flags & AV_PKT_FLAG_KEY) != 0,
             std::string(reinterpret_cast<const char*>(packet->data), static_cast<std::size_t>(packet->size))});
    }
    return media;
}

std::string TopLevelBoxes(std::string_view bytes) {
    std::string types;
    while (bytes.size() >= kBoxHeader) {
        const std::uint64_t size = BigEndian(bytes.substr(0, 4));
        types += (types.empty() ? "" : " ") + std::string(bytes.substr(4, 4));
        if (size < kBoxHeader || size > bytes.size()) {
            return types + " broken";
        }
        bytes.remove_prefix(static_cast<std::size_t>(size));
    }
    return bytes.empty() ? types : types + " rest";
}

std::int64_t FirstDecodeTime(std::string_view bytes) {
    const std::size_t type = bytes.find("tfdt");
    if (type == std::string_view::npos || bytes[type + 4] != 1) {
        return -1;
    }
    return static_cast<std::int64_t>(BigEndian(bytes.substr(type + 8, 8)));
}

std::vector<int> BrightnessOfPictures(const std::string& bytes, double x, double y) {
    std::vector<int> values;
    DecodeAll(bytes, [&](const AVFrame& frame) {
        const auto row = static_cast<std::ptrdiff_t>(y * frame.height);
        const auto column = static_cast<std::ptrdiff_t>(x * frame.width);
        values.push_back(frame.data[0][row * frame.linesize[0] + column]);
    });
    return values;
}

std::vector<float> DecodedSamples(const std::string& bytes) {
    std::vector<float> samples;
    DecodeAll(bytes, [&](const AVFrame& frame) {
        const auto* channel = reinterpret_cast<const float*>(frame.extended_data[0]);
        samples.insert(samples.end(), channel, channel + frame.nb_samples);
    });
    return samples;
}

}  // namespace kvmpd::origin
