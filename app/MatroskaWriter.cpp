#include "app/MatroskaWriter.h"

#include <cerrno>
#include <cstdio>

namespace kvmpd::app {
namespace {

constexpr int kBufferBytes = 64 * 1024;

int WriteToOutput(void* opaque, std::uint8_t* bytes, int size) {
    auto& output = *static_cast<OutputFile*>(opaque);
    return output.Write({bytes, static_cast<std::size_t>(size)}) ? size : AVERROR(EIO);
}

std::int64_t SeekInOutput(void* opaque, std::int64_t offset, int whence) {
    auto& output = *static_cast<OutputFile*>(opaque);
    if ((whence & AVSEEK_SIZE) != 0) {
        return output.Size();
    }
    const int origin = whence & ~AVSEEK_FORCE;
    const std::int64_t base = origin == SEEK_CUR ? output.Position() : origin == SEEK_END ? output.Size() : 0;
    return output.Seek(base + offset) ? output.Position() : AVERROR(EIO);
}

}  // namespace

void MatroskaWriter::Closer::operator()(AVFormatContext* context) const {
    if (context->pb != nullptr) {
        av_freep(&context->pb->buffer);
        avio_context_free(&context->pb);
    }
    avformat_free_context(context);
}

MatroskaWriter::~MatroskaWriter() = default;

bool MatroskaWriter::Fail(int error) {
    if (m_output.GetState() == OutputFile::State::kGood) {
        m_error = AvErrorText(error);
    }
    return false;
}

bool MatroskaWriter::Begin(const std::array<const AVCodecParameters*, kTracks>& parameters, AVRational frameRate) {
    AVFormatContext* context = nullptr;
    if (const int result = avformat_alloc_output_context2(&context, nullptr, "matroska", nullptr); result < 0) {
        return Fail(result);
    }
    m_context.reset(context);
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
    if (buffer == nullptr) {
        return Fail(AVERROR(ENOMEM));
    }
    context->pb = avio_alloc_context(buffer, kBufferBytes, 1, &m_output, nullptr, &WriteToOutput,
                                     m_output.Seekable() ? &SeekInOutput : nullptr);
    if (context->pb == nullptr) {
        av_free(buffer);
        return Fail(AVERROR(ENOMEM));
    }
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    context->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    for (const AVCodecParameters* source : parameters) {
        AVStream* stream = avformat_new_stream(context, nullptr);
        if (stream == nullptr) {
            return Fail(AVERROR(ENOMEM));
        }
        if (const int result = avcodec_parameters_copy(stream->codecpar, source); result < 0) {
            return Fail(result);
        }
        stream->codecpar->codec_tag = 0;  // MP4's tag means nothing here
        if (source->codec_type == AVMEDIA_TYPE_VIDEO && frameRate.num > 0 && frameRate.den > 0) {
            stream->avg_frame_rate = frameRate;
        }
    }
    if (const int result = avformat_write_header(context, nullptr); result < 0) {
        return Fail(result);
    }
    m_begun = true;
    return true;
}

bool MatroskaWriter::Write(Track track, AVPacket& packet, AVRational timeBase) {
    const auto index = static_cast<unsigned>(IndexOf(track));
    av_packet_rescale_ts(&packet, timeBase, m_context->streams[index]->time_base);
    packet.stream_index = static_cast<int>(index);
    packet.pos = -1;
    // Per-packet notes of the MP4 demuxer (edit lists, priming) are about its own file.
    av_packet_free_side_data(&packet);
    const int result = av_interleaved_write_frame(m_context.get(), &packet);
    return result >= 0 || Fail(result);
}

bool MatroskaWriter::Flush() {
    if (!m_begun || m_finished) {
        return true;
    }
    avio_flush(m_context->pb);
    return m_context->pb->error >= 0 || Fail(m_context->pb->error);
}

bool MatroskaWriter::Finish() {
    if (!m_begun || m_finished) {
        return true;
    }
    m_finished = true;
    const int result = av_write_trailer(m_context.get());
    avio_flush(m_context->pb);
    if (result < 0) {
        return Fail(result);
    }
    return m_context->pb->error >= 0 || Fail(m_context->pb->error);
}

}  // namespace kvmpd::app
