// One fetched manifest: the live timeline and what there is to play on it. The names follow ISO/IEC 23009-1
// (MPEG-DASH).
//
// The record is plain data. The parser fills a fresh one on every reload; once the loader has published it, it is never
// changed again and is shared between threads as std::shared_ptr<const MPD>.
//
// Index and number: entry i of the timeline is the segment with number m_startNumber + i, in every representation.
// Times are milliseconds: the manifest's "d" is taken as it stands, no timescale is applied, so only manifests with a
// timescale of 1000 are supported.
#pragma once

#include <string>
#include <vector>

#include "manifest/TextList.h"
#include "platform/win32.h"

namespace kvmpd {

/// One quality of an adaptation set.
struct RepresentationInfo {
    LONG m_id = 0;          ///< What the host sees and sets as the quality id.
    std::string m_baseUrl;  ///< Prefix of every segment URL; absolute, ending in what the names need.
    TextList m_mediaUrls;   ///< Media name of timeline entry i.
    LONG m_bandwidth = 0;   ///< Bits per second as the manifest says; 0 when it does not.
    LONG m_height = 0;      ///< Pixels; 0 when unknown.
    LONG m_width = 0;       ///< Pixels; 0 when unknown.
    LONG m_frameRate = 0;   ///< The leading integer only: 30000/1001 is kept as 30000, 29.97 as 29.
};

struct AdaptationSetInfo {
    LONG m_id = 0;
    std::string m_mimeType;  ///< "Unknown" when the manifest names none.
    std::vector<RepresentationInfo> m_representations;

    /// The kind of a set is the beginning of its mime type; codec parameters may follow it. A set that is neither is
    /// carried in the record and never chosen.
    bool IsAudio() const { return m_mimeType.starts_with("audio/mp4"); }
    bool IsVideo() const { return m_mimeType.starts_with("video/mp4"); }
};

/// Lists keep the document's order; nothing is sorted.
struct MPD {
    LONGLONG m_startNumber = 0;             ///< Number of the first segment on the timeline.
    DWORD m_totalDuration = 0;              ///< Sum of m_segmentDurations, milliseconds.
    std::vector<DWORD> m_segmentDurations;  ///< One entry a segment, milliseconds.
    std::vector<AdaptationSetInfo> m_adaptationSets;
};

/// Number of the segment at `index`. Numbers wrap instead of overflowing: a manifest may claim any start number.
inline LONGLONG SegmentNumber(const MPD& mpd, LONGLONG index) {
    return static_cast<LONGLONG>(static_cast<ULONGLONG>(mpd.m_startNumber) + static_cast<ULONGLONG>(index));
}

/// Number of the newest segment; the one before the first when the timeline is empty.
inline LONGLONG LastSegmentNumber(const MPD& mpd) {
    return SegmentNumber(mpd, static_cast<LONGLONG>(mpd.m_segmentDurations.size()) - 1);
}

/// Duration of the newest segment in milliseconds; 0 when the timeline is empty.
inline DWORD LastSegmentDuration(const MPD& mpd) {
    return mpd.m_segmentDurations.empty() ? 0 : mpd.m_segmentDurations.back();
}

/// The base URL followed by the media name, with nothing between them. Empty when the representation has no name for
/// `index`: it lists fewer segments than the timeline, and the segment cannot be downloaded.
inline std::string SegmentUrl(const RepresentationInfo& representation, size_t index) {
    std::string url;
    if (index < representation.m_mediaUrls.size()) {
        url.append(representation.m_baseUrl).append(representation.m_mediaUrls[index]);
    }
    return url;
}

}  // namespace kvmpd
