#include "tests/support/ProcessFootprint.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

namespace kvmpd::test {
namespace {

size_t CountEntries(const char* folder) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(folder, error);
    return error ? 0 : static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace

std::optional<ProcessFootprint> ProcessFootprint::Now() {
    const ProcessFootprint footprint{CountEntries("/proc/self/task"), CountEntries("/proc/self/fd")};
    return footprint.threads == 0 ? std::nullopt : std::optional(footprint);
}

std::optional<ProcessFootprint> ProcessFootprint::Settled(const ProcessFootprint& bound) {
    std::optional<ProcessFootprint> now = Now();
    for (int i = 0; i < 200 && now && now->descriptors > bound.descriptors; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        now = Now();
    }
    return now;
}

}  // namespace kvmpd::test
