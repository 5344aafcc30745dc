#include "manifest/MpdReader.h"

#include <tinyxml2.h>

#include <utility>

#include "common/Log.h"
#include "manifest/ManifestLimits.h"
#include "manifest/NumberText.h"

namespace kvmpd {
namespace {

using tinyxml2::XMLElement;

/// Calls `visit` with every child of `parent` named `name`, in document order, for as long as it returns true. False
/// when it was stopped.
template <class Visit>
bool EachChild(const XMLElement& parent, const char* name, Visit visit) {
    for (const XMLElement* child = parent.FirstChildElement(name); child; child = child->NextSiblingElement(name)) {
        if (!visit(*child)) {
            return false;
        }
    }
    return true;
}

HRESULT ReadStartNumber(const XMLElement& segmentList, MPD& mpd) {
    const char* text = segmentList.Attribute("startNumber");
    if (!text) {
        Log(3, L"[Error] MpdParser::parse failed to get startNumber from segmentList");
        return E_FAIL;
    }
    const NumberText<LONGLONG> number = ReadLongLong(text);
    if (number.error) {
        LogA(3, "[Error] MpdParser::parse get unexpected startNumber");
        LogA(3, "[Error] MpdParser::parse : %s", number.error);
        return E_FAIL;
    }
    mpd.m_startNumber = number.value;
    Log(6, L" MpdParser::parse start number is %lld", mpd.m_startNumber);
    return S_OK;
}

/// A duration that is not a number adds a segment of duration 0, so that the numbers of the later ones stay right.
HRESULT ReadTimeline(const XMLElement& timeline, MPD& mpd) {
    mpd.m_totalDuration = 0;
    const bool complete = EachChild(timeline, "S", [&mpd](const XMLElement& entry) {
        const char* text = entry.Attribute("d");
        if (!text) {
            Log(3, L"[Error] MpdParser::parse failed to get d from in SegmentTimeline S");
            return false;
        }
        if (mpd.m_segmentDurations.size() == kMostSegments) {
            Log(3, L"[Error] MpdParser::parse more than %d segments in SegmentTimeline", kMostSegments);
            return false;
        }
        const NumberText<LONG> number = ReadInt(text);
        if (number.error) {
            LogA(3, "[Error] MpdParser::parse get unexpected target duration for: %s", text);
            LogA(3, "[Error] MpdParser::parse : %s", number.error);
        }
        const auto duration = static_cast<DWORD>(number.value);
        mpd.m_segmentDurations.push_back(duration);
        mpd.m_totalDuration += duration;
        return true;
    });
    if (!complete) {
        return E_FAIL;
    }
    Log(5, L" MpdParser::parse get SegmentList start number: %lld, length: %d", mpd.m_startNumber,
        mpd.m_segmentDurations.size());
    return S_OK;
}

/// 0 when the attribute is absent, and, after a report, when it is not a number.
LONG ReadOptionalNumber(const XMLElement& representation, const char* name) {
    const char* text = representation.Attribute(name);
    if (!text) {
        return 0;
    }
    const NumberText<LONG> number = ReadInt(text);
    if (number.error) {
        LogA(3, "[Error] MpdParser::parse get Representation unexpected %s", name);
        LogA(3, "[Error] MpdParser::parse : %s", number.error);
    }
    return number.value;
}

bool ReadRepresentationId(const XMLElement& element, RepresentationInfo& representation) {
    const char* text = element.Attribute("id");
    if (!text) {
        LogA(3, "[Error] MpdParser::parse failed to get id from Representation");
        return false;
    }
    const NumberText<LONG> number = ReadInt(text);
    if (number.error) {
        LogA(3, "[Error] MpdParser::parse get Representation unexpected id");
        LogA(3, "[Error] MpdParser::parse : %s", number.error);
        return false;
    }
    representation.m_id = number.value;
    return true;
}

void ReadMediaUrls(const XMLElement& element, RepresentationInfo& representation) {
    const XMLElement* segmentList = element.FirstChildElement("SegmentList");
    if (!segmentList) {
        return;
    }
    EachChild(*segmentList, "SegmentURL", [&representation](const XMLElement& segmentUrl) {
        if (const char* media = segmentUrl.Attribute("media")) {
            representation.m_mediaUrls.push_back(media);
        } else {
            Log(3, L"[Error] MpdParser::parse failed to get media from SegmentURL");
        }
        return true;
    });
    representation.m_mediaUrls.shrink_to_fit();
}

/// False when the representation is skipped: without an id the host could not name it, without a base there is no URL.
bool ReadRepresentation(const XMLElement& element, RepresentationInfo& representation) {
    if (!ReadRepresentationId(element, representation)) {
        return false;
    }
    representation.m_bandwidth = ReadOptionalNumber(element, "bandwidth");
    representation.m_frameRate = ReadOptionalNumber(element, "frameRate");
    representation.m_width = ReadOptionalNumber(element, "width");
    representation.m_height = ReadOptionalNumber(element, "height");
    const XMLElement* baseUrl = element.FirstChildElement("BaseURL");
    if (!baseUrl) {
        Log(3, L"[Error] MpdParser::parse failed to get BaseURL");
        return false;
    }
    if (const char* text = baseUrl->GetText()) {
        representation.m_baseUrl = text;
    }
    ReadMediaUrls(element, representation);
    return true;
}

LONG ReadSetId(const XMLElement& element) {
    const char* text = element.Attribute("id");
    if (!text) {
        Log(3, L"[Error] MpdParser::parse failed to find id in AdaptationSet ");
        return 0;
    }
    const NumberText<LONG> number = ReadInt(text);
    if (number.error) {
        LogA(3, "[Error] MpdParser::parse get AdaptationSet unexpected id");
        LogA(3, "[Error] MpdParser::parse : %s", number.error);
    }
    return number.value;
}

AdaptationSetInfo ReadAdaptationSet(const XMLElement& element) {
    AdaptationSetInfo set;
    set.m_id = ReadSetId(element);
    const char* mimeType = element.Attribute("mimeType");
    set.m_mimeType = mimeType ? mimeType : "Unknown";
    EachChild(element, "Representation", [&set](const XMLElement& child) {
        RepresentationInfo representation;
        if (ReadRepresentation(child, representation)) {
            set.m_representations.push_back(std::move(representation));
        }
        return true;
    });
    return set;
}

}  // namespace

HRESULT ReadMpd(const tinyxml2::XMLDocument& document, MPD& mpd) {
    const XMLElement* root = document.FirstChildElement("MPD");
    if (!root) {
        Log(3, L"[Error] MpdParser::parse failed to get MPD node from root");
        return E_UNEXPECTED;
    }
    const XMLElement* period = root->FirstChildElement("Period");
    if (!period) {
        Log(3, L"[Error] MpdParser::parse failed to get Period node from root");
        return E_UNEXPECTED;
    }
    const XMLElement* segmentList = period->FirstChildElement("SegmentList");
    if (!segmentList) {
        Log(3, L"[Error] MpdParser::parse failed to get SegmentList node from period");
        return E_UNEXPECTED;
    }
    const XMLElement* timeline = segmentList->FirstChildElement("SegmentTimeline");
    if (!timeline) {
        Log(3, L"[Error] MpdParser::parse failed to get SegmentTimeline node from SegmentList");
        return E_UNEXPECTED;
    }
    if (const HRESULT result = ReadStartNumber(*segmentList, mpd); FAILED(result)) {
        return result;
    }
    if (const HRESULT result = ReadTimeline(*timeline, mpd); FAILED(result)) {
        return result;
    }
    EachChild(*period, "AdaptationSet", [&mpd](const XMLElement& element) {
        mpd.m_adaptationSets.push_back(ReadAdaptationSet(element));
        return true;
    });
    return S_OK;
}

}  // namespace kvmpd
