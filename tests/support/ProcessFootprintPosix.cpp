#include <filesystem>
#include <iterator>

#include "tests/support/ProcessFootprint.h"

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

}  // namespace kvmpd::test
