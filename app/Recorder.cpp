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

bool Recorder::WasAsked() {
    const std::lock_guard lock(m_mutex);
    return m_end == RecordEnd::kAsked;
}

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
    auto output = OutputFile::Open(
        m_options.output, m_options.overwrite, error,
        [this, told = false](auto wait) mutable { return WaitForReader(wait, !std::exchange(told, true)); });
    if (!output && error.empty()) {
        m_console.Error(EndSentence(RecordEnd::kAsked, m_context));
        return ExitCode::kNothingYet;
    }
    if (!output) {
        m_console.Error(error);
        return ExitCode::kOutput;
    }
    TakeOutput(std::move(output));
    auto folder = CacheFolder::Create(m_options.cacheDir, error);
    if (!folder) {
        m_console.Error(error);
        return ExitCode::kCacheFolder;
    }
    m_folderToRemove = folder.get();
    m_folder = std::move(folder);
    const Recording::Options options{m_options.length ? std::optional(m_options.length->count() * 1000) : std::nullopt,
                                     m_options.keepTimestamps};
    m_recording = std::make_unique<Recording>(*m_output, options);
    return std::nullopt;
}

bool Recorder::WaitForReader(milliseconds wait, bool tell) {
    if (tell) {
        OnWarning("nobody reads \"" + m_options.output + "\" yet; the recording begins when somebody does");
    }
    std::unique_lock lock(m_mutex);
    return !m_changed.wait_for(lock, wait, [&] { return m_end.has_value(); });
}

void Recorder::TakeOutput(std::unique_ptr<OutputFile> output) {
    const std::lock_guard lock(m_mutex);
    m_outputToDiscard = output.get();
    m_output = std::move(output);
    if (m_end) {
        m_output->RequestStop();  // the stop signal came before
    }
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
    const std::optional<std::uint32_t> delay = DelayFor(request);
    const SourceOptions options{.url = m_options.url,
                                .cacheFolder = {},
                                .maxCacheSeconds = m_options.maxCacheSeconds,
                                .delaySegments = delay,
                                .preferHeight = m_options.preferHeight,
                                .qualityId = m_options.qualityId};
    std::string error;
    m_recording->Tally().SourceBegins();
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
    m_recording->NextSourceReaches(ReachUs(delay));
    m_pinReader->SetNext(source->Reader(), request.id);
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

// How far behind the recording's end a source may begin that starts so many segments behind the live edge. Rather too
// far: segments differ in length, and a proxy's manifest may be old. What lies further back is of another clock.
std::int64_t Recorder::ReachUs(std::optional<std::uint32_t> delaySegments) const {
    constexpr milliseconds kOldestManifest{60'000};
    const milliseconds segments = m_segmentLength * (2 * (delaySegments.value_or(0) + kOverlapSegments));
    return std::int64_t{1000} * (segments + kOldestManifest).count();
}

void Recorder::OnRetry(const RetryPolicy::Retry& retry) {
    if (retry.trouble == RetryPolicy::Trouble::kStalled && m_recording->Repeated() > m_repeatedBefore) {
        OnWarning("media comes, but none that is later than what was recorded: the stream repeats itself, or it ended");
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
    if (!WorthTelling(event)) {
        return;
    }
    m_console.SayJson(EventJson(event, timeMs));
    if (const auto* buffering = std::get_if<BufferingEvent>(&event)) {
        HandleBuffering(*buffering, timeMs);
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

// Shown as progress, on the recording's time line.
void Recorder::HandleBuffering(const BufferingEvent& event, std::int64_t timeMs) {
    if (!m_lastSegmentMs || event.buffered != m_lastBuffering.buffered || event.total != m_lastBuffering.total) {
        m_lastSegmentMs = timeMs;
        m_lastBuffering = event;
    }
    const std::lock_guard lock(m_mutex);
    m_progress.buffering =
        BufferingEvent{event.play + m_streamStartMs, event.buffered + m_streamStartMs, event.total + m_streamStartMs};
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
        return;
    }
    std::shared_ptr<const CacheFolder> cache;
    {
        const std::lock_guard lock(m_mutex);
        cache = m_cache;
    }
    // The present source's own folder is gone, say: no download of it will succeed, and the next one has another.
    if (std::string error; m_lostCache != cache->Path() && !cache->CanBeWritten(error)) {
        m_lostCache = cache->Path();
        OnWarning(error + "; a new source takes another one");
        m_supervisor->SourceFailed(m_supervisor->CurrentId());
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
    m_progress.segmentMs = m_segmentLength.count();
    if (m_lastSegmentMs) {
        m_progress.sinceSegmentMs = SinceStartMs() - *m_lastSegmentMs;
    }
    m_console.Progress(ProgressLine(m_progress), last);
    m_console.SayJsonProgress(ProgressJson(m_progress, SinceStartMs()));
    if (m_output->Removed()) {
        End(RecordEnd::kOutputRemoved, m_options.output);
    }
}

// The events may come before what was stored in front of them has been recorded, so the recording knows better, but of
// one source.
LastMedia Recorder::WhatCameLast(RecordEnd end, const Recording::Summary& summary) const {
    const std::int64_t lastMs = m_lastMediaMs;
    return {.agoMs = lastMs >= 0 ? std::optional(SinceStartMs() - lastMs) : std::nullopt,
            .failedDownloads =
                end == RecordEnd::kTimeReached ? 0 : std::max(m_failedDownloads - m_failedBefore, summary.failedAtEnd),
            .segmentMs = m_segmentLength.count()};
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
    for (const ClockRestart& restart : m_recording->TakeNewClockRestarts()) {
        OnClockRestart(restart);
    }
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
    if (m_context.hasMedia && m_output->Removed()) {
        end = RecordEnd::kOutputRemoved;
        m_context.detail = m_options.output;
    }
    if (const auto patience = m_context.hasMedia ? m_options.giveUpAfterMedia : m_options.giveUpBeforeMedia) {
        m_context.patience = Format("%g s", static_cast<double>(patience->count()) / 1000);
    }
    const LastMedia last = WhatCameLast(end, summary);
    m_console.EndProgress();
    if (const std::string sentence = EndSentence(end, m_context); !sentence.empty()) {
        m_console.Error(sentence);
    }
    if (m_context.hasMedia && end != RecordEnd::kOutputRemoved) {
        m_console.Say(SummaryText(summary, m_options.output, last));
        m_console.SayJson(SummaryJson(summary, m_options.output, EndWord(end), SinceStartMs(), last));
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
    const Clock::time_point patience = Clock::now() + kClosePatience;
    const bool isClosed = done.wait_until(patience) == std::future_status::ready;
    if (isClosed) {
        closer.join();
    }
    // What was said is worth waiting for while somebody reads it, but for a user who wants to be off.
    if (m_console.Drain(patience, /*patient=*/!WasAsked()) && isClosed) {
        return;
    }
    // Still in a transfer or a read that cannot be called back, or nobody reads what was said. Everything that outlives
    // the process is in order but for the cache folder; the system takes back the rest.
    m_folder->Remove();
    ::_exit(static_cast<int>(code));
}

}  // namespace kvmpd::app
