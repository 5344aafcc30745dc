#include "manifest/QualityText.h"

#include <algorithm>

namespace kvmpd {

const AdaptationSetInfo* FirstVideoSet(const MPD& mpd) {
    const auto found = std::ranges::find_if(mpd.m_adaptationSets, &AdaptationSetInfo::IsVideo);
    return found == mpd.m_adaptationSets.end() ? nullptr : &*found;
}

std::wstring QualityText(const AdaptationSetInfo& set) {
    std::wstring text = L"{";
    for (const RepresentationInfo& quality : set.m_representations) {
        if (text.size() > 1) {
            text += L", ";
        }
        text += std::to_wstring(quality.m_id);
        text += L":{'height': " + std::to_wstring(quality.m_height);
        text += L",'width': " + std::to_wstring(quality.m_width);
        text += L",'bandwidth': " + std::to_wstring(quality.m_bandwidth);
        text += L",'frameRate': " + std::to_wstring(quality.m_frameRate);
        text += L"}";
    }
    text += L"}";
    return text;
}

}  // namespace kvmpd
