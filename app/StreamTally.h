// What a stream's events tell of its media before any of it is read: how much was stored, and how much of it could not
// be downloaded. Of use where media is missing, above all at the end, where nothing comes behind it that would show how
// much that is.
//
// Any thread. Guarded by a mutex of its own that is never held for long, so that the component's thread is not held up
// by a recording that is held up by its output.

#pragma once

#include <cstdint>
#include <mutex>

namespace kvmpd::app {

class StreamTally {
  public:
    // Counted up over all sources.
    struct Totals {
        std::int64_t failed = 0;       // segments that could not be downloaded
        std::int64_t failedAside = 0;  // of these the first, which nothing can be missing for any more
        std::int64_t storedUs = 0;     // media, or what came in its place
        std::int64_t segmentUs = 0;    // length of the newest segment; 0: not known
    };

    // The source that comes next asks once more for what those before it did not get, and for some that they did. So
    // its failures count from the first segment that it has stored: then all that failed before lies behind.
    void SourceBegins() {
        const std::lock_guard lock(m_mutex);
        m_first = !m_anySource;
        m_anySource = true;
        m_stored = false;
        m_bufferedUs = 0;
    }
    void SegmentLasts(std::int64_t us) {
        const std::lock_guard lock(m_mutex);
        m_totals.segmentUs = us;
    }
    // Downloaded up to here on the source's own time line.
    void Buffered(std::int64_t us) {
        const std::lock_guard lock(m_mutex);
        if (us <= m_bufferedUs) {
            return;
        }
        m_totals.storedUs += us - m_bufferedUs;
        m_bufferedUs = us;
        if (!m_stored) {
            m_stored = true;
            m_totals.failedAside = m_totals.failed;
        }
    }
    void Failed() {
        const std::lock_guard lock(m_mutex);
        m_totals.failed += m_stored || m_first ? 1 : 0;
    }

    Totals Now() const {
        const std::lock_guard lock(m_mutex);
        return m_totals;
    }

  private:
    mutable std::mutex m_mutex;
    // Guarded by m_mutex:
    Totals m_totals;
    std::int64_t m_bufferedUs = 0;  // of the present source
    bool m_stored = false;          // it has stored something
    bool m_first = true;            // there was none before it
    bool m_anySource = false;
};

}  // namespace kvmpd::app
