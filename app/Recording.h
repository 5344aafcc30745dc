// One recording: takes demuxed fragments of both tracks, decides what of them is written, and writes it. It begins when
// the first fragment of both tracks is there, because the file's header names both.
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

#include "app/FragmentDemuxer.h"
#include "app/MatroskaWriter.h"
#include "app/OutputFile.h"
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
        std::vector<Gap> gaps{};  // in the order of their discovery; the first thousand
    };

    Recording(OutputFile& output, const Options& options)
        : m_output(output), m_options(options), m_writer(output), m_timeline(options.limitUs) {}

    Result Add(Track track, DemuxedFragment&& fragment);

    // Something of the track was lost at the place that has been reached: the cause of the gap that may follow.
    void NoteLoss(Track track, LossCause cause);
    // A segment could not be downloaded: that is why the next piece is missing of which nothing else is known.
    // Never waits.
    void NoteFailedDownload() { ++m_failedDownloads; }
    // The gaps found since the last call.
    std::vector<Gap> TakeNewGaps();
    // How many packets were written, and how many were left out because they came a second time.
    std::int64_t Packets() const;
    std::int64_t Repeated() const;
    // Microseconds of the recording at this decode time of the stream's; nothing before it began.
    std::optional<std::int64_t> RecordingTime(std::int64_t decodeUs) const;

    // Ends the file; media that was lost since the last packet of a track is a gap by then. False when that failed;
    // further calls change nothing and answer true.
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
    bool Begin();
    Result WriteFragment(Track track, DemuxedFragment& fragment);
    bool WritePacket(Track track, AVPacket& packet, AVRational timeBase);
    bool HasRoomFor(const AVPacket& packet);
    void NoteGap();
    void BoundWaiting(std::vector<DemuxedFragment>& waiting);

    mutable std::mutex m_mutex;
    OutputFile& m_output;
    const Options m_options;
    MatroskaWriter m_writer;
    Timeline m_timeline;
    std::array<AvParametersPtr, kTracks> m_parameters;
    std::array<std::vector<DemuxedFragment>, kTracks> m_waiting;  // until the recording begins
    std::array<LossCause, kTracks> m_loss{};                      // since the track's last packet
    std::atomic<std::int64_t> m_failedDownloads = 0;              // not guarded
    std::array<std::int64_t, kTracks> m_failuresExplained{};      // by gaps of the track
    std::vector<Gap> m_gaps;
    std::vector<Gap> m_newGaps;
    bool m_sawKeyFrame = false;
    bool m_finished = false;
    std::int64_t m_fileEndUs = 0;
    std::int64_t m_mediaBytes = 0;
    std::string m_error;
};

}  // namespace kvmpd::app
