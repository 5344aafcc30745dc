// One recording: takes demuxed fragments of both tracks, decides what of them is written, and writes it. It begins when
// the first fragment of both tracks is there, because the file's header names both.
//
// Where the stream's clock begins anew, both tracks go on at the recording's end, moved by the same amount: the track
// that shows it first waits until the other one is there too, because only then the earlier of both is known. Of the
// two the video is believed: silence at the same time is the same bytes, so sound that seems to be repeated is kept
// until the video has told whether it is.
//
// Add is called by the reader thread; Finish and Snapshot by any thread. Everything is guarded by one mutex, so that
// the file can be finished while the reader thread is held up in a read.

#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/ClockWatch.h"
#include "app/FragmentDemuxer.h"
#include "app/MatroskaWriter.h"
#include "app/OutputFile.h"
#include "app/StreamTally.h"
#include "app/Timeline.h"

namespace kvmpd::app {

class Recording {
  public:
    struct Options {
        std::optional<std::int64_t> limitUs = {};
        bool keepTimestamps = false;  // false: the recording starts near 0
    };

    enum class Result { kGoOn, kLimitReached, kCodecChanged, kOutputFailed, kFinished };

    struct Summary {
        bool begun = false;
        std::array<bool, kTracks> seen{};  // whether a fragment of the track has come
        std::array<Timeline::TrackState, kTracks> tracks{};
        std::int64_t durationMs = 0;  // end of the last packet on the file's own time line
        std::int64_t recordedMs = 0;  // media recorded, counted from its first packet
        std::int64_t bytes = 0;       // of the file so far; the muxer holds some seconds back
        std::int64_t mediaBytes = 0;  // of the packets recorded
        int width = 0;
        int height = 0;
        std::string videoCodec;
        std::string audioCodec;
        int sampleRate = 0;
        int channels = 0;
        std::int64_t failedAtEnd = 0;               // downloads of what follows the last media; known when finished
        std::vector<Gap> gaps{};                    // in the order of their discovery; the first thousand
        std::vector<ClockRestart> clockRestarts{};  // the first thousand
    };

    Recording(OutputFile& output, const Options& options)
        : m_output(output), m_options(options), m_writer(output), m_timeline(options.limitUs) {}

    Result Add(Track track, DemuxedFragment&& fragment);

    // Something of the track was lost at the place that has been reached: the cause of the gap that may follow.
    void NoteLoss(Track track, LossCause cause);
    // The fragment of the track that was added last lacks its last few bytes: if it was recorded, its last packet
    // counts as missing.
    void NoteSpoiltEnd(Track track);
    // What the stream's events tell, to be told as it comes; a segment that could not be downloaded is why a piece is
    // missing of which nothing else is known. Never waits.
    StreamTally& Tally() { return m_tally; }
    // Everything has been read that was there when the tally stood so.
    void CaughtUp(const StreamTally::Totals& then);
    // How far back behind the recording's end the source that comes next may begin; ClockWatch::kAnywhere unless told.
    // Never waits.
    void NextSourceReaches(std::int64_t us) { m_nextReachUs = us; }
    // What is added from here on is of a new source, or of another place of the same one.
    void SourceBegins();
    // The gaps, and the breaks in the stream's clock, found since the last call.
    std::vector<Gap> TakeNewGaps();
    std::vector<ClockRestart> TakeNewClockRestarts();
    // How many packets were written, and how many were left out because they came a second time.
    std::int64_t Packets() const;
    std::int64_t Repeated() const;
    // Microseconds of the recording at this decode time of the video's; nothing before it began, and while it is open
    // where a clock that began anew goes on.
    std::optional<std::int64_t> RecordingTime(std::int64_t decodeUs) const;

    // Ends the file; media that was lost since the last packet of a track is a gap by then, as far as its length is
    // known. False when that failed; further calls change nothing and answer true.
    bool Finish();

    Summary Snapshot() const;
    // Nothing while a write is in progress, which may be held up by a slow reader.
    std::optional<Summary> TrySnapshot() const;

