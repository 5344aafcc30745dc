// What a faulty origin is made of; for its own sources only.
#pragma once

#include <memory>
#include <optional>
#include <thread>

#include "tests/faults/FaultOrigin.h"
#include "tests/faults/StandIns.h"

namespace kvmpd::test {

struct FaultOrigin::Connection {
    std::unique_ptr<Socket> socket;  // guarded by the origin's mutex
    std::thread thread;
    bool ended = false;  // guarded by the origin's mutex
};

struct FaultOrigin::Door {
    explicit Door(Target what) : target(what) {}
    const Target target;
    Listener listener;
    std::thread thread;
    std::optional<Place> awaited;  // of the request to come, told of by its look-up; guarded by the origin's mutex
    std::unique_ptr<NameStandIn> name;
    std::unique_ptr<PortStandIn> port;
};

}  // namespace kvmpd::test
