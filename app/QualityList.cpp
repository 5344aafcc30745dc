#include "app/QualityList.h"

#include <charconv>

#include "app/Json.h"
#include "app/Text.h"

namespace kvmpd::app {
namespace {

class Scanner {
  public:
    explicit Scanner(std::string_view text) : m_text(text) {}

    bool Take(char c) {
        SkipBlanks();
        if (m_text.empty() || m_text.front() != c) {
            return false;
        }
        m_text.remove_prefix(1);
        return true;
    }

    std::optional<std::int64_t> Number() {
        SkipBlanks();
        std::int64_t value = 0;
        const auto [end, error] = std::from_chars(m_text.data(), m_text.data() + m_text.size(), value);
        if (error != std::errc{}) {
            return std::nullopt;
        }
        m_text.remove_prefix(static_cast<std::size_t>(end - m_text.data()));
        return value;
    }

    std::optional<std::string_view> Key() {
        if (!Take('\'')) {
            return std::nullopt;
        }
        const std::size_t end = m_text.find('\'');
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        const std::string_view key = m_text.substr(0, end);
        m_text.remove_prefix(end + 1);
        return key;
    }

    bool AtEnd() {
        SkipBlanks();
        return m_text.empty();
    }

  private:
    void SkipBlanks() {
        while (!m_text.empty() && m_text.front() == ' ') {
            m_text.remove_prefix(1);
        }
    }

    std::string_view m_text;
};

bool ParseFields(Scanner& scanner, VideoQuality& quality) {
    if (!scanner.Take('{')) {
        return false;
    }
    if (scanner.Take('}')) {
        return true;
    }
    do {
        const auto key = scanner.Key();
        if (!key || !scanner.Take(':')) {
            return false;
        }
        const auto value = scanner.Number();
        if (!value) {
            return false;
        }
        if (*key == "height") {
            quality.height = *value;
        } else if (*key == "width") {
            quality.width = *value;
        } else if (*key == "bandwidth") {
            quality.bandwidth = *value;
        } else if (*key == "frameRate") {
            quality.frameRate = *value;
        }
    } while (scanner.Take(','));
    return scanner.Take('}');
}

}  // namespace

std::optional<std::vector<VideoQuality>> ParseQualityList(std::string_view text) {
    Scanner scanner(text);
    std::vector<VideoQuality> qualities;
    if (!scanner.Take('{')) {
        return std::nullopt;
    }
    if (!scanner.Take('}')) {
        do {
            VideoQuality quality;
            const auto id = scanner.Number();
            if (!id || !scanner.Take(':') || !ParseFields(scanner, quality)) {
                return std::nullopt;
            }
            quality.id = *id;
            qualities.push_back(quality);
        } while (scanner.Take(','));
        if (!scanner.Take('}')) {
            return std::nullopt;
        }
    }
    if (!scanner.AtEnd()) {
        return std::nullopt;
    }
    return qualities;
}

std::string FormatQualityTable(const std::vector<VideoQuality>& qualities, std::optional<std::int64_t> chosen) {
    if (qualities.empty()) {
        return "  the manifest lists no video quality\n";
    }
    std::string table = Format("  %8s  %-11s %14s %6s\n", "id", "picture", "bit rate", "fps");
    for (const VideoQuality& quality : qualities) {
        const std::string picture = std::to_string(quality.width) + "x" + std::to_string(quality.height);
        const bool isChosen = chosen && *chosen == quality.id;
        table += Format("%s %8lld  %-11s %14s %6lld%s\n", isChosen ? "*" : " ", static_cast<long long>(quality.id),
                        picture.c_str(), FormatBitRate(quality.bandwidth).c_str(),
                        static_cast<long long>(quality.frameRate), isChosen ? "  chosen" : "");
    }
    return table;
}

std::string QualityListJson(const std::vector<VideoQuality>& qualities) {
    std::string json = "[";
    for (const VideoQuality& quality : qualities) {
        json += json.size() > 1 ? "," : "";
        json += JsonLine()
                    .Number("id", quality.id)
                    .Number("height", quality.height)
                    .Number("width", quality.width)
                    .Number("bandwidth", quality.bandwidth)
                    .Number("frame_rate", quality.frameRate)
                    .Str();
    }
    return json + "]";
}

}  // namespace kvmpd::app
