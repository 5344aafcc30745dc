// Manifests as text, and what the parser makes of them.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "manifest/MpdParser.h"
#include "tests/manifest/FakeHttpClient.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {

/// Segments 120 to 122 of two seconds each.
inline constexpr std::string_view kTimeline =
    R"(<SegmentList startNumber="120"><SegmentTimeline><S d="2000"/><S d="2000"/><S d="2000"/></SegmentTimeline></SegmentList>)";

inline std::string Period(std::string_view content) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><MPD type="dynamic"><Period>)" + std::string(content) +
           "</Period></MPD>";
}

/// The timeline above and `sets`.
inline std::string Manifest(std::string_view sets) {
    return Period(std::string(kTimeline) + std::string(sets));
}

/// The timeline above and one video set (id 5) around `representations`.
inline std::string VideoManifest(std::string_view representations) {
    return Manifest(R"(<AdaptationSet id="5" mimeType="video/mp4">)" + std::string(representations) +
                    "</AdaptationSet>");
}

/// A timeline of `entries` that starts at 1.
inline std::string TimelineManifest(std::string_view entries) {
    return Period(R"(<SegmentList startNumber="1"><SegmentTimeline>)" + std::string(entries) +
                  "</SegmentTimeline></SegmentList>");
}

struct Parsed {
    HRESULT result = E_NOTIMPL;
    std::shared_ptr<MPD> mpd = std::make_shared<MPD>();
    std::vector<std::string> log;  ///< What parse logged, up to the level asked for.

    const AdaptationSetInfo& Set(size_t index = 0) const { return mpd->m_adaptationSets.at(index); }
    const RepresentationInfo& Quality(size_t index = 0) const { return Set().m_representations.at(index); }
};

inline Parsed Parse(std::unique_ptr<FakeHttpClient> client, LONG logLevel = 3) {
    Parsed parsed;
    MpdParser parser(std::move(client));
    LogCapture log(logLevel);
    parsed.result = parser.parse(L"http://origin/live.mpd", parsed.mpd);
    for (std::string& line : log.Lines()) {
        if (line.find("MpdParser::") != std::string::npos) {
            parsed.log.push_back(std::move(line));
        }
    }
    return parsed;
}

/// The record of a body; the log holds level 3, the errors, unless more is asked for.
inline Parsed Parse(std::string body, LONG logLevel = 3) {
    auto client = std::make_unique<FakeHttpClient>();
    client->body = std::move(body);
    return Parse(std::move(client), logLevel);
}

}  // namespace kvmpd::test
