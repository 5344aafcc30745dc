#include "app/Recording.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "app/Text.h"

namespace kvmpd::app {
namespace {

constexpr AVRational kMicroseconds{1, 1'000'000};

// Nobody looks through more of them, and a stream that never recovers must not fill the memory.
constexpr std::size_t kMostGapsListed = 1000;
// How much of one track is kept while the other one has not begun.
constexpr std::int64_t kMostWaitingUs = 60'000'000;
// What the file takes besides the media, rather too much than too little: header and index, and for each packet its
// block header and a share of the cluster's and of the index entry.
constexpr std::int64_t kFileOverheadBytes = 64 * 1024;
constexpr std::int64_t kPacketOverheadBytes = 40;

std::int64_t ToUs(std::int64_t time, AVRational timeBase) {
    return av_rescale_q(time, timeBase, kMicroseconds);
}

// What a decoder was set up with. A file has room for one set of it per track.
bool SameParameters(const AVCodecParameters& a, const AVCodecParameters& b) {
    const auto extra = [](const AVCodecParameters& p) {
        return std::string_view(reinterpret_cast<const char*>(p.extradata), static_cast<std::size_t>(p.extradata_size));
    };
    return a.codec_id == b.codec_id && a.width == b.width && a.height == b.height && a.sample_rate == b.sample_rate &&
           a.ch_layout.nb_channels == b.ch_layout.nb_channels && extra(a) == extra(b);
}

std::string DescribeChange(Track track, const AVCodecParameters& before, const AVCodecParameters& after) {
    std::string text = std::string("the stream's ") + NameOf(track) + " changed";
    if (before.codec_id != after.codec_id) {
        return text + " from " + avcodec_get_name(before.codec_id) + " to " + avcodec_get_name(after.codec_id);
    }
    if (before.width != after.width || before.height != after.height) {
        return text + Format(" from %dx%d to %dx%d", before.width, before.height, after.width, after.height);
    }
    if (before.sample_rate != after.sample_rate) {
        return text + Format(" from %d Hz to %d Hz", before.sample_rate, after.sample_rate);
    }
    return text + " its decoder settings";
}

// The rate when every packet lasts equally long; a file with a wrong rate is worse than one with none.
AVRational ConstantFrameRate(const DemuxedFragment& fragment) {
    const std::int64_t duration = fragment.packets.empty() ? 0 : fragment.packets.front()->duration;
    const bool constant = duration > 0 && std::ranges::all_of(fragment.packets, [&](const AvPacketPtr& packet) {
                              return packet->duration == duration;
                          });
    AVRational rate{0, 1};
    if (constant) {
        av_reduce(&rate.num, &rate.den, fragment.timeBase.den, fragment.timeBase.num * duration, INT32_MAX);
    }
    return rate;
}

}  // namespace

Recording::Result Recording::Add(Track track, DemuxedFragment&& fragment) {
    const std::lock_guard lock(m_mutex);
    if (m_finished) {
        return Result::kFinished;
    }
    if (m_timeline.LimitReached()) {
        return Result::kLimitReached;
    }
    return AddLocked(track, std::move(fragment));
}

Recording::Result Recording::AddLocked(Track track, DemuxedFragment&& fragment) {
    const auto index = static_cast<std::size_t>(IndexOf(track));
    if (fragment.packets.empty()) {
        return Result::kGoOn;
    }
    AvParametersPtr& known = m_parameters[index];
    if (!known) {
        known = std::move(fragment.parameters);
    } else if (fragment.parameters && !SameParameters(*known, *fragment.parameters)) {
        m_error = DescribeChange(track, *known, *fragment.parameters);
        return Result::kCodecChanged;
    }
    if (m_writer.Begun()) {
        return WriteFragment(track, fragment);
    }
    m_waiting[index].push_back(std::move(fragment));
    BoundWaiting(m_waiting[index]);
    if (m_waiting[0].empty() || m_waiting[1].empty()) {
        return Result::kGoOn;
    }
    if (!Begin()) {
        return Result::kOutputFailed;
    }
    for (const Track each : {Track::kVideo, Track::kAudio}) {
        for (DemuxedFragment& waiting : std::exchange(m_waiting[static_cast<std::size_t>(IndexOf(each))], {})) {
            if (const Result result = WriteFragment(each, waiting); result == Result::kOutputFailed) {
                return result;
            }
        }
    }
    return m_timeline.LimitReached() ? Result::kLimitReached : Result::kGoOn;
}

// The file cannot begin before both tracks are there. What comes too long before that is no part of the recording.
void Recording::BoundWaiting(std::vector<DemuxedFragment>& waiting) {
    const auto startUs = [](const DemuxedFragment& f) { return ToUs(f.packets.front()->dts, f.timeBase); };
    while (waiting.size() > 1 && startUs(waiting.back()) - startUs(waiting.front()) > kMostWaitingUs) {
        waiting.erase(waiting.begin());
    }
}

bool Recording::Begin() {
    const auto firstUs = [&](Track track) {
        const DemuxedFragment& first = m_waiting[static_cast<std::size_t>(IndexOf(track))].front();
        return ToUs(first.packets.front()->dts, first.timeBase);
    };
    m_timeline.Begin(firstUs(Track::kVideo), firstUs(Track::kAudio));
    if (!m_writer.Begin({m_parameters[0].get(), m_parameters[1].get()}, ConstantFrameRate(m_waiting[0].front()))) {
        m_error = m_writer.Error();
        return false;
    }
    return true;
}

Recording::Result Recording::WriteFragment(Track track, DemuxedFragment& fragment) {
    for (const AvPacketPtr& packet : fragment.packets) {
        if (track == Track::kVideo && !m_sawKeyFrame) {
            m_sawKeyFrame = (packet->flags & AV_PKT_FLAG_KEY) != 0;
            if (!m_sawKeyFrame) {
                continue;  // a player could show nothing of it
            }
        }
        if (!HasRoomFor(*packet)) {
            m_error = m_output.Error();
            return Result::kOutputFailed;
        }
        const std::int64_t decodeUs = ToUs(packet->dts, fragment.timeBase);
        const std::int64_t durationUs = ToUs(packet->duration, fragment.timeBase);
        const Timeline::Verdict verdict = m_timeline.Admit(track, decodeUs, durationUs);
        NoteGap();
        switch (verdict) {
            case Timeline::Verdict::kRepeated:
                continue;
            case Timeline::Verdict::kBeyondLimit:
                return m_timeline.LimitReached() ? Result::kLimitReached : Result::kGoOn;
            case Timeline::Verdict::kWrite:
                break;
        }
        m_loss[static_cast<std::size_t>(IndexOf(track))] = LossCause::kAbsent;
        if (!WritePacket(track, *packet, fragment.timeBase)) {
            return Result::kOutputFailed;
        }
    }
    if (!m_output.Seekable() && !m_writer.Flush()) {
        m_error = m_writer.Error();
        return Result::kOutputFailed;
    }
    return m_timeline.LimitReached() ? Result::kLimitReached : Result::kGoOn;
}

void Recording::NoteGap() {
    if (!m_timeline.LastGap()) {
        return;
    }
    Gap gap = *m_timeline.LastGap();
    const auto index = static_cast<std::size_t>(IndexOf(gap.track));
    gap.cause = m_loss[index];
    if (gap.cause == LossCause::kAbsent && m_failuresExplained[index] < m_failedDownloads) {
        ++m_failuresExplained[index];
        gap.cause = LossCause::kDownloadFailed;
    }
    if (m_gaps.size() < kMostGapsListed) {
        m_gaps.push_back(gap);
        m_newGaps.push_back(gap);
    }
}

// Asked before a packet is given to the muxer, which keeps some seconds of media to itself: so that all it has, and the
// index, can still be written when the disk is full.
bool Recording::HasRoomFor(const AVPacket& packet) {
    const std::int64_t packets = m_timeline.Of(Track::kVideo).packets + m_timeline.Of(Track::kAudio).packets + 1;
    return m_output.Reserve(kFileOverheadBytes + m_mediaBytes + packet.size + packets * kPacketOverheadBytes);
}

bool Recording::WritePacket(Track track, AVPacket& packet, AVRational timeBase) {
    const std::int64_t origin = m_options.keepTimestamps ? 0 : m_timeline.OriginUs();
    packet.dts = ToUs(packet.dts, timeBase) - origin;
    packet.pts = packet.pts == AV_NOPTS_VALUE ? packet.dts : ToUs(packet.pts, timeBase) - origin;
    packet.duration = ToUs(packet.duration, timeBase);
    m_fileEndUs = std::max(m_fileEndUs, packet.pts + packet.duration);
    m_mediaBytes += packet.size;
    m_output.Keep();
    if (!m_writer.Write(track, packet, kMicroseconds)) {
        m_error = m_writer.Error();
        return false;
    }
    return true;
}

bool Recording::Finish() {
    const std::lock_guard lock(m_mutex);
    if (m_finished) {
        return true;
    }
    m_finished = true;
    if (m_writer.Begun()) {
        for (const Track track : {Track::kVideo, Track::kAudio}) {
            if (m_loss[static_cast<std::size_t>(IndexOf(track))] != LossCause::kAbsent) {
                m_timeline.EndTrack(track);
                NoteGap();
            }
        }
    }
    const bool finished = m_writer.Finish();
    m_output.EndReserve();
    if (!finished) {
        m_error = m_writer.Error();
    }
    return finished;
}

void Recording::NoteLoss(Track track, LossCause cause) {
    const std::lock_guard lock(m_mutex);
    LossCause& known = m_loss[static_cast<std::size_t>(IndexOf(track))];
    // What follows from a loss is not what caused it.
    if (known == LossCause::kAbsent) {
        known = cause;
    }
}

std::vector<Gap> Recording::TakeNewGaps() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_newGaps, {});
}

