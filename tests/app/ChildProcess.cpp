#include "tests/app/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <string_view>

namespace kvmpd::app::test {
namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Whether one of the settings is of the same variable as `entry`; of two the child would see the first.
bool Names(const std::vector<std::string>& settings, std::string_view entry) {
    const std::string_view name = entry.substr(0, entry.find('=') + 1);
    return std::any_of(settings.begin(), settings.end(),
                       [&](const std::string& setting) { return setting.starts_with(name); });
}

}  // namespace

ChildProcess::ChildProcess(const Options& options) {
    int pipe[2] = {-1, -1};
    if (::pipe2(pipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    if (options.smallPipe && ::fcntl(pipe[1], F_SETPIPE_SZ, 4096) < 0) {
        throw std::runtime_error("no pipe of one page");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (options.standardOutput.empty()) {
        posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, options.standardOutput.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, options.standardError.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<std::string> arguments = options.arguments;
    std::vector<std::string> environment = options.environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (!Names(options.environment, *entry)) {
            environment.emplace_back(*entry);
        }
    }
    const int error = ::posix_spawn(&m_pid, arguments.front().c_str(), &actions, nullptr, Pointers(arguments).data(),
                                    Pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[1]);
    m_output = pipe[0];
    if (options.dropStandardOutput) {
        ::close(m_output);
        m_output = -1;
    }
    if (error != 0) {
        throw std::runtime_error("cannot start " + options.arguments.front());
    }
}

ChildProcess::~ChildProcess() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        Wait();
    }
    if (m_output >= 0) {
        ::close(m_output);
    }
}

std::optional<std::string> ChildProcess::ReadLine() {
    for (;;) {
        if (const std::size_t end = m_buffer.find('\n'); end != std::string::npos) {
            std::string line = m_buffer.substr(0, end);
            m_buffer.erase(0, end + 1);
            return line;
        }
        char bytes[4096];
        const ssize_t count = ::read(m_output, bytes, sizeof(bytes));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return std::nullopt;
        }
        m_buffer.append(bytes, static_cast<std::size_t>(count));
    }
}

bool ChildProcess::ReadUntil(const std::string& text) {
    while (const auto line = ReadLine()) {
        if (line->find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

bool ChildProcess::WaitForUnread() const {
    pollfd entry{m_output, POLLIN, 0};
    while (::poll(&entry, 1, -1) < 0 && errno == EINTR) {
    }
    return (entry.revents & POLLIN) != 0;
}

void ChildProcess::Signal(int signal) const {
    if (m_pid > 0) {  // never -1, which would be everybody
        ::kill(m_pid, signal);
    }
}

int ChildProcess::Wait() {
    int status = 0;
    while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace kvmpd::app::test
