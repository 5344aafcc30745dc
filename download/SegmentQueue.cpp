#include "download/SegmentQueue.h"

#include <utility>

#include "common/Log.h"

namespace kvmpd {

SegmentQueue::SegmentQueue(LONG capacity) : m_capacity(capacity) {
    Log(4, L" SegmentQueue::SegmentQueue ");
}

SegmentQueue::~SegmentQueue() {
    Log(4, L" SegmentQueue::~SegmentQueue ");
    close();
    const MutexLock lock(m_mutex);
    while (m_waiting > 0) {
        m_nobodyWaits.Wait(m_mutex);
    }
}

/// One wait of a push or a pop. One that begins after the close would find nobody left to wake it.
void SegmentQueue::WaitUnlessClosed(CondVar& condition) {
    if (m_closed) {
        return;
    }
    ++m_waiting;
    condition.Wait(m_mutex);
    if (--m_waiting == 0) {
        m_nobodyWaits.NotifyAll();
    }
}

void SegmentQueue::push(std::shared_ptr<Segment> segment) {
    const MutexLock lock(m_mutex);
    while (m_capacity > 0 && m_segments.size() >= static_cast<size_t>(m_capacity)) {
        WaitUnlessClosed(m_notFull);
        if (m_closed) {
            return;
        }
    }
    m_lastQueued = segment->m_segmentNumber;
    m_segments.push_back(std::move(segment));
    m_notEmpty.NotifyOne();
}

std::shared_ptr<Segment> SegmentQueue::pop() {
    const MutexLock lock(m_mutex);
    while (m_segments.empty()) {
        WaitUnlessClosed(m_notEmpty);
        if (m_closed) {
            return nullptr;
        }
    }
    std::shared_ptr<Segment> segment = std::move(m_segments.front());
    m_segments.pop_front();
    m_notFull.NotifyOne();
    return segment;
}

void SegmentQueue::clear() {
    std::deque<std::shared_ptr<Segment>> dropped;  // destroyed after the lock is left: a segment deletes files
    const MutexLock lock(m_mutex);
    dropped.swap(m_segments);
}

int SegmentQueue::WaitingThreads() {
    const MutexLock lock(m_mutex);
    return m_waiting;
}

void SegmentQueue::close() {
    Log(4, L" SegmentQueue::close ");
    const MutexLock lock(m_mutex);
    m_closed = true;
    m_notEmpty.NotifyAll();
    m_notFull.NotifyAll();
}

}  // namespace kvmpd
