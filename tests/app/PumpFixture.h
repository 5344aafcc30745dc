// A pump over two tracks in memory that grow as the test says.

#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/MediaPump.h"
#include "tests/app/TestMedia.h"
#include "tests/support/TempDir.h"

namespace kvmpd::app::test {

// Calls the test, on the reader's thread, whenever the pump has found nothing to do: it asked again and again and read
// nothing in between. That is the moment to append the next segment, or to end.
class LiveSource : public FakeSource {
  public:
    std::function<void()> idle;
    bool failing = false;
    int restarts = 0;

    void Restarted() override { ++restarts; }

    ReadStatus Probe(std::int64_t position) override {
        if (failing) {
            return ReadStatus::kFailed;
        }
        const ReadStatus status = FakeSource::Probe(position);
        if (status != ReadStatus::kNotYet) {
            return status;
        }
        m_asked = m_readsBefore == reads.size() ? m_asked + 1 : 0;
        m_readsBefore = reads.size();
        if (m_asked >= kAskedInOneStep && idle) {
            m_asked = 0;
            idle();
        }
        return status;
    }

  private:
    // A step may look for the largest piece that is there before it reads.
    static constexpr int kAskedInOneStep = 6;

    std::optional<std::size_t> m_readsBefore;
    int m_asked = 0;
};

class Pump : public testing::Test, protected PumpListener {
  protected:
    void SetUp() override { Prepare({}); }

    void Prepare(const Recording::Options& options) {
        m_recording.reset();
        m_output.reset();
        std::string error;
        m_output = OutputFile::Open((m_dir.Path() / "out.mkv").string(), /*overwrite=*/true, error);
        ASSERT_TRUE(m_output) << error;
        m_recording = std::make_unique<Recording>(*m_output, options);
    }

    void AppendSegment(std::size_t n) {
        Append(m_source.video, m_video.at(n));
        Append(m_source.audio, m_audio.at(n));
    }

    // Segments appear one by one, each when the pump has read all there was; after the last one it is stopped.
    void GoLive(std::size_t segments) {
        m_source.idle = [this, segments] {
            if (m_next < segments) {
                AppendSegment(m_next++);
            } else {
                m_gate.Stop();
            }
        };
    }

    RecordEnd Run(MediaPump::Timing timing = {.recheck = std::chrono::milliseconds(1)}) {
        PumpListener& listener = *this;
        MediaPump pump(
            m_source, [] { return std::string("the source's words"); }, *m_recording, m_gate, listener, timing);
        const RecordEnd end = pump.Run();
        m_detail = pump.Detail();
        m_recording->Finish();
        m_summary = m_recording->Snapshot();
        return end;
    }

    void OnSegmentRead(std::int64_t bytes) override { m_segmentBytes.push_back(bytes); }
    void OnWarning(const std::string& sentence) override { m_warnings.push_back(sentence); }
    void OnGap(const Gap& gap) override { m_gaps.push_back(gap); }
    void OnClockRestart(const ClockRestart& restart) override { m_clockRestarts.push_back(restart); }
    void OnStreamStart(std::int64_t recordingUs) override { m_streamStarts.push_back(recordingUs); }
    void OnSourceFailed(const std::string& inWords) override {
        m_failures.push_back(inWords);
        if (m_sourceFailed) {
            m_sourceFailed();
        }
    }

    kvmpd::test::TempDir m_dir;
    LiveSource m_source;
    std::vector<Bytes> m_video = MakeVideoSegments({.segments = 4});
    std::vector<Bytes> m_audio = MakeAudioSegments({.segments = 4});
    std::size_t m_next = 0;
    PumpGate m_gate;
    std::unique_ptr<OutputFile> m_output;
    std::unique_ptr<Recording> m_recording;
    Recording::Summary m_summary;
    std::string m_detail;
    std::vector<std::int64_t> m_segmentBytes;
    std::vector<std::string> m_warnings;
    std::vector<Gap> m_gaps;
    std::vector<ClockRestart> m_clockRestarts;
    std::vector<std::int64_t> m_streamStarts;
    std::vector<std::string> m_failures;
    std::function<void()> m_sourceFailed;
};

}  // namespace kvmpd::app::test
