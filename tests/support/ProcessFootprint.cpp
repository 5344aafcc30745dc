#include "tests/support/ProcessFootprint.h"

#include <chrono>
#include <thread>

namespace kvmpd::test {

std::optional<ProcessFootprint> ProcessFootprint::Settled(const ProcessFootprint& bound) {
    std::optional<ProcessFootprint> now = Now();
    for (int i = 0; i < 200 && now && now->descriptors > bound.descriptors; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        now = Now();
    }
    return now;
}

}  // namespace kvmpd::test
