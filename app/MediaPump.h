// The reader: pulls both tracks' boxes from one byte source on one thread, alternating so that neither starves, and
// hands whole fragments to the recording.
//
// A read of bytes that do not exist yet holds the thread, and the other track, for up to ten seconds. So the pump reads
// on only where it knows that bytes are there: inside a segment, because segments become readable whole; at the end of
// what may be a video segment, by asking first; and for audio, which cannot be asked for, while the video is ahead -
// segments of both tracks become readable together.
//
// After positions restart (a seek, a return to the live edge, a new source) it drops what it has in part and reads both
// tracks from 0. Media that then comes a second time is recognised by its decode times and left out.
//
// Bytes that are no media, a segment that was cut short and bytes that have left the cache are passed over up to the
// next segment; each track does so by itself.

#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "app/BoxReader.h"
#include "app/ExitCode.h"
#include "app/FragmentAssembler.h"
#include "app/PumpGate.h"
#include "app/Recording.h"

namespace kvmpd::app {

// Told by the reader thread.
class PumpListener {
  public:
    // A video segment of this many bytes was read whole.
    virtual void OnSegmentRead(std::int64_t bytes) = 0;
    // Something is wrong with the media, and the recording goes on.
    virtual void OnWarning(const std::string& sentence) = 0;
    // Media is missing in front of what has just been recorded.
    virtual void OnGap(const Gap&) {}
    // The stream's clock began anew; what follows is recorded where the recording ended.
    virtual void OnClockRestart(const ClockRestart&) {}
    // Media was recorded that was not there before.
    virtual void OnMedia() {}
    // The source's byte position 0 lies at this time of the recording.
    virtual void OnStreamStart(std::int64_t /*recordingUs*/) {}
    // The source cannot be read; the pump waits for a restart, which brings another one.
    virtual void OnSourceFailed(const std::string& /*inWords*/) {}

  protected:
    ~PumpListener() = default;
};

class MediaPump {
  public:
    struct Timing {
        std::chrono::milliseconds recheck{250};  // in case no news announce what came
    };

    // sourceError: why the source failed, in words.
    MediaPump(ByteSource& source, std::function<std::string()> sourceError, Recording& recording, PumpGate& gate,
              PumpListener& listener, Timing timing);
    MediaPump(ByteSource& source, std::function<std::string()> sourceError, Recording& recording, PumpGate& gate,
              PumpListener& listener)
        : MediaPump(source, std::move(sourceError), recording, gate, listener, Timing{}) {}

    // Until something ends the recording; kAsked when the gate was stopped, and what is the matter when it gave up.
    RecordEnd Run();

    // Whether it is busy with what it has read, maybe held up by a slow output. Any thread.
    bool IsWriting() const { return m_writing; }

    // What ended it, in words; empty where the end says it all. After Run.
    const std::string& Detail() const { return m_detail; }

  private:
    static constexpr std::int64_t kSpoiltBackoff = 4;

    struct TrackReader {
        TrackReader(Track which, ByteSource& source, std::int64_t base) : track(which), boxes(source, base) {}
        void Restart();
        // A segment may end here.
        bool MayEndHere() const { return boxes.AtBoundary() && !assembler.NextIsCertain(); }

        const Track track;
        BoxReader boxes;
        FragmentAssembler assembler;
        bool skipping = false;        // looking for the next box after bytes that are none
        std::int64_t spoilt = 0;      // segments in a row that were no media; at least, where they cannot be told apart
        std::int64_t spoiltFrom = 0;  // position of the first of them
        std::int64_t spoiltToTell = kSpoiltBackoff;  // how many of them are the next that is told
        bool held = false;                           // a read found nothing: wait until the other track moved
        bool timed = false;                          // a fragment was read since the start
        int clock = 0;                               // how often its times fell since then
        std::int64_t firstUs = 0;                    // decode time of the first packet on the present clock
        std::int64_t endUs = 0;                      // end of the last packet read
        std::int64_t arrivals = 0;                   // audio: how many segments were begun
        std::int64_t damaged = 0;
        std::int64_t segmentStart = -1;  // position of the segment being read
        std::int64_t fileTypePosition = -1;
    };

    // kOk: something was done. kNotYet: nothing to do now. kInterrupted: look at the gate. kFailed: the source
    // failed.
    ReadStatus Step();
    bool AudioReadable() const;
    bool OnOneClock() const { return m_video.timed && m_audio.timed && m_video.clock == m_audio.clock; }
    std::int64_t VideoLeadUs() const;
    ReadStatus VideoReadable();
    ReadStatus ReadFrom(TrackReader& reader);
    ReadStatus Skip(TrackReader& reader);
    void LeaveOut(TrackReader& reader);
    void PassOver(TrackReader& reader, bool cutShort);
    void NoteSpoiltSegment(TrackReader& reader);
    void TellEndOfSpoilt(TrackReader& reader);
    void CountAudioSegment();
    ReadStatus PassReleased(TrackReader& reader);
    void TakeRestart();
    void TakeBox(TrackReader& reader, Box&& box);
    void TakeFragment(TrackReader& reader, const std::vector<std::uint8_t>& file);
    void NoteTimes(TrackReader& reader, const DemuxedFragment& fragment);
    void TellNews(const TrackReader& reader, std::int64_t packetsBefore);
    void NoteSegment(TrackReader& reader, const Box& box);
    void NoteSegmentEnd(TrackReader& reader, std::int64_t end);
    RecordEnd EndWithoutMedia();

    ByteSource& m_source;
    const std::function<std::string()> m_sourceError;
    Recording& m_recording;
    PumpGate& m_gate;
    PumpListener& m_listener;
    const Timing m_timing;
    TrackReader m_video;
    TrackReader m_audio;
    std::int64_t m_arrivals = 0;       // at least so many segments have become readable, by what the video showed
    bool m_videoAtEnd = true;          // the last look at the video found nothing
    bool m_arrivalCounted = false;     // the segment that comes next has been counted already
    bool m_sourceFailed = false;       // nothing is read until positions restart
    bool m_streamStartTold = true;     // for the present source
    std::int64_t m_streamStartUs = 0;  // decode time of its first video
    std::atomic<bool> m_writing = false;
    bool m_anyBytes = false;
    bool m_arrivalUnread = false;  // the video that has come while it was passed over has not been looked through
    bool m_anyOtherBytes = false;  // that are no media
    bool m_anyFragment = false;
    bool m_ended = false;
    RecordEnd m_end = RecordEnd::kAsked;
    std::string m_detail;
};

}  // namespace kvmpd::app
