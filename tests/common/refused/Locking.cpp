// Compiled for its syntax only, one case at a time: case 0 is accepted, every other is refused by clang's analysis.
#include "common/Locks.h"

class Counter {
  public:
#if KV_CASE == 0
    void Raise() {
        const kvmpd::MutexLock lock(m_mutex);
        ++m_count;
        m_raised.Wait(m_mutex);
        const kvmpd::CritSecLock sectionLock(m_section);
        ++m_entered;
    }
#elif KV_CASE == 1
    void Raise() {
        ++m_count;
    }
#elif KV_CASE == 2
    void Raise() {
        const kvmpd::MutexLock lock(m_mutex);
        ++m_entered;
    }
#elif KV_CASE == 3
    void Raise() {
        m_mutex.Lock();
    }
#elif KV_CASE == 4
    void Raise() {
        const kvmpd::MutexLock lock(m_mutex);
        m_mutex.Lock();
        m_mutex.Unlock();
    }
#elif KV_CASE == 5
    void Raise() {
        m_raised.Wait(m_mutex);
    }
#endif

  private:
    kvmpd::Mutex m_mutex;
    kvmpd::CondVar m_raised;
    kvmpd::CritSec m_section;
    int m_count GUARDED_BY(m_mutex) = 0;
    int m_entered GUARDED_BY(m_section) = 0;
};

void Case(Counter& counter) {
    counter.Raise();
}
