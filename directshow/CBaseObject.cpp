#include "directshow/CBaseObject.h"

#include <atomic>

namespace kvmpd {

namespace {
std::atomic<LONG> g_objects{0};
std::atomic<LONG> g_serverLocks{0};
}  // namespace

CBaseObject::CBaseObject() {
    ++g_objects;
}

CBaseObject::~CBaseObject() {
    --g_objects;
}

LONG CBaseObject::ObjectsActive() {
    return g_objects;
}

LONG CBaseObject::ServerLocks() {
    return g_serverLocks;
}

void CBaseObject::LockServer(BOOL lock) {
    g_serverLocks += lock ? 1 : -1;
}

}  // namespace kvmpd
