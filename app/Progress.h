// The progress of a recording and its closing summary, as lines for people and as JSON.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "app/Recording.h"
#include "app/StreamEvent.h"

namespace kvmpd::app {

struct ProgressState {
    std::int64_t segmentsRead = 0;
    std::optional<std::int64_t> segmentNumber;  // of the last one read whole, when known
    std::optional<BufferingEvent> buffering;
    std::int64_t maxCacheMs = 300'000;
    std::int64_t recordedMs = 0;
    std::int64_t bytes = 0;       // of the file so far
    std::int64_t mediaBytes = 0;  // of the packets recorded

    // Where the cached range starts. The component reports the start of what can be reached, which includes segments
    // that are only in the manifest: before the first one loaded, or longer ago than the cache keeps.
    std::optional<std::int64_t> CachedFromMs() const;
    // How far the recording's end is behind the end of what the stream is known to have; never below 0.
    std::optional<std::int64_t> BehindLiveMs() const;
    // Bits per second of media; 0 before there is any.
    std::int64_t BitRate() const;
};

std::string ProgressLine(const ProgressState& state);
std::string ProgressJson(const ProgressState& state, std::int64_t sinceStartMs);

// Several lines. path: where the recording is.
std::string SummaryText(const Recording::Summary& summary, const std::string& path);
std::string SummaryJson(const Recording::Summary& summary, const std::string& path, const std::string& end);

}  // namespace kvmpd::app
