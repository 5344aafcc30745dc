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
    std::int64_t segmentMs = 0;   // length of the newest segment; 0: not known
    // How long no segment has been stored; nothing: there was none.
    std::optional<std::int64_t> sinceSegmentMs;

    // Where the cached range starts. The component reports the start of what can be reached, which includes segments
    // that are only in the manifest: before the first one loaded, or longer ago than the cache keeps.
    std::optional<std::int64_t> CachedFromMs() const;
    // How far the recording's end is behind the end of what the stream is known to have; never below 0. Nothing while
    // the stream stands still: what it has by then is not known.
    std::optional<std::int64_t> BehindLiveMs() const;
    bool StandsStill() const;
    // Bits per second of media; 0 before there is any.
    std::int64_t BitRate() const;
};

// What is known of the end of a recording besides its gaps.
struct LastMedia {
    std::optional<std::int64_t> agoMs;  // when something new was recorded last, before the end; nothing: not known
    std::int64_t failedDownloads = 0;   // of what followed, by all sources
    std::int64_t segmentMs = 0;         // length of the newest segment; 0: not known
};

std::string ProgressLine(const ProgressState& state);
std::string ProgressJson(const ProgressState& state, std::int64_t sinceStartMs);

// Several lines. path: where the recording is.
std::string SummaryText(const Recording::Summary& summary, const std::string& path, const LastMedia& last = {});
std::string SummaryJson(const Recording::Summary& summary, const std::string& path, const std::string& end,
                        std::int64_t sinceStartMs, const LastMedia& last = {});

}  // namespace kvmpd::app
