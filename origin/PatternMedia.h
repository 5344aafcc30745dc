#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "origin/MediaSource.h"

namespace kvmpd::origin {

struct PatternOptions {
    // Sets and their representations; empty: one audio representation (id 1) and three videos (ids 360, 720, 1080).
    std::vector<MediaSet> sets{};
    // Bytes of segment `number` of a representation; empty: bandwidth x duration. The duration is 0 where it is not
    // known.
    std::function<std::size_t(int representationId, const SegmentTime& segment)> size{};
};

// Segments that are no media: every byte can be recomputed from representation, segment number and offset, so that a
// test can tell exactly which byte of which segment it was given. Costs no memory between requests.
class PatternMedia final : public MediaSource {
  public:
    explicit PatternMedia(PatternOptions options = {});

    // The sets used when the options name none.
    static std::vector<MediaSet> DefaultSets();

    // Bytes [offset, offset + length) of a segment, whatever its size.
    static std::string Range(int representationId, std::int64_t number, std::uint64_t offset, std::size_t length);

    std::size_t Size(int representationId, const SegmentTime& segment) const;

    // MediaSource
    const std::vector<MediaSet>& Sets() const override { return sets_; }
    Bytes Segment(int representationId, const SegmentTime& segment) override;

  private:
    // Constant after construction.
    std::vector<MediaSet> sets_;
    std::function<std::size_t(int, const SegmentTime&)> size_;
};

}  // namespace kvmpd::origin
