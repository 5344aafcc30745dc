#include "app/StopSignals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <system_error>
#include <utility>

namespace kvmpd::app {

StopSignals::StopSignals(std::function<void(int)> first, std::function<void(int)> again)
    : m_first(std::move(first)), m_again(std::move(again)) {
    sigemptyset(&m_set);
    sigaddset(&m_set, SIGINT);
    sigaddset(&m_set, SIGTERM);
    struct sigaction hangUp {};
    if (sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN) {
        sigaddset(&m_set, SIGHUP);  // under nohup it stays ignored
    }
    // A shell starts background jobs with SIGINT ignored, and an ignored signal never arrives anywhere.
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigaction(SIGINT, &standard, nullptr);
    pthread_sigmask(SIG_BLOCK, &m_set, &m_previous);
    m_signals = signalfd(-1, &m_set, SFD_CLOEXEC | SFD_NONBLOCK);
    m_quit = eventfd(0, EFD_CLOEXEC);
    if (m_signals < 0 || m_quit < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot watch for signals");
    }
    m_thread = std::thread([this] { Run(); });
}

StopSignals::~StopSignals() {
    const std::uint64_t one = 1;
    if (::write(m_quit, &one, sizeof(one)) == sizeof(one)) {
        m_thread.join();
    }
    ::close(m_signals);
    ::close(m_quit);
    pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

void StopSignals::Run() {
    // timeout(1) and shells signal a program and then the group that it is in: that is one wish, not two.
    constexpr auto kEcho = std::chrono::milliseconds(250);
    std::optional<std::uint32_t> last;
    std::chrono::steady_clock::time_point lastTime;
    for (;;) {
        std::array<pollfd, 2> entries{pollfd{m_quit, POLLIN, 0}, pollfd{m_signals, POLLIN, 0}};
        if (::poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) {
            return;
        }
        if (entries[0].revents != 0) {
            return;
        }
        signalfd_siginfo info{};
        if (::read(m_signals, &info, sizeof(info)) == sizeof(info)) {
            const auto now = std::chrono::steady_clock::now();
            if (last == info.ssi_signo && now - lastTime < kEcho) {
                continue;
            }
            (last ? m_again : m_first)(static_cast<int>(info.ssi_signo));
            last = info.ssi_signo;
            lastTime = now;
        }
    }
}

}  // namespace kvmpd::app
