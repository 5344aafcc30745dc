#include "app/LineWriter.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

namespace kvmpd::app {

LineWriter::LineWriter(std::size_t most) : m_most(most), m_quit(::eventfd(0, EFD_CLOEXEC)) {
    if (m_quit < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot write to the console");
    }
}

LineWriter::~LineWriter() {
    {
        const std::lock_guard lock(m_mutex);
        m_closing = true;
    }
    m_changed.notify_all();
    const std::uint64_t one = 1;
    if (::write(m_quit, &one, sizeof(one)) == sizeof(one) && m_thread.joinable()) {
        m_thread.join();
    }
    ::close(m_quit);
}

bool LineWriter::Write(int descriptor, std::string text, Kind kind) {
    {
        const std::lock_guard lock(m_mutex);
        if (kind == Kind::kProgress) {
            std::erase_if(m_queue, [&](const Entry& entry) {
                const bool older = entry.kind == Kind::kProgress && entry.descriptor == descriptor;
                m_bytes -= older ? entry.text.size() : 0;
                return older;
            });
        }
        if (m_bytes + text.size() > m_most) {
            return false;
        }
        m_bytes += text.size();
        m_queue.push_back({descriptor, kind, std::move(text)});
        if (!m_thread.joinable()) {
            m_thread = std::thread([this] { Run(); });
        }
    }
    m_changed.notify_one();
    return true;
}

bool LineWriter::Drain(Clock::time_point until, bool patient, std::chrono::milliseconds pause) {
    const Clock::time_point begin = Clock::now();
    std::unique_lock lock(m_mutex);
    const auto written = [&] { return m_queue.empty() && !m_writing; };
    for (;;) {
        if (m_taken.wait_until(lock, until, written)) {
            return true;
        }
        const Clock::time_point next = std::max(m_lastTaken, begin) + pause;
        if (!patient || next <= Clock::now()) {
            return false;
        }
        until = next;
    }
}

void LineWriter::Run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [&] { return m_closing || !m_queue.empty(); });
        if (m_closing) {
            return;
        }
        const Entry entry = std::move(m_queue.front());
        m_queue.pop_front();
        m_writing = true;
        lock.unlock();
        WriteAll(entry);
        lock.lock();
        m_writing = false;
        m_bytes -= entry.text.size();
        m_taken.notify_all();
    }
}

void LineWriter::WriteAll(const Entry& entry) {
    // A blocking write to a pipe may sleep for longer than the room that poll promised; within PIPE_BUF it does not.
    constexpr std::size_t kPiece = 4096;
    std::string_view rest = entry.text;
    while (!rest.empty() && WaitWritable(entry.descriptor)) {
        const ssize_t count = ::write(entry.descriptor, rest.data(), std::min(rest.size(), kPiece));
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (count < 0) {
            return;
        }
        rest.remove_prefix(static_cast<std::size_t>(count));
        const std::lock_guard lock(m_mutex);
        m_lastTaken = Clock::now();
    }
}

// False when the end came first.
bool LineWriter::WaitWritable(int descriptor) const {
    std::array<pollfd, 2> entries{pollfd{m_quit, POLLIN, 0}, pollfd{descriptor, POLLOUT, 0}};
    while (::poll(entries.data(), entries.size(), -1) < 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return entries[0].revents == 0;
}

}  // namespace kvmpd::app
