#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace kvmpd::origin {

// One segment on the timeline. Media time counts from 0 at the availability start, in milliseconds.
struct SegmentTime {
    std::int64_t number = 0;
    std::int64_t startMs = 0;
    std::uint32_t durationMs = 0;

    std::int64_t EndMs() const { return startMs + durationMs; }
    bool operator==(const SegmentTime&) const = default;
};

struct TimelineOptions {
    // Number of the first segment ever.
    std::int64_t startNumber = 1;
    // Durations of the segments, used in turn and again from the front. Not empty, none 0.
    std::vector<std::uint32_t> durationsMs{2000};
    // The list slides when either bound is set and grows for ever when both are 0.
    std::size_t windowSegments = 0;
    std::int64_t windowMs = 0;
};

// The list of segments of a live stream: which exist, and which of them the manifest lists. A value: no clock, no
// thread, no lock; whoever holds it moves it on.
class LiveTimeline {
  public:
    // Starts with no segment published. Throws std::invalid_argument for a pattern that is empty or holds a 0.
    explicit LiveTimeline(TimelineOptions options = {});

    // Publishes the next `count` segments with the durations of the pattern.
    void Advance(std::size_t count = 1);

    // Publishes one segment of this duration (not 0), whatever the pattern says for it.
    void Append(std::uint32_t durationMs);

    // Publishes every segment that has ended by this media time; returns how many that were.
    std::size_t AdvanceTo(std::int64_t elapsedMs);

    bool Empty() const { return published_.empty(); }

    // First and last number of the list. On an empty timeline the first is the start number and the last one below it.
    std::int64_t FirstNumber() const;
    std::int64_t LastNumber() const;

    // Number of segments the manifest lists, and those segments, oldest first.
    std::size_t Count() const { return published_.size() - firstListed_; }
    std::vector<SegmentTime> Window() const;

    // The segment of this number when it has been published, listed or not.
    std::optional<SegmentTime> Find(std::int64_t number) const;

    // The segment that Advance(1) would publish.
    SegmentTime Upcoming() const;

    // Media time of the live edge: the end of the last published segment.
    std::int64_t EndMs() const;

    const TimelineOptions& Options() const { return options_; }

  private:
    void Slide();

    TimelineOptions options_;
    std::vector<SegmentTime> published_;
    std::size_t firstListed_ = 0;
    std::int64_t listedMs_ = 0;
};

}  // namespace kvmpd::origin
