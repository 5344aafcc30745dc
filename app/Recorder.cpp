#include "app/Recorder.h"

#include <unistd.h>

#include <algorithm>
#include <future>
#include <random>
#include <utility>

#include "app/Json.h"
#include "app/Notices.h"
#include "app/StopSignals.h"
#include "app/Text.h"

namespace kvmpd::app {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kProgressOnTerminal{200};
constexpr milliseconds kProgressJson{1000};
// The component's threads end when the transfer that they are in ends; a server that sends nothing holds them up for
// half a minute. Nobody should wait for that when the file is finished.
constexpr milliseconds kClosePatience{1000};
// By how many segments more than the time without media a new source begins behind the live edge: the one that was lost
// in part, and what the manifest was late.
constexpr std::int64_t kOverlapSegments = 3;

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
    if (StartSource()) {
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

bool Recorder::StartSource() {
    m_pinReader = std::make_unique<PinReader>(kvmpd::ComPtr<IAsyncReader>(), [this] { return m_gate.Interrupted(); });
    const RetryPolicy::Options policy{.giveUpBeforeMedia = m_options.giveUpBeforeMedia,
                                      .giveUpAfterMedia = m_options.giveUpAfterMedia,
                                      .stallLimit = m_options.reconnectAfter,
                                      .seed = std::random_device()()};
    m_supervisor = std::make_unique<SourceSupervisor>(
        policy, SourceSupervisor::Callbacks{
                    .make = [this](const SourceSupervisor::Request& request) { return MakeSource(request); },
                    .retry = [this](const RetryPolicy::Retry& retry) { OnRetry(retry); },
                    .gaveUp =
                        [this] {
                            m_gate.GiveUp();
                            m_supervisor->EndReads();  // the reader has the last word, so it must not wait in one
                        }});
    return m_supervisor->Start();
}

std::unique_ptr<SupervisedSource> Recorder::MakeSource(const SourceSupervisor::Request& request) {
    const SourceOptions options{.url = m_options.url,
                                .cacheFolder = {},
                                .maxCacheSeconds = m_options.maxCacheSeconds,
                                .delaySegments = DelayFor(request),
                                .preferHeight = m_options.preferHeight,
                                .qualityId = m_options.qualityId};
    std::string error;
    auto source = RecordingSource::Open(request.id, options, *m_folder, *m_pinReader, *this, error);
    if (!source) {
        End(m_folder->CanBeWritten(error) ? RecordEnd::kComponentFailed : RecordEnd::kCacheFailed, error);
        return nullptr;
    }
    {
        const std::lock_guard lock(m_mutex);
        m_cache = source->Cache();
        m_segmentNumber.reset();
    }
    m_pinReader->SetNext(source->Reader());
    m_gate.PositionsRestart();
    return source;
}

// Far enough behind the live edge that nothing is lost which the manifest still lists; what comes a second time is left
// out.
std::optional<std::uint32_t> Recorder::DelayFor(const SourceSupervisor::Request& request) const {
    if (!request.sinceMedia || m_segmentLength <= milliseconds(0)) {
        return m_options.delaySegments;
    }
    const std::int64_t missed = *request.sinceMedia / m_segmentLength + kOverlapSegments;
    const std::int64_t asked = m_options.delaySegments.value_or(0);
    return static_cast<std::uint32_t>(std::min<std::int64_t>(std::max(missed, asked), UINT16_MAX));
}

void Recorder::OnRetry(const RetryPolicy::Retry& retry) {
    if (retry.trouble == RetryPolicy::Trouble::kStalled && m_recording->Repeated() > m_repeatedBefore) {
        OnWarning(
            "media comes, but none that is later than what was recorded: the stream's clock went back, or it ended");
    }
    m_console.Say(Format("try   %9.3f s  ", static_cast<double>(SinceStartMs()) / 1000) + DescribeRetry(retry));
    m_console.SayJson(RetryJson(retry, SinceStartMs()));
}

void Recorder::StartReader() {
    PumpListener& listener = *this;
    m_pump = std::make_unique<MediaPump>(
        *m_pinReader, [this] { return m_pinReader->Error(); }, *m_recording, m_gate, listener);
    m_reader = std::thread([this] {
        const RecordEnd end = m_pump->Run();
        End(end, m_pump->Detail());
    });
}

// ---- other threads ----

void Recorder::OnSourceEvent(std::uint64_t id, const StreamEvent& event) {
    TellSupervisor(id, event);
    if (id != m_supervisor->CurrentId()) {
        return;
    }
    if (const auto* position = std::get_if<PositionEvent>(&event);
        position != nullptr && position->PositionsRestart()) {
        m_gate.PositionsRestart();
    }
    if (std::holds_alternative<BufferingEvent>(event)) {
        m_gate.News();
    }
    if (std::holds_alternative<DownloadFailedEvent>(event)) {
        m_recording->NoteFailedDownload();
    }
    {
        const std::lock_guard lock(m_mutex);
        m_events.emplace_back(SinceStartMs(), event);
    }
    m_changed.notify_all();
}

void Recorder::TellSupervisor(std::uint64_t id, const StreamEvent& event) {
    if (const auto* manifest = std::get_if<ManifestEvent>(&event)) {
        if (manifest->result == ManifestEvent::Result::kLoaded) {
            m_supervisor->ManifestLoaded(id, milliseconds(manifest->durationMs));
        } else {
            m_supervisor->ManifestFailed(id);
        }
    } else if (const auto* position = std::get_if<PositionEvent>(&event);
               position != nullptr && !position->reset && !position->seek) {
        m_supervisor->DelayUnchanged(id);
    }
}

void Recorder::OnGap(const Gap& gap) {
    m_console.Say("gap: " + DescribeGap(gap));
    m_console.SayJson(GapJson(gap, SinceStartMs()));
}

void Recorder::OnMedia() {
    m_repeatedBefore = m_recording->Repeated();
    m_supervisor->MediaArrived();
}

void Recorder::OnStreamStart(std::int64_t recordingUs) {
    const std::lock_guard lock(m_mutex);
    m_streamStartMs = recordingUs / 1000;
}

void Recorder::OnSourceFailed(const std::string& inWords) {
    OnWarning("the stream cannot be read: " + inWords);
    m_supervisor->SourceFailed(m_supervisor->CurrentId());
    m_changed.notify_all();
}

void Recorder::OnSegmentRead(std::int64_t bytes) {
    const std::lock_guard lock(m_mutex);
    ++m_segmentsRead;
    // A file that the cache has dropped already leaves the count as the best guess.
    const auto number = m_cache->SegmentNumber(m_segmentNumber.value_or(-1), bytes);
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
            m_endDetail = detail;
        }
    }
    m_gate.Stop();
    m_changed.notify_all();
}

