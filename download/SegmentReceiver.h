// What the downloader asks of the engine that owns it.
#pragma once

#include <memory>

#include "download/Segment.h"

namespace kvmpd {

/// All calls come on the downloader thread, without a lock held.
class SegmentReceiver {
  public:
    /// Whether `segment` belongs to the stream that is played now. One that does not is not fetched.
    virtual bool IsWanted(const Segment& segment) = 0;

    /// Takes a segment whose two files are complete, or the end marker. May block while the cache is full.
    virtual void PushSegmentToCache(std::shared_ptr<Segment> segment) = 0;

    /// A segment could not be downloaded and is dropped.
    virtual void OnSegmentFailed() = 0;

  protected:
    ~SegmentReceiver() = default;
};

}  // namespace kvmpd
