#include "app/Recorder.h"

#include <unistd.h>

#include <algorithm>
#include <future>
#include <utility>

#include "app/Json.h"
#include "app/StopSignals.h"
#include "app/Text.h"

namespace kvmpd::app {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kProgressOnTerminal{200};
constexpr milliseconds kProgressJson{1000};
// The component's threads end when the transfer that they are in ends; a server that sends nothing holds them up for
// half a minute. Nobody should wait for that when the file is finished.
constexpr milliseconds kClosePatience{1500};
constexpr milliseconds kLongestRetryWait{5000};

}  // namespace

Recorder::Recorder(RecordOptions options)
    : m_options(std::move(options)),
      m_console({.json = m_options.json,
                 .quiet = m_options.quiet,
                 .recordingOnStdout = m_options.output == "-",
                 .plainProgress = m_options.logLevel > 0}) {
    m_context.url = m_options.url;
    m_progress.maxCacheMs = std::int64_t{1000} * m_options.maxCacheSeconds.value_or(300);
}

Recorder::~Recorder() = default;

std::int64_t Recorder::SinceStartMs() const {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - m_start).count();
}

int Recorder::Run() {
    // Before any other thread exists, and to the very end: from here on a stop signal leaves nothing behind.
    const StopSignals signals([this](int) { OnStopSignal(); }, [this](int) { OnSecondStopSignal(); });
    if (const auto failed = Prepare()) {
        return static_cast<int>(*failed);
    }
    m_console.Say("loading " + m_options.url);
    if (OpenSession()) {
        StartReader();
        Follow();
    }
    const ExitCode code = FinishFile();
    CloseOrLeave(code);
    return static_cast<int>(code);
}

std::optional<ExitCode> Recorder::Prepare() {
    if (!IsHttpUrl(m_options.url)) {
        m_console.Error("\"" + m_options.url +
                        "\" is no address of a manifest; give one that begins with http:// or https:// and a host");
        return ExitCode::kUsage;
    }
    std::string error;
    auto output = OutputFile::Open(m_options.output, m_options.overwrite, error);
    if (!output) {
        m_console.Error(error);
        return ExitCode::kOutput;
    }
    auto folder = CacheFolder::Create(m_options.cacheDir, error);
    if (!folder) {
        m_console.Error(error);
        return ExitCode::kCacheFolder;
    }
    const Recording::Options options{m_options.length ? std::optional(m_options.length->count() * 1000) : std::nullopt,
                                     m_options.keepTimestamps};
    m_recording = std::make_unique<Recording>(*output, options);
    const std::lock_guard lock(m_mutex);
    m_output = std::move(output);
    m_folder = std::move(folder);
    return std::nullopt;
}

bool Recorder::OpenSession() {
    const SourceOptions source{.url = m_options.url,
                               .cacheFolder = m_folder->Path(),
                               .maxCacheSeconds = m_options.maxCacheSeconds,
                               .delaySegments = m_options.delaySegments,
                               .preferHeight = m_options.preferHeight,
                               .qualityId = m_options.qualityId};
    std::string error;
    m_session = SourceSession::Open(source, *this, error);
    if (!m_session) {
        End(RecordEnd::kComponentFailed, error);
        return false;
    }
    return true;
}

void Recorder::StartReader() {
    m_pinReader = std::make_unique<PinReader>(m_session->Reader(), [this] { return m_gate.Interrupted(); });
    PumpListener& listener = *this;
    m_pump = std::make_unique<MediaPump>(
        *m_pinReader, [this] { return m_pinReader->Error(); }, *m_recording, m_gate, listener);
    m_reader = std::thread([this] {
        const RecordEnd end = m_pump->Run();
        End(end, m_pump->Detail());
    });
}

// ---- other threads ----

void Recorder::OnEvent(const StreamEvent& event) {
    if (const auto* position = std::get_if<PositionEvent>(&event);
        position != nullptr && position->PositionsRestart()) {
        m_gate.PositionsRestart();
    }
    if (std::holds_alternative<BufferingEvent>(event)) {
        m_gate.News();
    }
    {
        const std::lock_guard lock(m_mutex);
        m_events.emplace_back(SinceStartMs(), event);
    }
    m_changed.notify_all();
}

void Recorder::OnSegmentRead(std::int64_t bytes) {
    const std::lock_guard lock(m_mutex);
    ++m_segmentsRead;
    // A file that the cache has dropped already leaves the count as the best guess.
    const auto number = m_folder->SegmentNumber(m_segmentNumber.value_or(-1), bytes);
    if (number || m_segmentNumber) {
        m_segmentNumber = number.value_or(m_segmentNumber.value_or(0) + 1);
    }
}

void Recorder::OnWarning(const std::string& sentence) {
    m_console.Say("warning: " + sentence);
    m_console.SayJson(JsonLine().Text("type", "warning").Seconds("time", SinceStartMs()).Text("text", sentence).Str());
}

void Recorder::OnStopSignal() {
    End(RecordEnd::kAsked, "");
    const std::lock_guard lock(m_mutex);
    if (m_output) {
        m_output->RequestStop();
    }
}

void Recorder::OnSecondStopSignal() {
    // Without m_mutex: whoever holds it might be what the user does not want to wait for. Both are set once, early.
    if (m_folder) {
        m_folder->Remove();
    }
    if (m_output) {
        m_output->Discard();
    }
    ::_exit(static_cast<int>(ExitCode::kStoppedAtOnce));
}

void Recorder::End(RecordEnd end, const std::string& detail) {
    {
        const std::lock_guard lock(m_mutex);
        if (!m_end) {
            m_end = end;
            m_context.detail = detail;
        }
    }
    m_gate.Stop();
    m_changed.notify_all();
}

// ---- Run's thread ----

