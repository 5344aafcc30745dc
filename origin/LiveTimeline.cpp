#include "origin/LiveTimeline.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace kvmpd::origin {

LiveTimeline::LiveTimeline(TimelineOptions options) : options_(std::move(options)) {
    if (options_.durationsMs.empty() || std::ranges::count(options_.durationsMs, 0u) > 0) {
        throw std::invalid_argument("a timeline needs segment durations above 0");
    }
}

void LiveTimeline::Advance(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        Append(Upcoming().durationMs);
    }
}

void LiveTimeline::Append(std::uint32_t durationMs) {
    if (durationMs == 0) {
        throw std::invalid_argument("a segment needs a duration above 0");
    }
    SegmentTime segment = Upcoming();
    segment.durationMs = durationMs;
    published_.push_back(segment);
    listedMs_ += durationMs;
    Slide();
}

std::size_t LiveTimeline::AdvanceTo(std::int64_t elapsedMs) {
    std::size_t count = 0;
    while (Upcoming().EndMs() <= elapsedMs) {
        Advance();
        ++count;
    }
    return count;
}

std::int64_t LiveTimeline::FirstNumber() const {
    return options_.startNumber + static_cast<std::int64_t>(firstListed_);
}

std::int64_t LiveTimeline::LastNumber() const {
    return options_.startNumber + static_cast<std::int64_t>(published_.size()) - 1;
}

std::vector<SegmentTime> LiveTimeline::Window() const {
    return {published_.begin() + static_cast<std::ptrdiff_t>(firstListed_), published_.end()};
}

std::optional<SegmentTime> LiveTimeline::Find(std::int64_t number) const {
    if (number < options_.startNumber || number > LastNumber()) {
        return std::nullopt;
    }
    return published_[static_cast<std::size_t>(number - options_.startNumber)];
}

SegmentTime LiveTimeline::Upcoming() const {
    const std::size_t index = published_.size();
    return {options_.startNumber + static_cast<std::int64_t>(index), EndMs(),
            options_.durationsMs[index % options_.durationsMs.size()]};
}

std::int64_t LiveTimeline::EndMs() const {
    return published_.empty() ? 0 : published_.back().EndMs();
}

// The newest segment stays listed even when it alone is longer than the window.
void LiveTimeline::Slide() {
    const auto tooMany = [this] { return options_.windowSegments != 0 && Count() > options_.windowSegments; };
    const auto tooLong = [this] { return options_.windowMs != 0 && listedMs_ > options_.windowMs && Count() > 1; };
    while (tooMany() || tooLong()) {
        listedMs_ -= published_[firstListed_].durationMs;
        ++firstListed_;
    }
}

}  // namespace kvmpd::origin
