#include "origin/FileReader.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "origin/LiveOrigin.h"

namespace kvmpd::origin {

namespace {

constexpr AVRational kMicroseconds{1, 1'000'000};
constexpr AVRational kDefaultFrameRate{25, 1};
// Steps of the file's time stamps below this are rounding, not gaps.
constexpr std::int64_t kAudioSlack = kAudioRate / 25;
// The audio buffer is moved down when this much of it has been taken.
constexpr std::size_t kCompactAt = std::size_t{kAudioRate};

}  // namespace

FileReader::FileReader(std::string path) : path_(std::move(path)) {
    Open();
    OpenDecoder(video_, AVMEDIA_TYPE_VIDEO);
    OpenDecoder(audio_, AVMEDIA_TYPE_AUDIO);
    if (!HasVideo() && !HasAudio()) {
        throw OriginError(path_ + " has neither video nor audio that can be decoded");
    }
}

void FileReader::Open() {
    AVFormatContext* context = nullptr;
    AvCheck(avformat_open_input(&context, path_.c_str(), nullptr, nullptr), "cannot open " + path_);
    input_.reset(context);
    AvCheck(avformat_find_stream_info(context, nullptr), "cannot read " + path_);
    startUs_ = context->start_time == AV_NOPTS_VALUE ? 0 : context->start_time;
}

void FileReader::OpenDecoder(Track& track, AVMediaType kind) {
    const AVCodec* codec = nullptr;
    const int index = av_find_best_stream(input_.get(), kind, -1, -1, &codec, 0);
    if (index < 0) {
        return;
    }
    const AVStream* stream = input_->streams[index];
    if ((stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
        return;
    }
    track.decoder.reset(avcodec_alloc_context3(codec));
    AvCheck(avcodec_parameters_to_context(track.decoder.get(), stream->codecpar), "cannot decode " + path_);
    track.decoder->pkt_timebase = stream->time_base;
    AvCheck(avcodec_open2(track.decoder.get(), codec, nullptr), "cannot decode " + path_);
    track.index = index;
}

int FileReader::Height() const {
    return std::max(2, video_.decoder->height & ~1);
}

int FileReader::Width() const {
    AVStream* stream = input_->streams[video_.index];
    const AVRational aspect = av_guess_sample_aspect_ratio(input_.get(), stream, nullptr);
    std::int64_t width = video_.decoder->width;
    if (aspect.num > 0 && aspect.den > 0) {
        width = width * aspect.num / aspect.den;
    }
    return std::max(2, static_cast<int>(width) & ~1);
}

AVRational FileReader::FrameRate() const {
    AVRational rate = av_guess_frame_rate(input_.get(), input_->streams[video_.index], nullptr);
    if (rate.num <= 0 || rate.den <= 0 || av_q2d(rate) < 10 || av_q2d(rate) > 240) {
        return kDefaultFrameRate;
    }
    while (av_q2d(rate) > 30.5) {
        rate = av_mul_q(rate, {1, 2});
    }
    // Keeps the arithmetic of segment limits exact; the rates in use all fit.
    return rate.num > 100'000 || rate.den > 2000 ? kDefaultFrameRate : rate;
}

// Reads one packet into its track's queue; at the end of the file, opens it again.
void FileReader::ReadPacket() {
    PacketPtr packet = NewPacket();
    const int result = av_read_frame(input_.get(), packet.get());
    if (result < 0) {
        BeginAgain();
        return;
    }
    for (Track* track : {&video_, &audio_}) {
        if (packet->stream_index != track->index) {
            continue;
        }
        const AVRational base = input_->streams[packet->stream_index]->time_base;
        const std::int64_t shift = av_rescale_q(offsetUs_ - startUs_, kMicroseconds, base);
        for (std::int64_t* time : {&packet->pts, &packet->dts}) {
            *time = *time == AV_NOPTS_VALUE ? AV_NOPTS_VALUE : *time + shift;
        }
        const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        if (time != AV_NOPTS_VALUE) {
            passEndUs_ = std::max(passEndUs_, av_rescale_q(time + packet->duration, base, kMicroseconds) - offsetUs_);
        }
        passGaveMedia_ = true;
        track->packets.push_back(std::move(packet));
        return;
    }
}

void FileReader::BeginAgain() {
    if (!passGaveMedia_) {
        throw OriginError("cannot read " + path_ + ": it holds no media");
    }
    // A file without time stamps is as long as what was decoded of it.
    if (passEndUs_ <= 0) {
        passEndUs_ = std::max({video_.nextTimeUs - offsetUs_, audio_.nextTimeUs - offsetUs_, std::int64_t{40'000}});
    }
    offsetUs_ += passEndUs_;
    passEndUs_ = 0;
    passGaveMedia_ = false;
    for (Track* track : {&video_, &audio_}) {
        if (track->index >= 0) {
            track->packets.push_back(nullptr);
        }
    }
    Open();
}

void FileReader::FeedDecoder(Track& track) {
    while (track.packets.empty()) {
        ReadPacket();
    }
    const PacketPtr packet = std::move(track.packets.front());
    track.packets.pop_front();
    // A packet that cannot be decoded is left out, as a player would.
    avcodec_send_packet(track.decoder.get(), packet.get());
}

FramePtr FileReader::DecodeNext(Track& track) {
    FramePtr frame = NewFrame();
    for (;;) {
        const int result = avcodec_receive_frame(track.decoder.get(), frame.get());
        if (result >= 0) {
            return frame;
        }
        if (result == AVERROR_EOF) {
            avcodec_flush_buffers(track.decoder.get());
        }
        FeedDecoder(track);
    }
}

std::int64_t FileReader::TimeOf(const Track& track, const AVFrame& frame) const {
    if (frame.best_effort_timestamp == AV_NOPTS_VALUE) {
        return track.nextTimeUs;
    }
    return av_rescale_q(frame.best_effort_timestamp, track.decoder->pkt_timebase, kMicroseconds);
}

const AVFrame& FileReader::FrameAt(std::int64_t timeUs) {
    while (!shown_ || followingTimeUs_ <= timeUs) {
        shown_ = std::move(following_);
        following_ = DecodeNext(video_);
        followingTimeUs_ = TimeOf(video_, *following_);
        video_.nextTimeUs = followingTimeUs_ + av_rescale_q(1, av_inv_q(FrameRate()), kMicroseconds);
        if (!shown_) {
            shown_.reset(av_frame_clone(following_.get()));
        }
    }
    return *shown_;
}

void FileReader::DecodeAudio() {
    const FramePtr frame = DecodeNext(audio_);
    const std::int64_t timeUs = TimeOf(audio_, *frame);
    audio_.nextTimeUs = timeUs + std::int64_t{1'000'000} * frame->nb_samples / std::max(1, frame->sample_rate);
    if (!resampler_) {
        AVChannelLayout stereo{};
        av_channel_layout_default(&stereo, kAudioChannels);
        SwrContext* context = nullptr;
        AvCheck(swr_alloc_set_opts2(&context, &stereo, AV_SAMPLE_FMT_FLTP, kAudioRate, &frame->ch_layout,
                                    static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0, nullptr),
                "cannot convert the audio of " + path_);
        resampler_.reset(context);
        AvCheck(swr_init(context), "cannot convert the audio of " + path_);
    }

    // Where the file's sound begins late or has a hole, there is silence, so that it stays with the picture.
    const std::int64_t due = timeUs * kAudioRate / 1'000'000;
    const std::int64_t missing = due - samplesUntil_ > kAudioSlack ? due - samplesUntil_ : 0;
    const int room = swr_get_out_samples(resampler_.get(), frame->nb_samples);
    const std::size_t begin = left_.size() + static_cast<std::size_t>(missing);
    for (auto* channel : {&left_, &right_}) {
        channel->resize(begin + static_cast<std::size_t>(std::max(0, room)), 0.0F);
    }
    std::array<std::uint8_t*, 2> out{reinterpret_cast<std::uint8_t*>(left_.data() + begin),
                                     reinterpret_cast<std::uint8_t*>(right_.data() + begin)};
    const int converted = swr_convert(resampler_.get(), out.data(), room,
                                      const_cast<const std::uint8_t**>(frame->extended_data), frame->nb_samples);
    // A file may change its sound in the middle; what does not fit is left out.
    std::size_t got = static_cast<std::size_t>(std::max(0, converted));
    // What overlaps the sound already given, at the seam of two passes for example, is left out too.
    const std::int64_t early = samplesUntil_ + missing - due;
    if (early > kAudioSlack) {
        got -= std::min(got, static_cast<std::size_t>(early));
    }
    for (auto* channel : {&left_, &right_}) {
        channel->resize(begin + got);
    }
    samplesUntil_ += missing + static_cast<std::int64_t>(got);
}

void FileReader::ReadSamples(std::span<float> left, std::span<float> right) {
    if (!HasAudio()) {
        std::ranges::fill(left, 0.0F);
        std::ranges::fill(right, 0.0F);
        return;
    }
    while (left_.size() - taken_ < left.size()) {
        DecodeAudio();
    }
    std::copy_n(left_.data() + taken_, left.size(), left.data());
    std::copy_n(right_.data() + taken_, right.size(), right.data());
    taken_ += left.size();
    if (taken_ > kCompactAt) {
        for (auto* channel : {&left_, &right_}) {
            channel->erase(channel->begin(), channel->begin() + static_cast<std::ptrdiff_t>(taken_));
        }
        taken_ = 0;
    }
}

}  // namespace kvmpd::origin
