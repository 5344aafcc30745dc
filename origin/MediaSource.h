#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "origin/LiveTimeline.h"

namespace kvmpd::origin {

// What the manifest says of one quality. A field that is 0 or empty is left out of the manifest.
struct Representation {
    int id = 0;                   // unique in the manifest, above 0
    std::uint32_t bandwidth = 0;  // bits per second
    std::uint32_t width = 0;      // pixels
    std::uint32_t height = 0;
    std::string frameRate;  // "25" or "30000/1001"
    std::string codecs;     // RFC 6381, "avc1.64001f"
    std::uint32_t audioSamplingRate = 0;
    std::uint32_t audioChannels = 0;
    std::string extension;  // of the media names, ".mp4"
};

// One AdaptationSet: representations of the same content and kind.
struct MediaSet {
    std::string mimeType;
    std::vector<Representation> representations;
};

using Bytes = std::shared_ptr<const std::string>;

// Where the segments' bytes come from. The origin calls from its connection threads and from the thread that moves the
// timeline on, several at a time; an implementation locks for itself.
class MediaSource {
  public:
    virtual ~MediaSource() = default;

    // Constant over the life of the source, audio first.
    virtual const std::vector<MediaSet>& Sets() const = 0;

    // The bytes of one segment: the same bytes each time it is asked for. nullptr when there are none, which the client
    // sees as status 404. May block while the segment is being made.
    virtual Bytes Segment(int representationId, const SegmentTime& segment) = 0;

    // Says that `upcoming` will be published next, so that it can be made ahead of time.
    virtual void Prepare(const SegmentTime& /*upcoming*/) {}

    // Says that no segment before this one will be asked for again.
    virtual void Forget(const SegmentTime& /*oldestKept*/) {}

    // Makes every blocked call of Segment and Prepare return soon, and later ones at once. Final.
    virtual void Close() {}
};

}  // namespace kvmpd::origin
