#include "app/Progress.h"

#include <algorithm>

#include "app/Json.h"
#include "app/Notices.h"
#include "app/Text.h"

namespace kvmpd::app {
namespace {

std::string Seconds(std::int64_t milliseconds) {
    return Format("%.1f s", static_cast<double>(milliseconds) / 1000);
}

std::int64_t Rate(std::int64_t bytes, std::int64_t milliseconds) {
    return milliseconds > 0 ? bytes * 8 * 1000 / milliseconds : 0;
}

// Segments come late now and then; what takes longer than three of them is no delay any more.
bool IsLong(std::int64_t milliseconds, std::int64_t segmentMs) {
    constexpr std::int64_t kShortestMs = 5'000;
    return milliseconds >= std::max(kShortestMs, 3 * segmentMs);
}

std::string GapText(const Timeline::TrackState& track, const char* name) {
    if (track.gaps == 0) {
        return std::string("none in the ") + name;
    }
    return Format("%lld in the %s, %.3f s missing", static_cast<long long>(track.gaps), name,
                  static_cast<double>(track.missingUs) / 1e6);
}

void AddTrack(JsonLine& line, const std::string& name, const Timeline::TrackState& track) {
    line.Number(name + "_packets", track.packets)
        .Number(name + "_gaps", track.gaps)
        .Seconds(name + "_missing", track.missingUs / 1000)
        .Number(name + "_repeated", track.repeated);
}

}  // namespace

std::optional<std::int64_t> ProgressState::BehindLiveMs() const {
    if (!buffering || StandsStill()) {
        return std::nullopt;
    }
    return std::max<std::int64_t>(0, buffering->total - recordedMs);
}

bool ProgressState::StandsStill() const {
    return sinceSegmentMs && IsLong(*sinceSegmentMs, segmentMs);
}

std::optional<std::int64_t> ProgressState::CachedFromMs() const {
    if (!buffering) {
        return std::nullopt;
    }
    return std::max({std::int64_t{0}, buffering->play, buffering->buffered - maxCacheMs});
}

std::int64_t ProgressState::BitRate() const {
    return Rate(mediaBytes, recordedMs);
}

std::string ProgressLine(const ProgressState& state) {
    std::string line;
    if (state.segmentNumber) {
        line = Format("segment %lld (%lld read)", static_cast<long long>(*state.segmentNumber),
                      static_cast<long long>(state.segmentsRead));
    } else {
        line = Format("%lld segments read", static_cast<long long>(state.segmentsRead));
    }
    line += " | recorded " + FormatClock(state.recordedMs, false);
    if (const auto behind = state.BehindLiveMs()) {
        line += " | behind live " + Seconds(*behind);
    } else if (state.StandsStill()) {
        line += Format(" | no new segment for %lld s", static_cast<long long>(*state.sinceSegmentMs / 1000));
    }
    if (state.buffering) {
        line += " | cached " + FormatClock(*state.CachedFromMs(), false) + "-" +
                FormatClock(state.buffering->buffered, false);
    }
    return line + " | " + FormatBytes(state.bytes) + " | " + FormatBitRate(state.BitRate());
}

std::string ProgressJson(const ProgressState& state, std::int64_t sinceStartMs) {
    JsonLine line;
    line.Text("type", "progress").Seconds("time", sinceStartMs).Number("segments", state.segmentsRead);
    if (state.segmentNumber) {
        line.Number("segment", *state.segmentNumber);
    }
    line.Seconds("recorded", state.recordedMs).Number("bytes", state.bytes).Number("bit_rate", state.BitRate());
    if (const auto behind = state.BehindLiveMs()) {
        line.Seconds("behind_live", *behind);
    } else if (state.StandsStill()) {
        line.Seconds("stands_still", *state.sinceSegmentMs);
    }
    if (state.buffering) {
        line.Seconds("cache_start", *state.CachedFromMs()).Seconds("cache_end", state.buffering->buffered);
    }
    return line.Str();
}

std::string SummaryText(const Recording::Summary& summary, const std::string& path, const LastMedia& last) {
    const auto& video = summary.tracks[0];
    const auto& audio = summary.tracks[1];
    std::string text = "recorded " + (path == "-" ? std::string("to standard output") : path) + "\n";
    text += Format("  duration  %.3f s\n", static_cast<double>(summary.durationMs) / 1000);
    text += Format("  video     %s %dx%d, %lld packets\n", summary.videoCodec.c_str(), summary.width, summary.height,
                   static_cast<long long>(video.packets));
    text += Format("  audio     %s %d Hz, %d channels, %lld packets\n", summary.audioCodec.c_str(), summary.sampleRate,
                   summary.channels, static_cast<long long>(audio.packets));
    text += Format("  size      %lld bytes (%s)\n", static_cast<long long>(summary.bytes),
                   FormatBitRate(Rate(summary.bytes, summary.recordedMs)).c_str());
    text += "  gaps      " + GapText(video, "video") + "; " + GapText(audio, "audio") + "\n";
    constexpr std::size_t kMostGapLines = 10;
    for (std::size_t i = 0; i < std::min(summary.gaps.size(), kMostGapLines); ++i) {
        text += "            " + DescribeGap(summary.gaps[i]) + "\n";
    }
    if (summary.gaps.size() > kMostGapLines) {
        text += "            and others\n";
    }
    if (last.agoMs && (last.failedDownloads > 0 || IsLong(*last.agoMs, last.segmentMs))) {
        text += "  ending    nothing new was recorded in the last " + Seconds(*last.agoMs);
        if (last.failedDownloads > 0) {
            text += Format(", and %lld download%s of what followed failed",
                           static_cast<long long>(last.failedDownloads), last.failedDownloads == 1 ? "" : "s");
        }
        text += "\n";
    }
    for (std::size_t i = 0; i < std::min(summary.clockRestarts.size(), kMostGapLines); ++i) {
        text += "  clock     " + DescribeClockRestart(summary.clockRestarts[i]) + "\n";
    }
    if (video.repeated + audio.repeated > 0) {
        text += Format("  repeated  %lld packets came a second time and were left out\n",
                       static_cast<long long>(video.repeated + audio.repeated));
    }
    return text;
}

std::string SummaryJson(const Recording::Summary& summary, const std::string& path, const std::string& end,
                        std::int64_t sinceStartMs, const LastMedia& last) {
    JsonLine line;
    line.Text("type", "summary").Seconds("time", sinceStartMs).Text("output", path).Text("end", end);
    line.Seconds("duration", summary.durationMs).Number("bytes", summary.bytes);
    line.Text("video_codec", summary.videoCodec).Number("width", summary.width).Number("height", summary.height);
    line.Text("audio_codec", summary.audioCodec);
    line.Number("sample_rate", summary.sampleRate).Number("channels", summary.channels);
    AddTrack(line, "video", summary.tracks[0]);
    AddTrack(line, "audio", summary.tracks[1]);
    std::string gaps = "[";
    for (const Gap& gap : summary.gaps) {
        gaps += gaps.size() == 1 ? "" : ",";
        gaps += GapJson(gap);
    }
    gaps += "]";
    line.Raw("gaps", gaps);
    std::string restarts = "[";
    for (const ClockRestart& restart : summary.clockRestarts) {
        restarts += restarts.size() == 1 ? "" : ",";
        restarts += ClockRestartJson(restart);
    }
    line.Raw("clock_restarts", restarts + "]");
    if (last.agoMs) {
        line.Seconds("since_media", *last.agoMs).Number("failed_since_media", last.failedDownloads);
    }
    return line.Str();
}

}  // namespace kvmpd::app
