// The reader: pulls both tracks' boxes from one byte source on one thread, alternating so that neither starves, and
// hands whole fragments to the recording.
//
// A read of bytes that do not exist yet holds the thread, and the other track, for up to ten seconds. So the pump reads
// on only where it knows that bytes are there: inside a segment, because segments become readable whole; at the end of
// what may be a video segment, by asking first; and for audio, which cannot be asked for, while the video is ahead -
// segments of both tracks become readable together.
//
// After positions restart (a seek, or a return to the live edge) it drops what it has in part and reads both tracks
// from 0. Media that then comes a second time is recognised by its decode times and left out.

#pragma once

#include <array>
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

  protected:
    ~PumpListener() = default;
};

class MediaPump {
  public:
    struct Timing {
        std::chrono::milliseconds patience{30'000};  // without new media the recording ends
        std::chrono::milliseconds recheck{250};      // in case no news announce what came
    };

    // sourceError: why the source failed, in words.
    MediaPump(ByteSource& source, std::function<std::string()> sourceError, Recording& recording, PumpGate& gate,
              PumpListener& listener, Timing timing);
    MediaPump(ByteSource& source, std::function<std::string()> sourceError, Recording& recording, PumpGate& gate,
              PumpListener& listener)
        : MediaPump(source, std::move(sourceError), recording, gate, listener, Timing{}) {}

    // Until something ends the recording; kAsked when the gate was stopped.
    RecordEnd Run();

    // What ended it, in words; empty where the end says it all. After Run.
    const std::string& Detail() const { return m_detail; }

  private:
    struct TrackReader {
        TrackReader(Track which, ByteSource& source, std::int64_t base) : track(which), boxes(source, base) {}
        void Restart();
        // A segment may end here.
        bool MayEndHere() const { return boxes.AtBoundary() && !assembler.NextIsCertain(); }

        const Track track;
        BoxReader boxes;
        FragmentAssembler assembler;
        bool skipping = false;       // looking for the next box after bytes that are none
        bool held = false;           // a read found nothing: wait until the other track moved
        bool timed = false;          // firstUs is set
        std::int64_t firstUs = 0;    // decode time of the track's first packet
        std::int64_t elapsedUs = 0;  // from there to the end of the last one read
        std::int64_t damaged = 0;
        std::int64_t segmentStart = -1;  // position of the segment being read
        std::int64_t fileTypePosition = -1;
    };

    // kOk: something was done. kNotYet: nothing to do now. kInterrupted: look at the gate. Others end the recording.
    ReadStatus Step();
    bool AudioReadable() const;
    ReadStatus VideoReadable();
    ReadStatus ReadFrom(TrackReader& reader);
    void TakeBox(TrackReader& reader, Box&& box);
    void TakeFragment(TrackReader& reader, const std::vector<std::uint8_t>& file);
    void NoteSegment(TrackReader& reader, const Box& box);
    void NoteSegmentEnd(TrackReader& reader, std::int64_t end);
    RecordEnd EndOf(ReadStatus status);
    RecordEnd EndWithoutMedia();

    const std::function<std::string()> m_sourceError;
    Recording& m_recording;
    PumpGate& m_gate;
    PumpListener& m_listener;
    const Timing m_timing;
    TrackReader m_video;
    TrackReader m_audio;
    std::chrono::steady_clock::time_point m_lastMedia;
    bool m_anyFragment = false;
    bool m_ended = false;
    RecordEnd m_end = RecordEnd::kAsked;
    std::string m_detail;
};

}  // namespace kvmpd::app
