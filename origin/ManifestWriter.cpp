#include "origin/ManifestWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <string_view>

namespace kvmpd::origin {

namespace {

constexpr std::size_t kForeignEvery = 7;
constexpr std::size_t kBytesPerSegmentUrl = 64;

void AppendEscaped(std::string& out, std::string_view text) {
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
}

template <class Number>
void AppendNumber(std::string& out, Number number) {
    std::array<char, 24> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    out.append(digits.data(), end);
}

void AppendAttribute(std::string& out, std::string_view name, std::string_view value) {
    if (!value.empty()) {
        out.append(" ").append(name).append("=\"");
        AppendEscaped(out, value);
        out += '"';
    }
}

template <class Number>
void AppendNumberAttribute(std::string& out, std::string_view name, Number value) {
    out.append(" ").append(name).append("=\"");
    AppendNumber(out, value);
    out += '"';
}

// Left out when 0: the manifest then says nothing rather than something wrong.
void AppendKnownAttribute(std::string& out, std::string_view name, std::uint32_t value) {
    if (value != 0) {
        AppendNumberAttribute(out, name, value);
    }
}

std::string Seconds(std::int64_t ms) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "PT%lld.%03dS", static_cast<long long>(ms / 1000),
                  static_cast<int>(ms % 1000));
    return text.data();
}

std::string UtcTime(std::chrono::system_clock::time_point time) {
    const auto moment = std::chrono::floor<std::chrono::milliseconds>(time);
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(moment - day);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
    return text.data();
}

void AppendRoot(std::string& out, const Manifest& manifest, const ManifestStyle& style) {
    std::int64_t longest = 0;
    for (const SegmentTime& segment : manifest.segments) {
        longest = std::max<std::int64_t>(longest, segment.durationMs);
    }
    out += "<MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\"";
    if (style.foreignAttributes && style.declareForeignPrefix) {
        out += " xmlns:x=\"urn:example:ingest\"";
    }
    out += " profiles=\"urn:mpeg:dash:profile:full:2011\" type=\"dynamic\"";
    AppendAttribute(out, "availabilityStartTime", UtcTime(manifest.availabilityStart));
    AppendAttribute(out, "minimumUpdatePeriod", Seconds(manifest.minimumUpdatePeriodMs));
    AppendAttribute(out, "minBufferTime", Seconds(longest == 0 ? manifest.minimumUpdatePeriodMs : longest));
    if (manifest.timeShiftBufferDepthMs > 0) {
        AppendAttribute(out, "timeShiftBufferDepth", Seconds(manifest.timeShiftBufferDepthMs));
    }
    out += ">\n";
}

void AppendTimeline(std::string& out, const Manifest& manifest, const ManifestStyle& style) {
    out += "<SegmentList";
    AppendNumberAttribute(out, "startNumber", manifest.startNumber);
    out += " timescale=\"1000\">\n<SegmentTimeline>\n";
    for (std::size_t i = 0; i < manifest.segments.size(); ++i) {
        out += "<S";
        if (i == 0 && style.firstSegmentTime) {
            AppendNumberAttribute(out, "t", manifest.segments[i].startMs);
        }
        AppendNumberAttribute(out, "d", manifest.segments[i].durationMs);
        if (style.foreignAttributes && i % kForeignEvery == 0) {
            AppendNumberAttribute(out, "x:ingest", manifest.segments[i].startMs);
        }
        out += "/>\n";
    }
    out += "</SegmentTimeline>\n</SegmentList>\n";
}

void AppendRepresentation(std::string& out, const Manifest& manifest, const ManifestStyle& style,
                          const Representation& representation) {
    out += "<Representation";
    AppendNumberAttribute(out, "id", representation.id);
    AppendAttribute(out, "codecs", representation.codecs);
    AppendKnownAttribute(out, "width", representation.width);
    AppendKnownAttribute(out, "height", representation.height);
    AppendAttribute(out, "frameRate", representation.frameRate);
    AppendKnownAttribute(out, "audioSamplingRate", representation.audioSamplingRate);
    AppendKnownAttribute(out, "bandwidth", representation.bandwidth);
    out += ">\n";
    if (representation.audioChannels != 0) {
        out += "<AudioChannelConfiguration schemeIdUri=\"urn:mpeg:dash:23003:3:audio_channel_configuration:2011\"";
        AppendNumberAttribute(out, "value", representation.audioChannels);
        out += "/>\n";
    }
    out += "<BaseURL>";
    AppendEscaped(out, manifest.mediaBase);
    AppendNumber(out, representation.id);
    out += '/';
    AppendEscaped(out, style.basePadding);
    out += "</BaseURL>\n<SegmentList>\n";
    for (const SegmentTime& segment : manifest.segments) {
        out += "<SegmentURL media=\"";
        AppendEscaped(out, style.mediaPrefix);
        AppendNumber(out, segment.number);
        AppendEscaped(out, representation.extension);
        out += "\"/>\n";
    }
    out += "</SegmentList>\n</Representation>\n";
}

void AppendSet(std::string& out, const Manifest& manifest, const ManifestStyle& style, std::size_t id,
               const MediaSet& set) {
    out += "<AdaptationSet";
    AppendNumberAttribute(out, "id", id);
    AppendAttribute(out, "mimeType", set.mimeType);
    out += " segmentAlignment=\"true\" startWithSAP=\"1\">\n";
    out += "<Role schemeIdUri=\"urn:mpeg:dash:role:2011\" value=\"main\"/>\n";
    for (const Representation& representation : set.representations) {
        AppendRepresentation(out, manifest, style, representation);
    }
    out += "</AdaptationSet>\n";
}

}  // namespace

std::string WriteManifest(const Manifest& manifest, const ManifestStyle& style) {
    std::size_t representations = 1;
    for (const auto* sets : {&manifest.sets, &style.extraSets}) {
        for (const MediaSet& set : *sets) {
            representations += set.representations.size();
        }
    }
    std::string out;
    out.reserve(4096 + representations * (style.basePadding.size() + manifest.segments.size() * kBytesPerSegmentUrl));
    out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    AppendRoot(out, manifest, style);
    out += "<Period id=\"0\" start=\"PT0S\">\n";
    AppendTimeline(out, manifest, style);
    std::size_t id = 0;
    for (const auto* sets : {&manifest.sets, &style.extraSets}) {
        for (const MediaSet& set : *sets) {
            AppendSet(out, manifest, style, id++, set);
        }
    }
    out += "</Period>\n</MPD>\n";
    return out;
}

}  // namespace kvmpd::origin