    // Why writing failed, or what changed, in words.
    std::string Error() const;

  private:
    // All with m_mutex held.
    Summary SnapshotLocked() const;
    Result AddLocked(Track track, DemuxedFragment&& fragment);
    Result AddWhenBegun(Track track, DemuxedFragment&& fragment);
    Result AddBeforeBegun(Track track, DemuxedFragment&& fragment);
    Result Join(Track track, const ClockWatch::Piece& piece, DemuxedFragment&& fragment);
    Result TakeIn(Track track, const ClockWatch::Piece& piece, DemuxedFragment&& fragment);
    Result JoinDoubtful(std::int64_t fromUs);
    void DropDoubtful(Track track);
    void LeaveClock();
    bool IsOfTheClockLeft(Track track, const ClockWatch::Piece& piece) const;
    Result GoOnAtTheEnd();
    void LeaveOut(Track track, const DemuxedFragment& fragment);
    bool Begin();
    Result WriteWaiting();
    Result WriteFragment(Track track, DemuxedFragment& fragment);
    bool WritePacket(Track track, AVPacket& packet, AVRational timeBase);
    bool HasRoomFor(const AVPacket& packet);
    void NoteGap();
    std::int64_t TakeFailures(std::size_t track, std::int64_t gapUs);
    void EndTrack(Track track);
    void List(const Gap& gap);
    void BoundWaiting(std::vector<DemuxedFragment>& waiting);

    mutable std::mutex m_mutex;
    OutputFile& m_output;
    const Options m_options;
    MatroskaWriter m_writer;
    Timeline m_timeline;
    std::array<AvParametersPtr, kTracks> m_parameters;
    std::array<std::vector<DemuxedFragment>, kTracks> m_waiting;  // until the recording begins, or goes on
    // Of the clock before the present one, when it began anew before the recording has begun: what was waiting of it.
    struct Span {
        std::int64_t fromUs;
        std::int64_t toUs;
    };
    std::optional<Span> m_leftClock;
    std::array<bool, kTracks> m_lastWritten{};  // of the fragment added last, packets were written
    ClockWatch m_watch;
    std::atomic<std::int64_t> m_nextReachUs = ClockWatch::kAnywhere;  // not guarded
    // Media that seems to be repeated, until what follows has told whether it is: sound, until the video has told;
    // video of which no more is known than that its time has passed.
    std::array<std::vector<DemuxedFragment>, kTracks> m_doubtful;
    std::array<int, kTracks> m_clock{};             // which one the track is on, counted up
    std::array<std::int64_t, kTracks> m_shiftUs{};  // from the track's clock to the first one
    int m_newestClock = 0;
    std::optional<std::int64_t> m_newestShiftUs = 0;  // none: not known yet
    std::vector<ClockRestart> m_clockRestarts;
    std::vector<ClockRestart> m_newClockRestarts;
    std::array<LossCause, kTracks> m_loss{};  // since the track's last packet
    StreamTally m_tally;                      // guards itself
    StreamTally::Totals m_caughtUp;           // how it stood when all that was there had been read last
    // Failed downloads that gaps of the track are put down to.
    std::array<std::int64_t, kTracks> m_failuresExplained{};
    // What had been stored when the first thing was lost of the track since its last packet. Rather too much than too
    // little: what was stored since then is missing.
    std::array<std::int64_t, kTracks> m_storedAtLossUs{};
    std::array<bool, kTracks> m_caughtUpSincePacket{};
    std::int64_t m_failedAtEnd = 0;
    std::array<std::int64_t, kTracks> m_failuresPassed{};  // told before the media that came one look ago
    std::vector<Gap> m_gaps;
    std::vector<Gap> m_newGaps;
    bool m_sawKeyFrame = false;
    bool m_finished = false;
    std::int64_t m_fileEndUs = 0;
    std::int64_t m_mediaBytes = 0;
    std::string m_error;
};

}  // namespace kvmpd::app
