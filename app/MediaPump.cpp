#include "app/MediaPump.h"

#include <utility>

#include "app/Text.h"

namespace kvmpd::app {
namespace {

// By how much the audio of a segment may be shorter than its video. Audio this far behind surely goes on in the same
// segment.
constexpr std::int64_t kSameSegmentUs = 150'000;
constexpr AVRational kMicroseconds{1, 1'000'000};

std::int64_t ToUs(std::int64_t time, AVRational timeBase) {
    return av_rescale_q(time, timeBase, kMicroseconds);
}

}  // namespace

void MediaPump::TrackReader::Restart() {
    boxes.Restart();
    assembler.Restart();
    skipping = false;
    held = false;
    segmentStart = -1;
    fileTypePosition = -1;
}

MediaPump::MediaPump(ByteSource& source, std::function<std::string()> sourceError, Recording& recording, PumpGate& gate,
                     PumpListener& listener, Timing timing)
    : m_sourceError(std::move(sourceError)),
      m_recording(recording),
      m_gate(gate),
      m_listener(listener),
      m_timing(timing),
      m_video(Track::kVideo, source, 0),
      m_audio(Track::kAudio, source, kAudioPositionBase) {}

RecordEnd MediaPump::Run() {
    m_lastMedia = std::chrono::steady_clock::now();
    while (!m_gate.Stopping()) {
        const std::uint64_t news = m_gate.NewsSeen();
        if (m_gate.TakeRestart()) {
            m_video.Restart();
            m_audio.Restart();
        }
        const ReadStatus status = Step();
        if (m_ended) {
            return m_end;
        }
        if (status == ReadStatus::kNotYet) {
            if (std::chrono::steady_clock::now() - m_lastMedia > m_timing.patience) {
                return EndWithoutMedia();
            }
            m_gate.WaitForNewsAfter(news, m_timing.recheck);
        } else if (status != ReadStatus::kOk && status != ReadStatus::kInterrupted) {
            return EndOf(status);
        }
    }
    return RecordEnd::kAsked;
}

bool MediaPump::AudioReadable() const {
    if (m_audio.held) {
        return false;
    }
    if (!m_audio.skipping && !m_audio.MayEndHere()) {
        return true;
    }
    return m_video.assembler.Segments() > m_audio.assembler.Segments() ||
           (m_audio.timed && m_audio.elapsedUs + kSameSegmentUs < m_video.elapsedUs);
}

ReadStatus MediaPump::VideoReadable() {
    return m_video.skipping || m_video.MayEndHere() ? m_video.boxes.ProbeNext() : ReadStatus::kOk;
}

ReadStatus MediaPump::Step() {
    const bool audioReadable = AudioReadable();
    if (audioReadable && m_audio.elapsedUs <= m_video.elapsedUs) {
        return ReadFrom(m_audio);
    }
    const ReadStatus video = VideoReadable();
    if (video == ReadStatus::kOk) {
        return ReadFrom(m_video);
    }
    if (video == ReadStatus::kNotYet) {
        NoteSegmentEnd(m_video, m_video.boxes.Position());
        return audioReadable ? ReadFrom(m_audio) : ReadStatus::kNotYet;
    }
    return video;
}

ReadStatus MediaPump::ReadFrom(TrackReader& reader) {
    if (reader.skipping) {
        const ReadStatus status = reader.boxes.SkipToNextBox();
        reader.skipping = status != ReadStatus::kOk;
        reader.held = status == ReadStatus::kNotYet;
        return status;
    }
    Box box;
    const ReadStatus status = reader.boxes.Next(box);
    switch (status) {
        case ReadStatus::kOk:
            (reader.track == Track::kVideo ? m_audio : m_video).held = false;
            TakeBox(reader, std::move(box));
            break;
        case ReadStatus::kUnreadable:
            reader.skipping = true;
            reader.assembler.DropPartial();
            m_listener.OnWarning(Format("the %s at byte %lld is no media; it is left out up to the next segment",
                                        NameOf(reader.track), static_cast<long long>(reader.boxes.Position())));
            return ReadStatus::kOk;
        case ReadStatus::kNotYet:
            // A wait of ten seconds has just passed. Audio gives way, so that the video is looked after.
            reader.held = reader.track == Track::kAudio;
            break;
        default:
            break;
    }
    return status;
}

void MediaPump::TakeBox(TrackReader& reader, Box&& box) {
    if (reader.track == Track::kVideo) {
        NoteSegment(reader, box);
    }
    if (const auto file = reader.assembler.Accept(std::move(box))) {
        TakeFragment(reader, *file);
    }
}

void MediaPump::TakeFragment(TrackReader& reader, const std::vector<std::uint8_t>& file) {
    DemuxedFragment fragment;
    std::string error;
    if (!DemuxFragment(file, reader.track, fragment, error) || fragment.packets.empty()) {
        if (++reader.damaged == 1) {
            m_listener.OnWarning(std::string("a damaged piece of ") + NameOf(reader.track) + " is left out" +
                                 (error.empty() ? "" : ": " + error));
        }
        return;
    }
    const AVPacket& first = *fragment.packets.front();
    const AVPacket& last = *fragment.packets.back();
    if (!reader.timed) {
        reader.timed = true;
        reader.firstUs = ToUs(first.dts, fragment.timeBase);
    }
    reader.elapsedUs = ToUs(last.dts + last.duration, fragment.timeBase) - reader.firstUs;
    m_anyFragment = true;
    m_lastMedia = std::chrono::steady_clock::now();
    switch (m_recording.Add(reader.track, std::move(fragment))) {
        case Recording::Result::kGoOn:
            return;
        case Recording::Result::kLimitReached:
            m_end = RecordEnd::kTimeReached;
            break;
        case Recording::Result::kFinished:
            m_end = RecordEnd::kAsked;
            break;
        case Recording::Result::kCodecChanged:
            m_end = RecordEnd::kCodecChanged;
            m_detail = m_recording.Error();
            break;
        case Recording::Result::kOutputFailed:
            m_end = RecordEnd::kOutputFailed;
            m_detail = m_recording.Error();
            break;
    }
    m_ended = true;
}

void MediaPump::NoteSegment(TrackReader& reader, const Box& box) {
    if (box.type == FourCc("ftyp")) {
        NoteSegmentEnd(reader, box.position);
        reader.fileTypePosition = box.position;
    } else if (box.type == FourCc("moov")) {
        NoteSegmentEnd(reader, box.position);
        reader.segmentStart = reader.fileTypePosition >= 0 ? reader.fileTypePosition : box.position;
        reader.fileTypePosition = -1;
    }
}

void MediaPump::NoteSegmentEnd(TrackReader& reader, std::int64_t end) {
    if (reader.segmentStart < 0) {
        return;
    }
    m_listener.OnSegmentRead(end - reader.segmentStart);
    reader.segmentStart = -1;
}

RecordEnd MediaPump::EndOf(ReadStatus status) {
    m_detail = m_sourceError();
    return status == ReadStatus::kReleased ? RecordEnd::kFellBehind : RecordEnd::kReadFailed;
}

RecordEnd MediaPump::EndWithoutMedia() {
    const bool readSomething = m_video.boxes.Position() > 0 || m_audio.boxes.Position() > 0;
    if (!m_anyFragment && readSomething) {
        return RecordEnd::kNotMedia;
    }
    const auto summary = m_recording.Snapshot();
    if (!summary.begun && summary.seen[0] != summary.seen[1]) {
        m_detail = std::string("there is no ") + NameOf(summary.seen[0] ? Track::kAudio : Track::kVideo) + " in it";
        return RecordEnd::kNotMedia;
    }
    return RecordEnd::kNoMedia;
}

}  // namespace kvmpd::app
