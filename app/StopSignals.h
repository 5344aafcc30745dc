// SIGINT, SIGTERM and SIGHUP as calls on a thread of this object's own, where anything may be done. Create it before
// any other thread, so that no thread takes the signals in another way.

#pragma once

#include <csignal>
#include <functional>
#include <thread>

namespace kvmpd::app {

class StopSignals {
  public:
    // first: on the first signal; again: on every further one, except the same signal once more within a quarter of a
    // second.
    StopSignals(std::function<void(int signal)> first, std::function<void(int signal)> again);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

  private:
    void Run();

    const std::function<void(int)> m_first;
    const std::function<void(int)> m_again;
    sigset_t m_set{};
    sigset_t m_previous{};
    int m_signals = -1;  // signalfd
    int m_quit = -1;     // eventfd
    std::thread m_thread;
};

}  // namespace kvmpd::app
