// `kvmpd record` as an object: follows one stream, through as many sources as that takes, and writes it into one file.
//
// Threads: Run's own (events, progress, tries, the end), the reader thread (MediaPump), the signal thread, the
// component's event threads, and those on which the supervisor closes sources. What they share is guarded by m_mutex,
// or is one of the parts that say themselves that any thread may call them (gate, output stop, recording, console).

#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "app/CacheFolder.h"
#include "app/Console.h"
#include "app/EndText.h"
#include "app/MediaPump.h"
#include "app/OutputFile.h"
#include "app/PinReader.h"
#include "app/Progress.h"
#include "app/QualityList.h"
#include "app/Recording.h"
#include "app/RecordingSource.h"
#include "app/SourceSupervisor.h"

namespace kvmpd::app {

struct RecordOptions {
    std::string url;
    std::string output;  // "-": standard output
    std::optional<std::chrono::milliseconds> length;
    std::string cacheDir;  // empty: a temporary one
    std::optional<std::uint32_t> maxCacheSeconds;
    std::optional<std::uint32_t> delaySegments;
    std::optional<std::uint32_t> preferHeight;
    std::optional<std::uint32_t> qualityId;
    // Without new media for so long, the recording ends, or the source is replaced; none: never.
    std::optional<std::chrono::milliseconds> giveUpBeforeMedia = std::chrono::seconds(30);
    std::optional<std::chrono::milliseconds> giveUpAfterMedia;
    std::optional<std::chrono::milliseconds> reconnectAfter = std::chrono::seconds(30);
    int logLevel = 0;
    bool json = false;
    bool quiet = false;
    bool keepTimestamps = false;
    bool overwrite = false;
};

class Recorder final : private SourceListener, private PumpListener {
  public:
    explicit Recorder(RecordOptions options);
    ~Recorder();

    // Returns the process's exit code; may end the process itself when the component cannot be closed in time.
    int Run();

  private:
    using Clock = std::chrono::steady_clock;

    // SourceListener, PumpListener
    void OnSourceEvent(std::uint64_t id, const StreamEvent& event) override;
    void OnSegmentRead(std::int64_t bytes) override;
    void OnWarning(const std::string& sentence) override;
    void OnGap(const Gap& gap) override;
    void OnClockRestart(const ClockRestart& restart) override;
    void OnMedia() override;
    void OnStreamStart(std::int64_t recordingUs) override;
    void OnSourceFailed(const std::string& inWords) override;

    void OnStopSignal();
    [[noreturn]] void OnSecondStopSignal();

    // Null of an exit code: go on.
    std::optional<ExitCode> Prepare();
    bool WaitForReader(std::chrono::milliseconds wait, bool tell);
    void TakeOutput(std::unique_ptr<OutputFile> output);
    bool StartSource();
    std::unique_ptr<SupervisedSource> MakeSource(const SourceSupervisor::Request& request);
    std::optional<std::uint32_t> DelayFor(const SourceSupervisor::Request& request) const;
    std::int64_t ReachUs(std::optional<std::uint32_t> delaySegments) const;
    void TellRecording(const StreamEvent& event);
    void OnRetry(const RetryPolicy::Retry& retry);
    void StartReader();
    void Follow();
    std::chrono::milliseconds UntilNextLook() const;
    void TellSupervisor(std::uint64_t id, const StreamEvent& event);
    void HandleEvent(const StreamEvent& event, std::int64_t timeMs);
    void HandleManifest(const ManifestEvent& event);
    void HandleFailedDownload();
    void HandleBuffering(const BufferingEvent& event, std::int64_t timeMs);
    void ShowProgress(bool last);
    LastMedia WhatCameLast(RecordEnd end, const Recording::Summary& summary) const;
    ExitCode FinishFile();
    void CloseOrLeave(ExitCode code);
    std::int64_t SinceStartMs() const;
    bool WasAsked();
    void End(RecordEnd end, const std::string& detail);
    RecordEnd WhyNoMedia(RecordEnd end) const;

    const RecordOptions m_options;
    const Clock::time_point m_start = Clock::now();
    Console m_console;
    PumpGate m_gate;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    // Guarded by m_mutex:
    std::unique_ptr<OutputFile> m_output;  // set once, by Run's thread, which therefore reads it without
    std::deque<std::pair<std::int64_t, StreamEvent>> m_events;
    std::optional<RecordEnd> m_end;  // the first reason wins
    std::int64_t m_segmentsRead = 0;
    std::optional<std::int64_t> m_segmentNumber;
    std::shared_ptr<const CacheFolder> m_cache;  // of the present source
    std::string m_endDetail;
    std::int64_t m_streamStartMs = 0;  // of the recording, at which the present source's times begin

    // Where the signal thread finds what it drops when it may wait for nothing; set once.
    std::atomic<OutputFile*> m_outputToDiscard = nullptr;
    std::atomic<const CacheFolder*> m_folderToRemove = nullptr;

    // Until the last new media. The time is of this object's clock; below 0 before there was any.
    std::atomic<std::int64_t> m_repeatedBefore = 0;  // packets that came a second time
    std::atomic<std::int64_t> m_failedBefore = 0;    // downloads
    std::atomic<std::int64_t> m_lastMediaMs = -1;
    std::atomic<std::int64_t> m_failedDownloads = 0;  // until now

    // Set before any other thread uses what they point to; the supervisor's owner is Run's thread.
    std::unique_ptr<Recording> m_recording;
    std::unique_ptr<PinReader> m_pinReader;
    std::unique_ptr<SourceSupervisor> m_supervisor;
    std::unique_ptr<MediaPump> m_pump;

    // Run's thread only:
    std::unique_ptr<CacheFolder> m_folder;  // set once
    std::string m_lostCache;                // path of a source's own folder that took no more files
    std::thread m_reader;
    EndContext m_context;
    std::optional<std::vector<VideoQuality>> m_qualities;
    ProgressState m_progress;
    Clock::time_point m_nextProgress;
    BufferingEvent m_lastBuffering;                // on the source's own time line
    std::optional<std::int64_t> m_lastSegmentMs;   // when that changed
    std::chrono::milliseconds m_segmentLength{0};  // of the newest segment
    std::optional<ManifestEvent::Result> m_lastManifest;
};

}  // namespace kvmpd::app