// ---- Run's thread ----

void Recorder::Follow() {
    std::unique_lock lock(m_mutex);
    while (!m_end) {
        m_changed.wait_for(lock, UntilNextLook(), [&] { return m_end.has_value() || !m_events.empty(); });
        while (!m_events.empty()) {
            const auto [time, event] = std::move(m_events.front());
            m_events.pop_front();
            lock.unlock();
            HandleEvent(event, time);
            lock.lock();
        }
        lock.unlock();
        if (m_pump->IsWriting()) {
            m_supervisor->HostBusy();  // a slow output is no fault of the stream's
        }
        m_supervisor->Step();
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
        // Shown as progress, on the recording's time line.
        const std::lock_guard lock(m_mutex);
        m_progress.buffering = BufferingEvent{buffering->play + m_streamStartMs, buffering->buffered + m_streamStartMs,
                                              buffering->total + m_streamStartMs};
        return;
    }
    m_console.Say(Format("event %9.3f s  ", static_cast<double>(timeMs) / 1000) + DescribeEvent(event));
    if (const auto* manifest = std::get_if<ManifestEvent>(&event)) {
        HandleManifest(*manifest);
    } else if (const auto* list = std::get_if<QualityListEvent>(&event)) {
        m_qualities = ParseQualityList(list->text);
    } else if (const auto* chosen = std::get_if<QualityChosenEvent>(&event)) {
        if (m_qualities) {
            m_console.Say(FormatQualityTable(*m_qualities, chosen->id));
        }
    } else if (std::holds_alternative<DownloadFailedEvent>(event)) {
        HandleFailedDownload();
    }
}

void Recorder::HandleManifest(const ManifestEvent& event) {
    m_lastManifest = event.result;
    if (event.result == ManifestEvent::Result::kLoaded) {
        m_context.manifestLoaded = true;
        m_segmentLength = milliseconds(event.durationMs);
    }
}

// The event does not tell why; a folder that takes no more files is the one reason that is this machine's own.
void Recorder::HandleFailedDownload() {
    ++m_context.failedDownloads;
    if (std::string error; !m_folder->CanBeWritten(error)) {
        End(RecordEnd::kCacheFailed, error);
    }
}

// At most as long as progress may wait. The supervisor's thread is this one, so a try that another thread has just
// caused is seen with the event that goes with it.
milliseconds Recorder::UntilNextLook() const {
    const milliseconds most = m_console.Json() ? kProgressJson / 2 : kProgressOnTerminal;
    return std::min(most, m_supervisor->UntilStep().value_or(most));
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
        end = WhyNoMedia(m_end.value_or(RecordEnd::kAsked));
        m_context.detail = m_endDetail;
    }
    // The file first: the reader thread may be held up in a read, and what it has delivered is already in here.
    const bool finished = m_recording->Finish();
    for (const Gap& gap : m_recording->TakeNewGaps()) {
        OnGap(gap);
    }
    const Recording::Summary summary = m_recording->Snapshot();
    m_context.hasMedia = summary.tracks[0].packets + summary.tracks[1].packets > 0;
    if (m_output->GetState() == OutputFile::State::kReaderGone) {
        end = end == RecordEnd::kAsked ? end : RecordEnd::kReaderGone;
    } else if (!finished) {
        // Says more than that it was asked to stop.
        end = RecordEnd::kOutputFailed;
        m_context.detail = m_recording->Error();
    }
    if (const auto patience = m_context.hasMedia ? m_options.giveUpAfterMedia : m_options.giveUpBeforeMedia) {
        m_context.patience = Format("%g s", static_cast<double>(patience->count()) / 1000);
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

// Nothing came at all because of the manifest, if that could never be loaded.
RecordEnd Recorder::WhyNoMedia(RecordEnd end) const {
    if (end != RecordEnd::kNoMedia || m_context.manifestLoaded || !m_lastManifest) {
        return end;
    }
    return *m_lastManifest == ManifestEvent::Result::kMalformed ? RecordEnd::kManifestShape : RecordEnd::kNoManifest;
}

void Recorder::CloseOrLeave(ExitCode code) {
    if (m_supervisor) {
        m_supervisor->EndReads();
    }
    std::promise<void> closed;
    std::future<void> done = closed.get_future();
    std::thread closer([this, &closed] {
        if (m_reader.joinable()) {
            m_reader.join();
        }
        m_pump.reset();
        if (m_pinReader) {
            m_pinReader->Close();
        }
        if (m_supervisor) {
            m_supervisor->Close();  // its sources may report something to the end
        }
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
