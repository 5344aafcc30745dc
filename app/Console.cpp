#include "app/Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "app/Json.h"

namespace kvmpd::app {
namespace {

constexpr auto kPlainInterval = std::chrono::seconds(3);

std::size_t TerminalColumns() {
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col - 1u : 79u;
}

}  // namespace

Console::Console(const Options& options)
    : m_options(options), m_refresh(!options.plainProgress && ::isatty(STDERR_FILENO) != 0) {}

void Console::Print(std::FILE* file, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), file);
    if (text.empty() || text.back() != '\n') {
        std::fputc('\n', file);
    }
    std::fflush(file);
}

void Console::ClearLine() {
    if (m_lineShown) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        m_lineShown = false;
    }
}

void Console::Say(std::string_view text) {
    if (m_options.quiet || m_options.json) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    ClearLine();
    Print(m_options.recordingOnStdout ? stderr : stdout, text);
}

void Console::SayJson(std::string_view line) {
    if (!m_options.json) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    ClearLine();
    Print(m_options.recordingOnStdout ? stderr : stdout, line);
}

void Console::Error(const std::string& sentence) {
    SayJson(JsonLine().Text("type", "error").Text("text", sentence).Str());
    if (m_options.json && m_options.recordingOnStdout) {
        return;  // standard error carries JSON lines only
    }
    const std::lock_guard lock(m_mutex);
    ClearLine();
    Print(stderr, "kvmpd: " + sentence);
}

void Console::Progress(const std::string& line, bool last) {
    if (m_options.quiet || m_options.json) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    if (m_refresh) {
        std::fputs("\r\033[K", stderr);
        const std::string_view text(line);
        std::fwrite(text.data(), 1, std::min(text.size(), TerminalColumns()), stderr);
        std::fflush(stderr);
        m_lineShown = true;
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (m_anyProgress && !last && now - m_lastProgress < kPlainInterval) {
        return;
    }
    m_anyProgress = true;
    m_lastProgress = now;
    Print(stderr, line);
}

void Console::EndProgress() {
    const std::lock_guard lock(m_mutex);
    ClearLine();
}

}  // namespace kvmpd::app
