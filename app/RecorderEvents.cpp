// The recorder, where other threads than Run's own tell it of something: sources, the reader, signals.

#include <unistd.h>

#include <utility>

#include "app/Json.h"
#include "app/Notices.h"
#include "app/Recorder.h"

namespace kvmpd::app {

using std::chrono::milliseconds;

void Recorder::OnSourceEvent(std::uint64_t id, const StreamEvent& event) {
    TellSupervisor(id, event);
    if (id != m_supervisor->CurrentId()) {
        return;
    }
    if (const auto* position = std::get_if<PositionEvent>(&event);
        position != nullptr && position->PositionsRestart()) {
        m_recording->NextSourceReaches(ClockWatch::kAnywhere);
        m_gate.PositionsRestart();
    }
    TellRecording(event);
    {
        const std::lock_guard lock(m_mutex);
        m_events.emplace_back(SinceStartMs(), event);
    }
    m_changed.notify_all();
}

void Recorder::TellRecording(const StreamEvent& event) {
    if (const auto* buffering = std::get_if<BufferingEvent>(&event)) {
        m_recording->Tally().Buffered(buffering->buffered * 1000);
        m_gate.News();
    } else if (std::holds_alternative<DownloadFailedEvent>(event)) {
        m_recording->Tally().Failed();
        ++m_failedDownloads;
        m_gate.News();
    } else if (const auto* manifest = std::get_if<ManifestEvent>(&event);
               manifest != nullptr && manifest->result == ManifestEvent::Result::kLoaded) {
        m_recording->Tally().SegmentLasts(std::int64_t{1000} * manifest->durationMs);
    }
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

void Recorder::OnClockRestart(const ClockRestart& restart) {
    m_console.Say("clock: " + DescribeClockRestart(restart));
    m_console.SayJson(ClockRestartJson(restart, SinceStartMs()));
}

void Recorder::OnMedia() {
    m_repeatedBefore = m_recording->Repeated();
    m_failedBefore = m_failedDownloads.load();
    m_lastMediaMs = SinceStartMs();
    m_supervisor->MediaArrived();
}

void Recorder::OnStreamStart(std::int64_t recordingUs) {
    const std::lock_guard lock(m_mutex);
    m_streamStartMs = recordingUs / 1000;
}

void Recorder::OnSourceFailed(const std::string& inWords) {
    OnWarning("the stream cannot be read: " + inWords);
    // Not the current one's fault, if that has taken its place meanwhile.
    m_supervisor->SourceFailed(m_pinReader->SourceId());
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
    // Without m_mutex: whoever holds it might be what the user does not want to wait for.
    if (const CacheFolder* folder = m_folderToRemove) {
        folder->Remove();
    }
    if (OutputFile* output = m_outputToDiscard) {
        output->Discard();
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

}  // namespace kvmpd::app
