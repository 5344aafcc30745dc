#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "origin/LiveOrigin.h"

namespace kvmpd::origin {

// Moves an origin's timeline on with the wall clock: a segment is published when it has ended, counted from the
// origin's availability start, and the media source is asked to prepare the next one. Steps of the system's clock after
// Start have no effect.
class LiveClock {
  public:
    // Called on the clock's thread after segments were published.
    using Published = std::function<void(const SegmentTime& last)>;

    explicit LiveClock(LiveOrigin& origin, Published published = {});
    ~LiveClock();  // stops
    LiveClock(const LiveClock&) = delete;
    LiveClock& operator=(const LiveClock&) = delete;

    // Publishes at once what has ended already, then goes on by itself.
    void Start();
    void Stop();

  private:
    void Run();

    LiveOrigin& origin_;
    const Published published_;
    std::thread thread_;

    // mutex_ guards stopping_.
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
};

}  // namespace kvmpd::origin
