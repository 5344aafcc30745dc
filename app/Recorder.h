// `kvmpd record` as an object: follows one stream and writes it into one file.
//
// Threads: Run's own (events, progress, the end), the reader thread (MediaPump), the signal thread, and the component's
// event thread. What they share is guarded by m_mutex, or is one of the parts that say themselves that any thread may
// call them (gate, output stop, recording, console).

#pragma once

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
#include "app/SourceSession.h"

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
    int logLevel = 0;
    bool json = false;
    bool quiet = false;
    bool keepTimestamps = false;
    bool overwrite = false;
};

class Recorder final : private EventSink, private PumpListener {
  public:
    explicit Recorder(RecordOptions options);
    ~Recorder();

    // Returns the process's exit code; may end the process itself when the component cannot be closed in time.
    int Run();

  private:
    using Clock = std::chrono::steady_clock;

    // EventSink, PumpListener
    void OnEvent(const StreamEvent& event) override;
    void OnSegmentRead(std::int64_t bytes) override;
    void OnWarning(const std::string& sentence) override;

    void OnStopSignal();
    [[noreturn]] void OnSecondStopSignal();

    // Null of an exit code: go on.
    std::optional<ExitCode> Prepare();
    bool OpenSession();
    void StartReader();
    void Follow();
    void HandleEvent(const StreamEvent& event, std::int64_t timeMs);
    void HandleManifest(const ManifestEvent& event);
    void HandleChosenQuality(const QualityChosenEvent& event);
    void RetryManifestWhenDue();
    void ShowProgress(bool last);
    ExitCode FinishFile();
    void CloseOrLeave(ExitCode code);
    std::int64_t SinceStartMs() const;
    void End(RecordEnd end, const std::string& detail);

    const RecordOptions m_options;
    const Clock::time_point m_start = Clock::now();
    Console m_console;
    PumpGate m_gate;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    // Guarded by m_mutex:
    std::unique_ptr<OutputFile> m_output;   // set once
    std::unique_ptr<CacheFolder> m_folder;  // set once
    std::deque<std::pair<std::int64_t, StreamEvent>> m_events;
    std::optional<RecordEnd> m_end;  // the first reason wins
    std::int64_t m_segmentsRead = 0;
    std::optional<std::int64_t> m_segmentNumber;

    // Run's thread only, except that the reader thread uses what m_recording, m_pinReader and m_pump point to:
    std::unique_ptr<Recording> m_recording;
    std::unique_ptr<SourceSession> m_session;
    std::unique_ptr<PinReader> m_pinReader;
    std::unique_ptr<MediaPump> m_pump;
    std::thread m_reader;
    EndContext m_context;
    std::optional<std::vector<VideoQuality>> m_qualities;
    ProgressState m_progress;
    Clock::time_point m_nextProgress;
    std::optional<Clock::time_point> m_retryManifestAt;
    int m_manifestFailures = 0;  // in a row
};

}  // namespace kvmpd::app