std::int64_t Recording::Packets() const {
    const std::lock_guard lock(m_mutex);
    return m_timeline.Of(Track::kVideo).packets + m_timeline.Of(Track::kAudio).packets;
}

std::int64_t Recording::Repeated() const {
    const std::lock_guard lock(m_mutex);
    return m_timeline.Of(Track::kVideo).repeated + m_timeline.Of(Track::kAudio).repeated;
}

std::optional<std::int64_t> Recording::RecordingTime(std::int64_t decodeUs) const {
    const std::lock_guard lock(m_mutex);
    return m_writer.Begun() ? std::optional(decodeUs - m_timeline.OriginUs()) : std::nullopt;
}

Recording::Summary Recording::Snapshot() const {
    const std::lock_guard lock(m_mutex);
    return SnapshotLocked();
}

std::optional<Recording::Summary> Recording::TrySnapshot() const {
    const std::unique_lock lock(m_mutex, std::try_to_lock);
    if (!lock) {
        return std::nullopt;
    }
    return SnapshotLocked();
}

Recording::Summary Recording::SnapshotLocked() const {
    Summary summary;
    summary.begun = m_writer.Begun();
    summary.tracks = {m_timeline.Of(Track::kVideo), m_timeline.Of(Track::kAudio)};
    summary.durationMs = (m_fileEndUs + 500) / 1000;
    summary.recordedMs = std::max(summary.tracks[0].endUs, summary.tracks[1].endUs) / 1000;
    summary.bytes = m_output.Size();
    summary.mediaBytes = m_mediaBytes;
    summary.gaps = m_gaps;
    if (const AVCodecParameters* video = m_parameters[0].get()) {
        summary.seen[0] = true;
        summary.width = video->width;
        summary.height = video->height;
        summary.videoCodec = avcodec_get_name(video->codec_id);
    }
    if (const AVCodecParameters* audio = m_parameters[1].get()) {
        summary.seen[1] = true;
        summary.audioCodec = avcodec_get_name(audio->codec_id);
        summary.sampleRate = audio->sample_rate;
        summary.channels = audio->ch_layout.nb_channels;
    }
    return summary;
}

std::string Recording::Error() const {
    const std::lock_guard lock(m_mutex);
    return m_error.empty() ? m_output.Error() : m_error;
}

}  // namespace kvmpd::app
