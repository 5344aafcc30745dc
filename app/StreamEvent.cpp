#include "app/StreamEvent.h"

#include "app/Json.h"
#include "app/QualityList.h"
#include "app/Text.h"

namespace kvmpd::app {
namespace {

std::string Seconds(std::int64_t milliseconds) {
    return Format("%.3f s", static_cast<double>(milliseconds) / 1000);
}

struct Describer {
    std::string operator()(const ManifestEvent& event) const {
        switch (event.result) {
            case ManifestEvent::Result::kLoaded:
                return "manifest loaded, with new segments; the newest lasts " + Seconds(event.durationMs);
            case ManifestEvent::Result::kMalformed:
                return "a manifest came, but not of the shape that can be followed";
            case ManifestEvent::Result::kFailed:
                break;
        }
        return "the manifest could not be loaded: no answer, no manifest, or too large a one";
    }
    std::string operator()(const QualityListEvent& event) const {
        const auto qualities = ParseQualityList(event.text);
        if (!qualities) {
            return "the list of video qualities cannot be read: " + event.text;
        }
        return Format("the manifest offers %zu video %s", qualities->size(),
                      qualities->size() == 1 ? "quality" : "qualities");
    }
    std::string operator()(const QualityChosenEvent& event) const {
        return Format("video quality %d was chosen", static_cast<int>(event.id));
    }
    std::string operator()(const PositionEvent& event) const {
        if (event.reset) {
            return "the stream was reset to its live edge; positions restart at 0";
        }
        return event.seek ? "a seek is done; positions restart at 0"
                          : "a preferred delay was set; the stream stays where it is";
    }
    std::string operator()(const DownloadFailedEvent&) const {
        return "a segment could not be downloaded; the stream goes on with the next one";
    }
    std::string operator()(const BufferingEvent& event) const {
        return "cached from " + FormatClock(event.play, true) + " to " + FormatClock(event.buffered, true) + " of " +
               FormatClock(event.total, true);
    }
    std::string operator()(const UnknownEvent& event) const {
        return Format("event %u, which this program does not know", static_cast<unsigned>(event.id));
    }
};

struct JsonWriter {
    JsonLine& line;

    void operator()(const ManifestEvent& event) const {
        const bool loaded = event.result == ManifestEvent::Result::kLoaded;
        line.Text("event", "manifest");
        line.Text("result", loaded                                              ? "loaded"
                            : event.result == ManifestEvent::Result::kMalformed ? "malformed"
                                                                                : "failed");
        if (loaded) {
            line.Number("segment_ms", event.durationMs);
        }
    }
    void operator()(const QualityListEvent& event) const {
        line.Text("event", "qualities");
        if (const auto qualities = ParseQualityList(event.text)) {
            line.Raw("qualities", QualityListJson(*qualities));
        } else {
            line.Text("text", event.text);
        }
    }
    void operator()(const QualityChosenEvent& event) const { line.Text("event", "quality").Number("id", event.id); }
    void operator()(const PositionEvent& event) const {
        line.Text("event", "position").Bool("reset", event.reset).Bool("seek", event.seek);
    }
    void operator()(const DownloadFailedEvent&) const { line.Text("event", "download_failed"); }
    void operator()(const BufferingEvent& event) const {
        line.Text("event", "buffering")
            .Number("play_ms", event.play)
            .Number("buffered_ms", event.buffered)
            .Number("total_ms", event.total);
    }
    void operator()(const UnknownEvent& event) const { line.Text("event", "unknown").Number("id", event.id); }
};

}  // namespace

bool WorthTelling(const StreamEvent& event) {
    const auto* position = std::get_if<PositionEvent>(&event);
    return position == nullptr || position->PositionsRestart();
}

std::string DescribeEvent(const StreamEvent& event) {
    return std::visit(Describer{}, event);
}

std::string EventJson(const StreamEvent& event, std::int64_t sinceStartMs) {
    JsonLine line;
    line.Text("type", "event").Seconds("time", sinceStartMs);
    std::visit(JsonWriter{line}, event);
    return line.Str();
}

}  // namespace kvmpd::app
