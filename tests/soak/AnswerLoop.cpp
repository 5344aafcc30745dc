#include "tests/soak/AnswerLoop.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <vector>

namespace kvmpd::test {
namespace {

constexpr std::chrono::milliseconds kLongestNap{20};
constexpr int kBacklog = 1024;

[[noreturn]] void Throw(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::int64_t ThreadCpuMicroseconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_nsec / 1000;
}

}  // namespace

AnswerLoop::AnswerLoop(Handler handler) : m_handler(std::move(handler)) {
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (m_listener < 0 || bind(m_listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(m_listener, kBacklog) != 0 ||
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        Throw("cannot listen on 127.0.0.1");
    }
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { Run(); });
}

AnswerLoop::~AnswerLoop() {
    m_ending = true;
    m_thread.join();
    close(m_listener);
}

void AnswerLoop::Run() {
    std::vector<pollfd> polled;
    while (!m_ending) {
        Clock::time_point wake = Clock::now() + kLongestNap;
        polled.assign(1, {m_listener, POLLIN, 0});
        for (const Connection& connection : m_connections) {
            const bool due = connection.answering && connection.due <= Clock::now();
            polled.push_back({connection.socket, static_cast<short>(due ? POLLOUT : POLLIN), 0});
            wake = connection.answering && !due ? std::min(wake, connection.due) : wake;
        }
        const auto nap = std::chrono::ceil<std::chrono::milliseconds>(wake - Clock::now()).count();
        poll(polled.data(), polled.size(), static_cast<int>(std::max<std::int64_t>(nap, 0)));
        const Clock::time_point now = Clock::now();
        std::size_t at = 1;
        for (auto connection = m_connections.begin(); connection != m_connections.end(); ++at) {
            bool open = (polled[at].revents & (POLLERR | POLLNVAL)) == 0;
            if (open && (polled[at].revents & (POLLIN | POLLHUP)) != 0) {
                open = Receive(*connection);
            }
            if (open && connection->answering && connection->due <= now) {
                open = Send(*connection, now);
            }
            if (!open) {
                Close(*connection, connection->answer.reset);
            }
            connection = open ? std::next(connection) : m_connections.erase(connection);
        }
        if (polled[0].revents != 0) {
            Accept();
        }
        m_cpuMicroseconds = ThreadCpuMicroseconds();
    }
    for (Connection& connection : m_connections) {
        Close(connection, false);
    }
    m_connections.clear();
}

void AnswerLoop::Accept() {
    for (;;) {
        const int socket = accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (socket < 0) {
            return;
        }
        ++m_open;
        m_connections.emplace_back().socket = socket;
    }
}

bool AnswerLoop::Receive(Connection& connection) {
    std::array<char, 4096> piece;
    for (;;) {
        const ssize_t count = recv(connection.socket, piece.data(), piece.size(), 0);
        if (count < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        if (count == 0) {
            return false;
        }
        if (connection.answering) {
            continue;
        }
        connection.head.append(piece.data(), static_cast<std::size_t>(count));
        if (connection.head.find("\r\n\r\n") != std::string::npos) {
            const std::size_t begin = connection.head.find(' ') + 1;
            connection.answer = m_handler(connection.head.substr(begin, connection.head.find(' ', begin) - begin));
            connection.answering = true;
            connection.due = Clock::now();
            if (!connection.answer.pieces.empty()) {
                connection.due += connection.answer.pieces.front().pause;
            }
        }
    }
}

bool AnswerLoop::Send(Connection& connection, Clock::time_point now) {
    std::deque<Answer::Piece>& pieces = connection.answer.pieces;
    while (!pieces.empty() && connection.due <= now) {
        const std::string& bytes = pieces.front().bytes;
        const ssize_t count =
            send(connection.socket, bytes.data() + connection.sent, bytes.size() - connection.sent, MSG_NOSIGNAL);
        if (count < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        connection.sent += static_cast<std::size_t>(count);
        if (connection.sent < bytes.size()) {
            return true;
        }
        pieces.pop_front();
        connection.sent = 0;
        connection.due = pieces.empty() ? now : now + pieces.front().pause;
    }
    return !pieces.empty();
}

void AnswerLoop::Close(Connection& connection, bool reset) {
    if (reset) {
        const linger hard{1, 0};
        setsockopt(connection.socket, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
    }
    close(connection.socket);
    --m_open;
}

}  // namespace kvmpd::test
