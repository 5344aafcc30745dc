// The list of video qualities, as the component's text event gives it:
//   {11:{'height': 720,'width': 1280,'bandwidth': 2500000,'frameRate': 30}, 12:{...}}
// The text looks like a dictionary literal, not like JSON: ids are bare numbers, keys stand in single quotes.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvmpd::app {

struct VideoQuality {
    std::int64_t id = 0;
    std::int64_t height = 0;
    std::int64_t width = 0;
    std::int64_t bandwidth = 0;  // bits per second
    std::int64_t frameRate = 0;

    bool operator==(const VideoQuality&) const = default;
};

// Blanks between tokens are of no account; unknown keys with a number are skipped, so that a newer component may say
// more. Nothing for any other text.
std::optional<std::vector<VideoQuality>> ParseQualityList(std::string_view text);

// One line per quality under a heading, every line ended by a line feed. chosen: its line is marked.
std::string FormatQualityTable(const std::vector<VideoQuality>& qualities, std::optional<std::int64_t> chosen);

// A JSON array of objects.
std::string QualityListJson(const std::vector<VideoQuality>& qualities);

}  // namespace kvmpd::app
