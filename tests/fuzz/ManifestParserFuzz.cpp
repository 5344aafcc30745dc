// Any bytes as a manifest: the parser must answer S_OK or one of its documented codes, and what it hands out must be
// safe for everything that the loader does with a manifest.
#include <tinyxml2.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "manifest/ManifestLimits.h"
#include "manifest/MpdParser.h"
#include "manifest/QualityText.h"
#include "manifest/StartChoice.h"
#include "manifest/StreamChoice.h"
#include "manifest/XmlDepth.h"
#include "tests/fuzz/FuzzRequire.h"
#include "tests/fuzz/LogToNobody.h"
#include "tests/manifest/FakeHttpClient.h"

namespace kvmpd::test {
namespace {

DWORD Sum(const std::vector<DWORD>& durations) {
    DWORD sum = 0;
    for (const DWORD duration : durations) {
        sum += duration;
    }
    return sum;
}

/// A start preference in every kind, drawn from the input itself.
void ChooseStarts(const MPD& mpd, const std::uint8_t* data, size_t size) {
    DWORD seed = static_cast<DWORD>(size);
    for (size_t i = 0; i < size && i < 64; ++i) {
        seed = seed * 31 + data[i];
    }
    const size_t count = mpd.m_segmentDurations.size();
    const LONGLONG id = SegmentNumber(mpd, static_cast<LONGLONG>(seed % (count + 4)) - 2);
    for (const StartPreference& preference :
         {StartPreference{}, StartPreference{.segmentId = id}, StartPreference{.delayTime = seed},
          StartPreference{.delaySegment = seed % 8}}) {
        Require(ChooseStartIndex(mpd, preference) < count, "the start is on the timeline");
    }
}

void UseAsTheLoaderDoes(const MPD& mpd, const std::uint8_t* data, size_t size) {
    if (mpd.m_segmentDurations.empty()) {
        return;
    }
    ChooseStarts(mpd, data, size);
    const StreamSelection selection = ChooseStreams(mpd, {.targetId = 12, .height = 720});
    for (const auto& index : {selection.audio, selection.video}) {
        if (index) {
            const RepresentationInfo* chosen = FindRepresentation(mpd, *index);
            Require(chosen != nullptr, "what was chosen is there");
            SegmentUrl(*chosen, 0);
            SegmentUrl(*chosen, mpd.m_segmentDurations.size() - 1);
        }
    }
    if (const AdaptationSetInfo* video = FirstVideoSet(mpd)) {
        Require(QualityText(*video).ends_with(L'}'), "the quality list is closed");
    }
}

int Depth(const tinyxml2::XMLElement* element) {
    int deepest = 0;
    for (; element != nullptr; element = element->NextSiblingElement()) {
        deepest = std::max(deepest, 1 + Depth(element->FirstChildElement()));
    }
    return deepest;
}

/// Of XML that the library reads, the depth that is counted beforehand is the depth that it has.
void CompareDepth(const std::uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    tinyxml2::XMLDocument document;
    if (document.Parse(text.data(), text.size()) == tinyxml2::XML_SUCCESS) {
        Require(XmlDepth(text, kDeepestXml) == std::min(Depth(document.FirstChildElement()), kDeepestXml + 1),
                "the depth");
    }
}

void ParseAndUse(const std::uint8_t* data, size_t size, bool announceLength) {
    auto client = std::make_unique<FakeHttpClient>();
    client->body.assign(reinterpret_cast<const char*>(data), size);
    client->announceLength = announceLength;
    MpdParser parser(std::move(client));
    const auto mpd = std::make_shared<MPD>();
    const HRESULT result = parser.parse(L"http://origin/live.mpd", mpd);
    Require(result == S_OK || result == E_FAIL || result == E_UNEXPECTED || result == E_OUTOFMEMORY,
            "a documented result");
    Require(mpd->m_segmentDurations.size() <= kMostSegments, "at most so many segments");
    if (result == S_OK) {
        Require(mpd->m_totalDuration == Sum(mpd->m_segmentDurations), "the total duration");
        UseAsTheLoaderDoes(*mpd, data, size);
    }
}

}  // namespace
}  // namespace kvmpd::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    [[maybe_unused]] static const bool once = (kvmpd::test::LogToNobody(), true);
    kvmpd::test::CompareDepth(data, size);
    // Without a length the sink clears its five megabytes, which costs a thousand times the parse: one input in 256.
    kvmpd::test::ParseAndUse(data, size, /*announceLength=*/size == 0 || data[size - 1] != 0x20);
    return 0;
}
