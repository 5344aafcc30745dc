#include "app/MediaPump.h"

#include <algorithm>
#include <utility>

#include "app/Text.h"

namespace kvmpd::app {
namespace {

// By how much the audio of a segment may be shorter than its video. Audio this far behind surely goes on in the same
// segment.
constexpr std::int64_t kSameSegmentUs = 150'000;
// Times that fall by more are on another clock than those before; until those of the other track have fallen as well,
// the two cannot be compared.
constexpr std::int64_t kFallenUs = 1'000'000;
constexpr AVRational kMicroseconds{1, 1'000'000};

std::int64_t ToUs(std::int64_t time, AVRational timeBase) {
    return av_rescale_q(time, timeBase, kMicroseconds);
}

}  // namespace

void MediaPump::TrackReader::Restart() {
    boxes.Restart();
    assembler.Restart();
    skipping = false;
    spoilt = 0;
    spoiltToTell = kSpoiltBackoff;
    held = false;
    timed = false;
    clock = 0;
    arrivals = 0;
    segmentStart = -1;
    fileTypePosition = -1;
}

MediaPump::MediaPump(ByteSource& source, std::function<std::string()> sourceError, Recording& recording, PumpGate& gate,
                     PumpListener& listener, Timing timing)
    : m_source(source),
      m_sourceError(std::move(sourceError)),
      m_recording(recording),
      m_gate(gate),
      m_listener(listener),
      m_timing(timing),
      m_video(Track::kVideo, source, 0),
      m_audio(Track::kAudio, source, kAudioPositionBase) {}

RecordEnd MediaPump::Run() {
    while (!m_gate.Stopping()) {
        if (m_gate.GivenUp()) {
            return EndWithoutMedia();
        }
        const std::uint64_t news = m_gate.NewsSeen();
        if (m_gate.TakeRestart()) {
            TakeRestart();
        }
        const ReadStatus status = m_sourceFailed ? ReadStatus::kNotYet : Step();
        if (m_ended) {
            return m_end;
        }
        if (status == ReadStatus::kNotYet) {
            m_gate.WaitForNewsAfter(news, m_timing.recheck);
        } else if (status == ReadStatus::kFailed) {
            m_sourceFailed = true;
            m_listener.OnSourceFailed(m_sourceError());
        }
    }
    return RecordEnd::kAsked;
}

void MediaPump::TakeRestart() {
    m_source.Restarted();
    m_sourceFailed = false;
    m_arrivals = 0;
    m_arrivalCounted = false;
    m_arrivalUnread = false;
    m_videoAtEnd = true;
    m_streamStartTold = false;
    m_recording.SourceBegins();
    for (TrackReader* reader : {&m_video, &m_audio}) {
        reader->Restart();
        if (m_anyFragment) {
            m_recording.NoteLoss(reader->track, LossCause::kNewSource);
        }
    }
}

// How far the video that was read reaches beyond the audio, on the clock that they share. Tracks that begin far apart
// have none in common; then each counts from its own beginning.
std::int64_t MediaPump::VideoLeadUs() const {
    constexpr std::int64_t kOneClockUs = 60'000'000;
    const std::int64_t apart = m_video.firstUs - m_audio.firstUs;
    const std::int64_t skew = apart > kOneClockUs || apart < -kOneClockUs ? apart : 0;
    return m_video.endUs - skew - m_audio.endUs;
}

bool MediaPump::AudioReadable() const {
    if (m_audio.held) {
        return false;
    }
    if (m_audio.boxes.AtKnownStart()) {
        return true;
    }
    if (m_audio.skipping) {
        return m_arrivals > m_audio.arrivals;
    }
    if (!m_audio.MayEndHere()) {
        return true;
    }
    if (!OnOneClock() || m_video.skipping) {
        return m_arrivals > m_audio.arrivals;
    }
    return VideoLeadUs() > kSameSegmentUs;
}

// Never more than the video has shown to be there, so that nothing is waited for in vain.
void MediaPump::CountAudioSegment() {
    m_audio.arrivals = std::min(m_audio.arrivals + 1, m_arrivals);
}

ReadStatus MediaPump::VideoReadable() {
    if (!m_video.skipping && !m_video.MayEndHere()) {
        return ReadStatus::kOk;
    }
    const ReadStatus status = m_video.boxes.ProbeNext();
    if (status == ReadStatus::kNotYet) {
        m_videoAtEnd = true;
    } else if (status == ReadStatus::kOk && std::exchange(m_videoAtEnd, false) && m_video.skipping) {
        // Where no box tells the segments apart, what was not there a moment ago is another one.
        ++m_arrivals;
        m_arrivalCounted = true;
        m_audio.held = false;
        m_arrivalUnread = true;
    }
    return status;
}

ReadStatus MediaPump::Step() {
    const StreamTally::Totals told = m_recording.Tally().Now();
    const bool audioReadable = AudioReadable();
    // Behind audio that is passed over lies what may have to be waited for.
    const bool audioFirst = !m_audio.skipping && (!OnOneClock() || VideoLeadUs() >= 0);
    if (audioReadable && audioFirst) {
        return ReadFrom(m_audio);
    }
    const ReadStatus video = VideoReadable();
    if (video == ReadStatus::kOk) {
        return ReadFrom(m_video);
    }
    if (video == ReadStatus::kNotYet) {
        NoteSegmentEnd(m_video, m_video.boxes.Position());
        m_recording.CaughtUp(told);
        return audioReadable ? ReadFrom(m_audio) : ReadStatus::kNotYet;
    }
    if (video == ReadStatus::kReleased) {
        return PassReleased(m_video);
    }
    return video;
}

ReadStatus MediaPump::ReadFrom(TrackReader& reader) {
    m_anyBytes = true;
    Box box;
    const ReadStatus status = reader.skipping ? Skip(reader) : reader.boxes.Next(box);
    switch (status) {
        case ReadStatus::kOk:
            if (!box.bytes.empty()) {
                (reader.track == Track::kVideo ? m_audio : m_video).held = false;
                TakeBox(reader, std::move(box));
            }
            return status;
        case ReadStatus::kUnreadable:
            LeaveOut(reader);
            return ReadStatus::kOk;
        case ReadStatus::kReleased:
            return PassReleased(reader);
        case ReadStatus::kNotYet:
            // Of audio, a wait of ten seconds has just passed: it gives way, so that the video is looked after.
            reader.held = reader.track == Track::kAudio;
            return status;
        default:
            return status;
    }
}

ReadStatus MediaPump::Skip(TrackReader& reader) {
    const ReadStatus status = reader.boxes.SkipToNextBox(/*inSteps=*/reader.track == Track::kAudio && m_video.skipping);
    reader.skipping = status != ReadStatus::kOk;
    if (reader.track == Track::kVideo && status == ReadStatus::kNotYet && std::exchange(m_arrivalUnread, false)) {
        NoteSpoiltSegment(reader);  // there was no box in it
    }
    return status;
}

// From here to the next segment.
void MediaPump::LeaveOut(TrackReader& reader) {
    const bool spoilt = reader.boxes.WhatIsWrong() == BoxReader::Flaw::kSpoilt;
    const bool cutShort = spoilt || reader.boxes.WhatIsWrong() == BoxReader::Flaw::kCutShort;
    if (spoilt) {
        m_recording.NoteSpoiltEnd(reader.track);
    }
    m_recording.NoteLoss(reader.track, cutShort ? LossCause::kCutShort : LossCause::kNotMedia);
    if (!cutShort) {
        m_anyOtherBytes = true;
        if (reader.spoilt > 0) {
            NoteSpoiltSegment(reader);
            return PassOver(reader, cutShort);
        }
        reader.spoilt = 1;
        reader.spoiltFrom = reader.boxes.Position();
    }
    m_listener.OnWarning(cutShort ? Format("a segment of %s ends before its time, at byte %lld; its last piece is %s",
                                           NameOf(reader.track), static_cast<long long>(reader.boxes.Position()),
                                           spoilt ? "spoilt" : "left out")
                                  : Format("the %s at byte %lld is no media; it is left out up to the next segment",
                                           NameOf(reader.track), static_cast<long long>(reader.boxes.Position())));
    PassOver(reader, cutShort);
}

void MediaPump::PassOver(TrackReader& reader, bool cutShort) {
    reader.skipping = !reader.boxes.AtKnownStart();
    reader.assembler.DropPartial();
    if (reader.track == Track::kVideo) {
        reader.segmentStart = -1;  // its size tells nothing
        m_arrivals += cutShort ? 0 : 1;
        m_audio.held = m_audio.held && cutShort;
    } else if (!cutShort) {
        CountAudioSegment();  // stands for one, as far as can be told
    }
}

// Another one in a row. A stream of error pages may last for hours, so the line is repeated ever more rarely.
void MediaPump::NoteSpoiltSegment(TrackReader& reader) {
    ++reader.spoilt;
    if (reader.spoilt == reader.spoiltToTell) {
        reader.spoiltToTell *= kSpoiltBackoff;
        m_listener.OnWarning(Format("the %s is still no media: %lld segments in a row, since byte %lld",
                                    NameOf(reader.track), static_cast<long long>(reader.spoilt),
                                    static_cast<long long>(reader.spoiltFrom)));
    }
}

void MediaPump::TellEndOfSpoilt(TrackReader& reader) {
    const std::int64_t segments = std::exchange(reader.spoilt, 0);
    reader.spoiltToTell = kSpoiltBackoff;
    if (segments > 1) {
        m_listener.OnWarning(Format("the %s is media again; %lld segments in a row, since byte %lld, were none",
                                    NameOf(reader.track), static_cast<long long>(segments),
                                    static_cast<long long>(reader.spoiltFrom)));
    }
}

ReadStatus MediaPump::PassReleased(TrackReader& reader) {
    const std::int64_t before = reader.boxes.Position();
    if (const ReadStatus status = reader.boxes.MoveToEarliest(); status != ReadStatus::kOk) {
        reader.held = reader.track == Track::kAudio;
        return status;  // the next read finds the same again
    }
    m_recording.NoteLoss(reader.track, LossCause::kLeftCache);
    m_listener.OnWarning(
        Format("%lld bytes of %s had left the cache before they were read; the recording goes on with "
               "the earliest that is there",
               static_cast<long long>(reader.boxes.Position() - before), NameOf(reader.track)));
    reader.assembler.DropPartial();
    reader.skipping = true;
    reader.segmentStart = -1;
    if (reader.track == Track::kVideo) {
        ++m_arrivals;
    } else {
        reader.arrivals = m_arrivals - 1;  // there is something
    }
    return ReadStatus::kOk;
}

void MediaPump::TakeBox(TrackReader& reader, Box&& box) {
    TellEndOfSpoilt(reader);
    if (reader.track == Track::kVideo) {
        NoteSegment(reader, box);
    } else if (box.type == FourCc("moov")) {
        CountAudioSegment();
    }
    if (const auto file = reader.assembler.Accept(std::move(box))) {
        TakeFragment(reader, *file);
    }
}

void MediaPump::TakeFragment(TrackReader& reader, const std::vector<std::uint8_t>& file) {
    DemuxedFragment fragment;
    std::string error;
    if (!DemuxFragment(file, reader.track, fragment, error) || fragment.packets.empty()) {
        m_recording.NoteLoss(reader.track, LossCause::kDamaged);
        if (++reader.damaged == 1) {
            m_listener.OnWarning(std::string("a damaged piece of ") + NameOf(reader.track) + " is left out" +
                                 (error.empty() ? "" : ": " + error));
        }
        return;
    }
    NoteTimes(reader, fragment);
    m_anyFragment = true;
    const std::int64_t packetsBefore = m_recording.Packets();
    m_writing = true;
    const Recording::Result result = m_recording.Add(reader.track, std::move(fragment));
    m_writing = false;
    TellNews(reader, packetsBefore);
    switch (result) {
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

void MediaPump::NoteTimes(TrackReader& reader, const DemuxedFragment& fragment) {
    const std::int64_t startUs = ToUs(fragment.packets.front()->dts, fragment.timeBase);
    if (!reader.timed || startUs < reader.endUs - kFallenUs) {
        reader.clock += reader.timed ? 1 : 0;
        reader.firstUs = startUs;
    }
    if (reader.track == Track::kVideo && !reader.timed) {
        m_streamStartUs = startUs;
    }
    reader.timed = true;
    const AVPacket& last = *fragment.packets.back();
    reader.endUs = ToUs(last.dts + last.duration, fragment.timeBase);
}

void MediaPump::TellNews(const TrackReader& reader, std::int64_t packetsBefore) {
    for (const ClockRestart& restart : m_recording.TakeNewClockRestarts()) {
        m_listener.OnClockRestart(restart);
    }
    for (const Gap& gap : m_recording.TakeNewGaps()) {
        m_listener.OnGap(gap);
    }
    if (m_recording.Packets() > packetsBefore) {
        m_listener.OnMedia();
    }
    if (!m_streamStartTold && reader.track == Track::kVideo) {
        if (const auto at = m_recording.RecordingTime(m_streamStartUs)) {
            m_streamStartTold = true;
            m_listener.OnStreamStart(*at);
        }
    }
}

void MediaPump::NoteSegment(TrackReader& reader, const Box& box) {
    if (box.type == FourCc("ftyp")) {
        NoteSegmentEnd(reader, box.position);
        reader.fileTypePosition = box.position;
    } else if (box.type == FourCc("moov")) {
        NoteSegmentEnd(reader, box.position);
        m_arrivals += std::exchange(m_arrivalCounted, false) ? 0 : 1;
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

RecordEnd MediaPump::EndWithoutMedia() {
    m_detail = m_sourceFailed ? m_sourceError() : "";
    if (!m_anyFragment && m_anyBytes) {
        if (m_detail.empty() && m_anyOtherBytes) {
            m_detail = "the server sent something else in their place, an error page for instance";
        }
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
