// Which audio and which video representation the segments are taken from.
#pragma once

#include <optional>

#include "manifest/Mpd.h"

namespace kvmpd {

/// A representation by its place in the record.
struct RepresentationIndex {
    DWORD set = 0;             ///< In MPD::m_adaptationSets.
    DWORD representation = 0;  ///< In that set's m_representations.
};

struct StreamSelection {
    std::optional<RepresentationIndex> audio;
    std::optional<RepresentationIndex> video;
    bool Complete() const { return audio && video; }
};

/// What the host wants of the video.
struct VideoPreference {
    DWORD targetId = 0;  ///< Representation id; 0: none.
    DWORD height = 0;    ///< Pixels; only an exact match counts; 0: none.
};

/// Chooses, and logs each step. Audio: the last representation of the last audio set. Video: in the last video set the
/// first with the target id, else the first with the preferred height, else the last. A set without representations
/// counts as absent.
StreamSelection ChooseStreams(const MPD& mpd, const VideoPreference& preference);

/// The representation at `index`, or null when the record has none there: a choice is kept over reloads and is not
/// compared again with the manifest that it is applied to.
const RepresentationInfo* FindRepresentation(const MPD& mpd, const RepresentationIndex& index);

}  // namespace kvmpd
