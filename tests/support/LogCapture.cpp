#include "tests/support/LogCapture.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "common/Log.h"
#include "common/Text.h"

namespace kvmpd::test {
namespace {

std::mutex g_mutex;
std::condition_variable g_changed;
std::vector<std::string> g_lines;
bool g_capturing = false;

void Append(std::string line) {
    constexpr std::string_view prefix = "[MpdSrc]";
    if (line.starts_with(prefix)) {
        line.erase(0, prefix.size());
    }
    if (line.ends_with('\n')) {
        line.pop_back();
    }
    const std::lock_guard lock(g_mutex);
    if (g_capturing) {
        g_lines.push_back(std::move(line));
        g_changed.notify_all();
    }
}

}  // namespace

LogCapture::LogCapture(LONG level) {
    {
        const std::lock_guard lock(g_mutex);
        g_lines.clear();
        g_capturing = true;
    }
    LogTestHooks::Redirect([](const char* line) { Append(line); },
                           [](const wchar_t* line) { Append(WideToUtf8(line)); });
    LogTestHooks::SetLevel(level);
}

LogCapture::~LogCapture() {
    LogTestHooks::SetLevel(0);
    LogTestHooks::Redirect(nullptr, nullptr);
    const std::lock_guard lock(g_mutex);
    g_capturing = false;
}

std::vector<std::string> LogCapture::Lines() const {
    const std::lock_guard lock(g_mutex);
    return g_lines;
}

bool LogCapture::Contains(std::string_view text) const {
    return Count(text) > 0;
}

size_t LogCapture::Count(std::string_view text) const {
    const std::lock_guard lock(g_mutex);
    return static_cast<size_t>(std::ranges::count(g_lines, text));
}

size_t LogCapture::CountPrefix(std::string_view text) const {
    const std::lock_guard lock(g_mutex);
    return static_cast<size_t>(
        std::ranges::count_if(g_lines, [&](const std::string& l) { return l.starts_with(text); }));
}

bool LogCapture::WaitForPrefix(std::string_view text, size_t count, int milliseconds) const {
    std::unique_lock lock(g_mutex);
    return g_changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] {
        return static_cast<size_t>(std::ranges::count_if(
                   g_lines, [&](const std::string& line) { return line.starts_with(text); })) >= count;
    });
}

void LogCapture::Clear() {
    const std::lock_guard lock(g_mutex);
    g_lines.clear();
}

}  // namespace kvmpd::test
