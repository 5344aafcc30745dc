// Manifest records made by hand.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "manifest/Mpd.h"

namespace kvmpd::test {

/// Long enough that a loader which follows such a timeline never reloads by itself during a test.
inline constexpr DWORD kTenMinutes = 600'000;

inline RepresentationInfo Quality(LONG id, LONG height = 0, std::string baseUrl = "") {
    RepresentationInfo representation;
    representation.m_id = id;
    representation.m_height = height;
    representation.m_baseUrl = std::move(baseUrl);
    return representation;
}

inline AdaptationSetInfo Set(std::string mimeType, std::vector<RepresentationInfo> representations) {
    AdaptationSetInfo set;
    set.m_mimeType = std::move(mimeType);
    set.m_representations = std::move(representations);
    return set;
}

/// A timeline of `durations` from number `first` on, without anything to play.
inline MPD Timeline(LONGLONG first, std::vector<DWORD> durations) {
    MPD mpd;
    mpd.m_startNumber = first;
    mpd.m_segmentDurations = std::move(durations);
    for (const DWORD duration : mpd.m_segmentDurations) {
        mpd.m_totalDuration += duration;
    }
    return mpd;
}

/// Names a file for every segment of the timeline in every representation: its number and ".m4s".
inline void NameSegments(MPD& mpd) {
    for (AdaptationSetInfo& set : mpd.m_adaptationSets) {
        for (RepresentationInfo& representation : set.m_representations) {
            for (size_t i = 0; i < mpd.m_segmentDurations.size(); ++i) {
                const LONGLONG number = SegmentNumber(mpd, static_cast<LONGLONG>(i));
                representation.m_mediaUrls.push_back(std::to_string(number) + ".m4s");
            }
        }
    }
}

/// A live manifest with one audio representation (id 1, "a/") and two video ones (id 11 of 720 lines, "v720/"; id 12 of
/// 1080 lines, "v1080/").
inline MPD LiveManifest(LONGLONG first, size_t count, DWORD duration = kTenMinutes) {
    MPD mpd = Timeline(first, std::vector<DWORD>(count, duration));
    mpd.m_adaptationSets = {Set("audio/mp4", {Quality(1, 0, "a/")}),
                            Set("video/mp4", {Quality(11, 720, "v720/"), Quality(12, 1080, "v1080/")})};
    NameSegments(mpd);
    return mpd;
}

}  // namespace kvmpd::test
