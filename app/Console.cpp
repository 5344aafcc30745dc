#include "app/Console.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "app/Json.h"
#include "app/Text.h"

namespace kvmpd::app {
namespace {

constexpr auto kPlainInterval = std::chrono::seconds(3);
constexpr auto kLastPatience = std::chrono::milliseconds(800);
constexpr const char* kClearLine = "\r\033[K";

std::size_t TerminalColumns(int descriptor) {
    winsize size{};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col - 1u : 79u;
}

bool SamePlace(int one, int other) {
    struct stat first {};
    struct stat second {};
    return ::fstat(one, &first) == 0 && ::fstat(other, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

}  // namespace

Console::Console(const Options& options)
    : m_options(options),
      m_refresh(!options.plainProgress && ::isatty(options.standardError) != 0),
      m_output(options.mostUnread),
      m_errors(SamePlace(options.standardOutput, options.standardError)
                   ? nullptr
                   : std::make_unique<LineWriter>(options.mostUnread)) {}

Console::~Console() {
    Drain(LineWriter::Clock::now() + kLastPatience, /*patient=*/true);
}

bool Console::Drain(LineWriter::Clock::time_point until, bool patient) {
    const bool output = m_output.Drain(until, patient);
    const bool errors = !m_errors || m_errors->Drain(until, patient);
    return output && errors;
}

std::int64_t Console::SinceStartMs() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(LineWriter::Clock::now() - m_start).count();
}

int Console::Ordinary() const {
    return m_options.recordingOnStdout ? m_options.standardError : m_options.standardOutput;
}

LineWriter& Console::WriterOf(int descriptor) {
    return descriptor == m_options.standardError && m_errors ? *m_errors : m_output;
}

void Console::Put(int descriptor, std::string text, LineWriter::Kind kind) {
    LineWriter& writer = WriterOf(descriptor);
    if (m_lost > 0 && descriptor == Ordinary() && writer.Write(descriptor, LostNotice(), LineWriter::Kind::kLine)) {
        m_lost = 0;
    }
    if (!writer.Write(descriptor, std::move(text), kind) && kind == LineWriter::Kind::kLine) {
        ++m_lost;
    }
}

std::string Console::LostNotice() const {
    const std::string text =
        Format("%lld lines are left out here, because nobody read them in time", static_cast<long long>(m_lost));
    return (m_options.json ? JsonLine().Text("type", "warning").Seconds("time", SinceStartMs()).Text("text", text).Str()
                           : "warning: " + text) +
           "\n";
}

void Console::Print(int descriptor, std::string_view text, LineWriter::Kind kind) {
    std::string line(text);
    if (line.empty() || line.back() != '\n') {
        line += '\n';
    }
    Put(descriptor, std::move(line), kind);
}

void Console::ClearLine() {
    if (m_lineShown) {
        Put(m_options.standardError, kClearLine, LineWriter::Kind::kLine);
        m_lineShown = false;
    }
}

void Console::PrintJson(std::string_view line, LineWriter::Kind kind) {
    ClearLine();
    Print(Ordinary(), line, kind);
}

void Console::Say(std::string_view text) {
    if (m_options.quiet || m_options.json) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    ClearLine();
    Print(Ordinary(), text);
}

void Console::SayJson(std::string_view line) {
    if (m_options.json) {
        const std::lock_guard lock(m_mutex);
        PrintJson(line, LineWriter::Kind::kLine);
    }
}

void Console::SayJsonProgress(std::string_view line) {
    if (m_options.json) {
        const std::lock_guard lock(m_mutex);
        PrintJson(line, LineWriter::Kind::kProgress);
    }
}

void Console::Error(const std::string& sentence) {
    SayJson(JsonLine().Text("type", "error").Seconds("time", SinceStartMs()).Text("text", sentence).Str());
    if (m_options.json && m_options.recordingOnStdout) {
        return;  // standard error carries JSON lines only
    }
    const std::lock_guard lock(m_mutex);
    ClearLine();
    Print(m_options.standardError, "kvmpd: " + sentence);
}

void Console::Progress(const std::string& line, bool last) {
    if (m_options.quiet || m_options.json) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    if (m_refresh) {
        Put(m_options.standardError, kClearLine + line.substr(0, TerminalColumns(m_options.standardError)),
            LineWriter::Kind::kProgress);
        m_lineShown = true;
        return;
    }
    const auto now = LineWriter::Clock::now();
    if (m_anyProgress && !last && now - m_lastProgress < kPlainInterval) {
        return;
    }
    m_anyProgress = true;
    m_lastProgress = now;
    Print(m_options.standardError, line, LineWriter::Kind::kProgress);
}

void Console::EndProgress() {
    const std::lock_guard lock(m_mutex);
    ClearLine();
}

}  // namespace kvmpd::app
