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
    const std::int64_t packetsBefore = m_timeline.Of(track).packets;
    const Result result = AddLocked(track, std::move(fragment));
    m_lastWritten[static_cast<std::size_t>(IndexOf(track))] = m_timeline.Of(track).packets > packetsBefore;
    return result;
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
    return m_writer.Begun() ? AddWhenBegun(track, std::move(fragment)) : AddBeforeBegun(track, std::move(fragment));
}

Recording::Result Recording::WriteWaiting() {
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
        const std::int64_t decodeUs =
            ToUs(packet->dts, fragment.timeBase) + m_shiftUs[static_cast<std::size_t>(IndexOf(track))];
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
        m_caughtUpSincePacket[static_cast<std::size_t>(IndexOf(track))] = false;
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
    if (TakeFailures(index, gap.toUs - gap.fromUs) > 0 && gap.cause == LossCause::kAbsent) {
        gap.cause = LossCause::kDownloadFailed;
    }
    List(gap);
}

// How many failed downloads a gap of the track stands for; no other gap is put down to them. All that were known when
// the end of the stream had been reached last lie in front of what has come since. Those told later may lie behind it:
// of them the gap takes as many as it is long, and only where nothing else explains it.
std::int64_t Recording::TakeFailures(std::size_t track, std::int64_t gapUs) {
    const StreamTally::Totals now = m_tally.Now();
    std::int64_t& explained = m_failuresExplained[track];
    explained = std::max(explained, now.failedAside);
    const std::int64_t before = std::max(explained, m_caughtUp.failed);
    const std::int64_t fits =
        now.segmentUs > 0 ? std::max<std::int64_t>(1, (gapUs + now.segmentUs / 2) / now.segmentUs) : now.failed;
    const std::int64_t upTo =
        m_loss[track] == LossCause::kAbsent ? std::max(before, std::min(now.failed, explained + fits)) : before;
    return upTo - std::exchange(explained, upTo);
}

void Recording::CaughtUp(const StreamTally::Totals& then) {
    const std::lock_guard lock(m_mutex);
    // What one track has lost the other one may find lost as well when it is read: it is not behind it yet.
    const bool nothingLost = m_loss[0] == LossCause::kAbsent && m_loss[1] == LossCause::kAbsent;
    for (std::size_t i = 0; i < kTracks; ++i) {
        if (nothingLost) {
            if (!m_caughtUpSincePacket[i]) {
                // Media has come behind them twice, and no gap: nothing is missing for them. Once may be chance, as a
                // segment is told before it can be read.
                m_failuresExplained[i] = std::max(m_failuresExplained[i], m_failuresPassed[i]);
                m_failuresPassed[i] = m_caughtUp.failed;
            }
            m_storedAtLossUs[i] = then.storedUs;
            m_caughtUpSincePacket[i] = true;
        }
    }
    m_caughtUp = then;
}

// Nothing comes behind what is lost at the end, so it is as long as the segments are together that are known to be
// lost: those that were not downloaded, and those that came as something else and were read.
void Recording::EndTrack(Track track) {
    const auto index = static_cast<std::size_t>(IndexOf(track));
    const StreamTally::Totals now = m_tally.Now();
    const std::int64_t explained = std::max(m_failuresExplained[index], now.failedAside);
    // Where more was stored meanwhile, what has failed meanwhile may lie behind that.
    const std::int64_t failed = (now.storedUs == m_caughtUp.storedUs ? now : m_caughtUp).failed;
    const std::int64_t failedBehind = std::max<std::int64_t>(0, failed - explained);
    m_failedAtEnd = std::max(m_failedAtEnd, failedBehind);
    std::int64_t lostUs = failedBehind * now.segmentUs;
    LossCause& cause = m_loss[index];
    if (cause == LossCause::kNotMedia) {
        lostUs += std::max(now.segmentUs, m_caughtUp.storedUs - m_storedAtLossUs[index]);
    } else if (cause == LossCause::kNewSource && lostUs > 0) {
        cause = LossCause::kDownloadFailed;  // it has brought nothing yet that begins later
    }
    if (cause != LossCause::kAbsent || lostUs > 0) {
        m_timeline.EndTrack(track, lostUs);
        NoteGap();
    }
}

void Recording::List(const Gap& gap) {
    if (m_gaps.size() < kMostGapsListed) {
        m_gaps.push_back(gap);
        m_newGaps.push_back(gap);
    }
}

void Recording::NoteSpoiltEnd(Track track) {
    const std::lock_guard lock(m_mutex);
    if (m_lastWritten[static_cast<std::size_t>(IndexOf(track))]) {
        Gap gap = m_timeline.SpoilEnd(track);
        gap.cause = LossCause::kCutShort;
        List(gap);
    }
}

// Asked before a packet is given to the muxer, which keeps some seconds of media to itself: so that all it has, and the
// index, can still be written when the disk is full.
bool Recording::HasRoomFor(const AVPacket& packet) {
    const std::int64_t packets = m_timeline.Of(Track::kVideo).packets + m_timeline.Of(Track::kAudio).packets + 1;
    return m_output.Reserve(kFileOverheadBytes + m_mediaBytes + packet.size + packets * kPacketOverheadBytes);
}

bool Recording::WritePacket(Track track, AVPacket& packet, AVRational timeBase) {
    const std::int64_t origin =
        (m_options.keepTimestamps ? 0 : m_timeline.OriginUs()) - m_shiftUs[static_cast<std::size_t>(IndexOf(track))];
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
        DropDoubtful(Track::kVideo);
        DropDoubtful(Track::kAudio);
        GoOnAtTheEnd();  // a failure shows in Finish as well
        for (const Track track : {Track::kVideo, Track::kAudio}) {
            EndTrack(track);
        }
        if (m_timeline.LimitReached()) {
            m_failedAtEnd = 0;  // nobody asked for what follows
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
    if (known != LossCause::kAbsent) {
        return;
    }
    known = cause;
    if (!m_caughtUpSincePacket[static_cast<std::size_t>(IndexOf(track))]) {
        m_storedAtLossUs[static_cast<std::size_t>(IndexOf(track))] = m_tally.Now().storedUs;
    }
}

std::vector<Gap> Recording::TakeNewGaps() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_newGaps, {});
}

std::vector<ClockRestart> Recording::TakeNewClockRestarts() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_newClockRestarts, {});
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
    return m_writer.Begun() && m_waiting[0].empty() ? std::optional(decodeUs + m_shiftUs[0] - m_timeline.OriginUs())
                                                    : std::nullopt;
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
    summary.failedAtEnd = m_failedAtEnd;
    summary.gaps = m_gaps;
    summary.clockRestarts = m_clockRestarts;
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
