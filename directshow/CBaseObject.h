// The count that decides whether the module may be unloaded: live objects and server locks.

#pragma once

#include "platform/com.h"

namespace kvmpd {

// Base of everything whose life keeps the module loaded.
class CBaseObject {
  public:
    CBaseObject(const CBaseObject&) = delete;
    CBaseObject& operator=(const CBaseObject&) = delete;

    // Both may be called from any thread. Their answers are a moment's: they say nothing about the next.
    static LONG ObjectsActive();
    static LONG ServerLocks();

    // IClassFactory::LockServer.
    static void LockServer(BOOL lock);

  protected:
    CBaseObject();
    ~CBaseObject();
};

}  // namespace kvmpd