void Recorder::Follow() {
    std::unique_lock lock(m_mutex);
    while (!m_end) {
        m_changed.wait_for(lock, m_console.Json() ? kProgressJson / 2 : kProgressOnTerminal,
                           [&] { return m_end.has_value() || !m_events.empty(); });
        while (!m_events.empty()) {
            const auto [time, event] = std::move(m_events.front());
            m_events.pop_front();
            lock.unlock();
            HandleEvent(event, time);
            lock.lock();
        }
        lock.unlock();
        RetryManifestWhenDue();
        ShowProgress(/*last=*/false);
        lock.lock();
    }
    // What was reported before the end is still said.
    const auto events = std::exchange(m_events, {});
    lock.unlock();
    for (const auto& [time, event] : events) {
        HandleEvent(event, time);
    }
    ShowProgress(/*last=*/true);
}

void Recorder::HandleEvent(const StreamEvent& event, std::int64_t timeMs) {
    m_console.SayJson(EventJson(event, timeMs));
    if (const auto* buffering = std::get_if<BufferingEvent>(&event)) {
        m_progress.buffering = *buffering;  // shown as progress
        return;
    }
    m_console.Say(Format("event %9.3f s  ", static_cast<double>(timeMs) / 1000) + DescribeEvent(event));
    if (const auto* manifest = std::get_if<ManifestEvent>(&event)) {
        HandleManifest(*manifest);
    } else if (const auto* list = std::get_if<QualityListEvent>(&event)) {
        m_qualities = ParseQualityList(list->text);
    } else if (const auto* chosen = std::get_if<QualityChosenEvent>(&event)) {
        HandleChosenQuality(*chosen);
    } else if (std::holds_alternative<DownloadFailedEvent>(event)) {
        ++m_context.failedDownloads;
    }
}

void Recorder::HandleManifest(const ManifestEvent& event) {
    if (event.result == ManifestEvent::Result::kLoaded) {
        m_context.manifestLoaded = true;
        m_manifestFailures = 0;
        m_retryManifestAt.reset();
        return;
    }
    if (!m_context.manifestLoaded) {
        End(event.result == ManifestEvent::Result::kMalformed ? RecordEnd::kManifestShape : RecordEnd::kNoManifest, "");
        return;
    }
    // The component stops reloading after a failure. A live stream is worth another try for as long as the recording
    // has patience with it.
    const milliseconds wait = std::min(kLongestRetryWait, milliseconds(1000 << std::min(m_manifestFailures, 8)));
    ++m_manifestFailures;
    m_retryManifestAt = Clock::now() + wait;
}

void Recorder::HandleChosenQuality(const QualityChosenEvent& event) {
    if (m_qualities) {
        m_console.Say(FormatQualityTable(*m_qualities, event.id));
    }
}

void Recorder::RetryManifestWhenDue() {
    if (m_retryManifestAt && Clock::now() >= *m_retryManifestAt) {
        m_retryManifestAt.reset();
        m_session->AskForManifestAgain();
    }
}

void Recorder::ShowProgress(bool last) {
    const Clock::time_point now = Clock::now();
    if ((now < m_nextProgress && !last) || !m_progress.buffering) {
        return;
    }
    const auto summary = m_recording->TrySnapshot();
    if (!summary) {
        return;
    }
    m_nextProgress = now + (m_console.Json() ? kProgressJson : kProgressOnTerminal);
    {
        const std::lock_guard lock(m_mutex);
        m_progress.segmentsRead = m_segmentsRead;
        m_progress.segmentNumber = m_segmentNumber;
    }
    m_progress.recordedMs = summary->recordedMs;
    m_progress.bytes = summary->bytes;
    m_progress.mediaBytes = summary->mediaBytes;
    m_console.Progress(ProgressLine(m_progress), last);
    m_console.SayJson(ProgressJson(m_progress, SinceStartMs()));
}

ExitCode Recorder::FinishFile() {
    RecordEnd end = RecordEnd::kAsked;
    {
        const std::lock_guard lock(m_mutex);
        end = m_end.value_or(RecordEnd::kAsked);
    }
    // The file first: the reader thread may be held up in a read, and what it has delivered is already in here.
    const bool finished = m_recording->Finish();
    const Recording::Summary summary = m_recording->Snapshot();
    m_context.hasMedia = summary.tracks[0].packets + summary.tracks[1].packets > 0;
    if (m_output->GetState() == OutputFile::State::kReaderGone) {
        end = end == RecordEnd::kAsked ? end : RecordEnd::kReaderGone;
    } else if (!finished) {
        end = RecordEnd::kOutputFailed;
        m_context.detail = m_recording->Error();
    }
    m_console.EndProgress();
    if (const std::string sentence = EndSentence(end, m_context); !sentence.empty()) {
        m_console.Error(sentence);
    }
    if (m_context.hasMedia) {
        m_console.Say(SummaryText(summary, m_options.output));
        m_console.SayJson(SummaryJson(summary, m_options.output, EndWord(end)));
    } else {
        m_output->Discard();
    }
    return ExitCodeOf(end, m_context.hasMedia);
}

void Recorder::CloseOrLeave(ExitCode code) {
    std::promise<void> closed;
    std::future<void> done = closed.get_future();
    std::thread closer([this, &closed] {
        if (m_reader.joinable()) {
            m_reader.join();
        }
        m_pump.reset();
        m_pinReader.reset();
        m_session.reset();
        closed.set_value();
    });
    if (done.wait_for(kClosePatience) == std::future_status::ready) {
        closer.join();
        return;
    }
    // Still in a transfer or a read that cannot be called back. Everything that outlives the process is in order but
    // for the cache folder; the system takes back the rest.
    m_folder->Remove();
    ::_exit(static_cast<int>(code));
}

}  // namespace kvmpd::app
