#include "manifest/StreamChoice.h"

#include <algorithm>

#include "common/Log.h"

namespace kvmpd {
namespace {

using Representations = std::vector<RepresentationInfo>;

std::optional<size_t> FindTarget(const Representations& representations, DWORD targetId) {
    const auto found = std::ranges::find(representations, static_cast<LONG>(targetId), &RepresentationInfo::m_id);
    if (found == representations.end()) {
        return std::nullopt;
    }
    Log(5, L" MpdLoader::ChoiceStream choice video quality by target ID: %d", targetId);
    return static_cast<size_t>(found - representations.begin());
}

/// Only the exact height counts, deliberately: a host that prefers a height which is not offered gets the last
/// representation, as one that prefers nothing does, and never a neighbouring height.
std::optional<size_t> FindHeight(const Representations& representations, DWORD height) {
    const auto found = std::ranges::find(representations, static_cast<LONG>(height), &RepresentationInfo::m_height);
    const bool matched = found != representations.end();
    Log(5, L" MpdLoader::ChoiceStream choice video quality: %d for prefer quality: %d.", matched ? found->m_height : 0,
        height);
    return matched ? std::optional(static_cast<size_t>(found - representations.begin())) : std::nullopt;
}

size_t ChooseVideo(const Representations& representations, const VideoPreference& preference) {
    std::optional<size_t> chosen;
    if (preference.targetId != 0) {
        chosen = FindTarget(representations, preference.targetId);
    }
    if (!chosen && preference.height != 0) {
        chosen = FindHeight(representations, preference.height);
    }
    const size_t index = chosen.value_or(representations.size() - 1);
    Log(5, L" MpdLoader::ChoiceStream select video quality ID: %d. Its index is %d", representations[index].m_id,
        index);
    return index;
}

}  // namespace

StreamSelection ChooseStreams(const MPD& mpd, const VideoPreference& preference) {
    StreamSelection selection;
    for (size_t i = 0; i < mpd.m_adaptationSets.size(); ++i) {
        const AdaptationSetInfo& set = mpd.m_adaptationSets[i];
        const Representations& representations = set.m_representations;
        if (representations.empty()) {
            continue;
        }
        if (set.IsAudio()) {
            const RepresentationInfo& last = representations.back();
            selection.audio = {static_cast<DWORD>(i), static_cast<DWORD>(representations.size() - 1)};
            Log(5, L" MpdLoader::ChoiceStream choice audio quality ID: %d, bandwidth: %d", last.m_id, last.m_bandwidth);
        } else if (set.IsVideo()) {
            const size_t chosen = ChooseVideo(representations, preference);
            selection.video = {static_cast<DWORD>(i), static_cast<DWORD>(chosen)};
        }
    }
    return selection;
}

const RepresentationInfo* FindRepresentation(const MPD& mpd, const RepresentationIndex& index) {
    if (index.set >= mpd.m_adaptationSets.size()) {
        return nullptr;
    }
    const Representations& representations = mpd.m_adaptationSets[index.set].m_representations;
    return index.representation < representations.size() ? &representations[index.representation] : nullptr;
}

}  // namespace kvmpd
