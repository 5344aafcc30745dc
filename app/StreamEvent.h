// What the component tells its host, as values that can be queued, printed and written as JSON.

#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace kvmpd::app {

struct ManifestEvent {
    enum class Result { kLoaded, kMalformed, kFailed };
    Result result = Result::kLoaded;
    std::int32_t durationMs = 0;  // after success: how long the newest segment lasts
};

struct QualityListEvent {
    std::string text;  // UTF-8, in the form that ParseQualityList reads
};

struct QualityChosenEvent {
    std::int32_t id = 0;
};

// reset: the stream went back to its live edge; seek: a seek is done. Either way byte positions restart at 0. Neither:
// a preferred delay was set that does not move the stream now.
struct PositionEvent {
    bool reset = false;
    bool seek = false;
    bool PositionsRestart() const { return reset || seek; }
};

struct DownloadFailedEvent {};

// Milliseconds on the stream's own time line, which begins with the first segment that was queued.
struct BufferingEvent {
    std::int64_t play = 0;
    std::int64_t buffered = 0;
    std::int64_t total = 0;
};

// An id that this host does not know; a newer component may send it.
struct UnknownEvent {
    std::uint32_t id = 0;
};

using StreamEvent = std::variant<ManifestEvent, QualityListEvent, QualityChosenEvent, PositionEvent,
                                 DownloadFailedEvent, BufferingEvent, UnknownEvent>;

// False for what only answers this host itself: the delay that every source is given and that wakes it.
bool WorthTelling(const StreamEvent& event);

// A sentence for a person, without a line feed.
std::string DescribeEvent(const StreamEvent& event);

// One JSON object. sinceStartMs: when it was received, counted from the start of the command.
std::string EventJson(const StreamEvent& event, std::int64_t sinceStartMs);

// Receives events on the component's delivery thread; must not block for long.
class EventSink {
  public:
    virtual void OnEvent(const StreamEvent& event) = 0;

  protected:
    ~EventSink() = default;
};

}  // namespace kvmpd::app
