// Waiting for one, any or all of several objects: one mechanism for every kind.
//
// One lock guards the signal state of all waitable objects and every wait in progress. Whoever signals an object serves
// the waits on it there and then: it finds out which of them are satisfied, takes for them what they take (an
// auto-reset event, a count of a semaphore) and only then wakes their threads. So a signal cannot be lost between a
// check and a sleep, an auto-reset event releases exactly one wait, a wait for all takes all or nothing, nobody can
// overtake a thread that has been served but not yet run, and no thread ever wakes just to look.
#ifndef PLATFORM_POSIX_WAITS_H_
#define PLATFORM_POSIX_WAITS_H_

#include "platform/posix/annotated_lock.h"
#include "platform/posix/handles.h"

namespace kvmpd::platform {

// A leaf: nothing is called under it but the Waitable members that require it.
extern Lock g_waitLock;

struct WaitLink;

class Waitable : public KernelObject {
  public:
    virtual bool IsSignalled() const PLATFORM_REQUIRES(g_waitLock) = 0;

    // What a satisfied wait does to the object, which is signalled. The default is nothing: it stays signalled.
    virtual void TakeSignal() PLATFORM_REQUIRES(g_waitLock) {}

    // Called on the waiting thread, without the lock, after a wait was satisfied by this object.
    virtual void AfterWait() {}

    // To be called whenever the object may have become signalled: serves the waits on it, oldest first, as far as the
    // signal goes.
    void ServeWaits() PLATFORM_REQUIRES(g_waitLock);

  private:
    friend class Wait;

    void Append(WaitLink& link) PLATFORM_REQUIRES(g_waitLock);
    void Remove(WaitLink& link) PLATFORM_REQUIRES(g_waitLock);

    WaitLink* m_oldest PLATFORM_GUARDED_BY(g_waitLock) = nullptr;
    WaitLink* m_youngest PLATFORM_GUARDED_BY(g_waitLock) = nullptr;
};

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_WAITS_H_
