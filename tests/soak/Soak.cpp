#include "tests/soak/Soak.h"

#include <cstdio>

namespace kvmpd::test {

void Soak::Fail(const std::string& what, const std::deque<std::string>& lastActions) {
    const std::lock_guard lock(m_mutex);
    if (m_failed.exchange(true)) {
        return;
    }
    std::fprintf(stderr, "FAILED with --seed %llu: %s\n", static_cast<unsigned long long>(m_options.seed),
                 what.c_str());
    if (!lastActions.empty()) {
        std::fprintf(stderr, "the last %zu actions of that source:\n", lastActions.size());
    }
    for (const std::string& action : lastActions) {
        std::fprintf(stderr, "  %s\n", action.c_str());
    }
}

void Soak::NoteStop(std::chrono::milliseconds took) {
    const std::lock_guard lock(m_mutex);
    m_stopTimes.push_back(took);
}

std::vector<std::chrono::milliseconds> Soak::StopTimes() const {
    const std::lock_guard lock(m_mutex);
    return m_stopTimes;
}

void Soak::NoteAction(const std::string& kind) {
    ++m_totals.actions;
    const std::lock_guard lock(m_mutex);
    ++m_actions[kind];
}

std::map<std::string, std::uint64_t> Soak::Actions() const {
    const std::lock_guard lock(m_mutex);
    return m_actions;
}

std::map<unsigned, std::uint64_t> Soak::Delivered() const {
    std::map<unsigned, std::uint64_t> delivered;
    for (const auto& [source, count] : m_delivered) {
        delivered[source] = count;
    }
    return delivered;
}

}  // namespace kvmpd::test
