// The blocking queue through which the manifest loader hands new segments to the segment downloader.
//
// Closed means: every wait ends, and nothing new is waited for. Closing does not drain: a closed queue hands out what
// it holds, then empty pointers. Any number of threads may call any operation; the destructor closes the queue and
// waits until the threads that sleep in it have left.
#pragma once

#include <deque>
#include <memory>

#include "common/Locks.h"
#include "download/Segment.h"

namespace kvmpd {

class SegmentQueue {
  public:
    /// `capacity`: most segments that wait; 0 or less is unbounded.
    explicit SegmentQueue(LONG capacity);
    virtual ~SegmentQueue();
    SegmentQueue(const SegmentQueue&) = delete;
    SegmentQueue& operator=(const SegmentQueue&) = delete;

    /// Appends `segment`; while a bounded queue is full, waits for a pop. A closed queue that is full drops the
    /// segment, also when it is closed during that wait; a push into a closed queue with room succeeds.
    void push(std::shared_ptr<Segment> segment);

    /// Takes the oldest segment, waiting for one without a time-out; empty when the queue was closed meanwhile.
    std::shared_ptr<Segment> pop();

    /// Drops every queued segment. Wakes nobody.
    void clear();

    /// Ends every wait.
    void close();

    /// How many threads sleep in push or pop at this moment: for tests, and for whoever debugs a stall.
    int WaitingThreads();

  private:
    void WaitUnlessClosed(CondVar& condition) REQUIRES(m_mutex);

    const LONG m_capacity;
    Mutex m_mutex;
    CondVar m_notEmpty;
    CondVar m_notFull;
    CondVar m_nobodyWaits;
    LONGLONG m_lastQueued GUARDED_BY(m_mutex) = 0;  // number of the segment pushed last, for whoever debugs a stall
    bool m_closed GUARDED_BY(m_mutex) = false;
    int m_waiting GUARDED_BY(m_mutex) = 0;  // threads inside a wait of push or pop
    std::deque<std::shared_ptr<Segment>> m_segments GUARDED_BY(m_mutex);
};

}  // namespace kvmpd
