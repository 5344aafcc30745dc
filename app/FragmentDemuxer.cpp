#include "app/FragmentDemuxer.h"

#include <algorithm>
#include <cstring>

namespace kvmpd::app {

std::string AvErrorText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof(text));
    return text;
}

namespace {

// A read-only file in memory for libavformat.
struct MemoryFile {
    std::span<const std::uint8_t> bytes;
    std::size_t position = 0;

    static int Read(void* opaque, std::uint8_t* buffer, int size) {
        auto& file = *static_cast<MemoryFile*>(opaque);
        const std::size_t count = std::min(static_cast<std::size_t>(size), file.bytes.size() - file.position);
        if (count == 0) {
            return AVERROR_EOF;
        }
        std::memcpy(buffer, file.bytes.data() + file.position, count);
        file.position += count;
        return static_cast<int>(count);
    }

    static std::int64_t Seek(void* opaque, std::int64_t offset, int whence) {
        auto& file = *static_cast<MemoryFile*>(opaque);
        const auto size = static_cast<std::int64_t>(file.bytes.size());
        if ((whence & AVSEEK_SIZE) != 0) {
            return size;
        }
        const int origin = whence & ~AVSEEK_FORCE;
        const std::int64_t base = origin == SEEK_CUR   ? static_cast<std::int64_t>(file.position)
                                  : origin == SEEK_END ? size
                                                       : 0;
        if (base + offset < 0 || base + offset > size) {
            return AVERROR(EINVAL);
        }
        file.position = static_cast<std::size_t>(base + offset);
        return base + offset;
    }
};

struct IoDeleter {
    void operator()(AVIOContext* io) const {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};

struct InputDeleter {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
};

std::unique_ptr<AVIOContext, IoDeleter> OpenIo(MemoryFile& file) {
    constexpr int kBufferBytes = 32 * 1024;
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
    if (buffer == nullptr) {
        return nullptr;
    }
    AVIOContext* io = avio_alloc_context(buffer, kBufferBytes, 0, &file, &MemoryFile::Read, nullptr, &MemoryFile::Seek);
    if (io == nullptr) {
        av_free(buffer);
    }
    return std::unique_ptr<AVIOContext, IoDeleter>(io);
}

AVStream* FirstStream(const AVFormatContext& input, AVMediaType type) {
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        if (input.streams[i]->codecpar->codec_type == type) {
            return input.streams[i];
        }
    }
    return nullptr;
}

// The container tells when a packet is decoded; how long it lasts follows from the next one, and for the last one from
// the fragment's end. An edit list moves the packets but not that end: then the last one is taken to be like the
// others.
void SetDurations(std::vector<AvPacketPtr>& packets, std::int64_t end) {
    for (std::size_t i = 0; i + 1 < packets.size(); ++i) {
        packets[i]->duration = std::max<std::int64_t>(0, packets[i + 1]->dts - packets[i]->dts);
    }
    if (packets.empty()) {
        return;
    }
    AVPacket& last = *packets.back();
    const std::int64_t toEnd = end - last.dts;
    const std::int64_t like = packets.size() > 1 ? packets[packets.size() - 2]->duration : toEnd;
    last.duration = toEnd > 0 && toEnd <= 2 * like ? toEnd : std::max<std::int64_t>(0, like);
}

int ReadPackets(AVFormatContext& input, int streamIndex, std::vector<AvPacketPtr>& packets) {
    for (;;) {
        AvPacketPtr packet(av_packet_alloc());
        if (!packet) {
            return AVERROR(ENOMEM);
        }
        const int result = av_read_frame(&input, packet.get());
        if (result < 0) {
            return result == AVERROR_EOF ? 0 : result;
        }
        if (packet->stream_index == streamIndex && packet->size > 0 && packet->dts != AV_NOPTS_VALUE) {
            packets.push_back(std::move(packet));
        }
    }
}

}  // namespace

bool DemuxFragment(std::span<const std::uint8_t> file, Track wanted, DemuxedFragment& fragment, std::string& error) {
    MemoryFile memory{file};
    const auto io = OpenIo(memory);
    AVFormatContext* context = avformat_alloc_context();
    if (!io || context == nullptr) {
        avformat_free_context(context);
        error = AvErrorText(AVERROR(ENOMEM));
        return false;
    }
    context->pb = io.get();
    // Timestamps are wanted as the container has them, not as a parser or a heuristic would have them.
    context->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN | AVFMT_FLAG_CUSTOM_IO;
    int result = avformat_open_input(&context, nullptr, av_find_input_format("mov"), nullptr);
    if (result < 0) {  // the context is gone already
        error = AvErrorText(result);
        return false;
    }
    const std::unique_ptr<AVFormatContext, InputDeleter> input(context);
    const AVStream* stream = FirstStream(*input, wanted == Track::kVideo ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO);
    if (stream == nullptr) {
        error = std::string("there is no ") + NameOf(wanted) + " track in it";
        return false;
    }
    fragment.parameters.reset(avcodec_parameters_alloc());
    if (!fragment.parameters) {
        error = AvErrorText(AVERROR(ENOMEM));
        return false;
    }
    result = avcodec_parameters_copy(fragment.parameters.get(), stream->codecpar);
    fragment.timeBase = stream->time_base;
    if (result >= 0) {
        result = ReadPackets(*input, stream->index, fragment.packets);
    }
    if (result < 0) {
        error = AvErrorText(result);
        return false;
    }
    SetDurations(fragment.packets, stream->duration);
    return true;
}

}  // namespace kvmpd::app
