// Owner of a file descriptor.
#ifndef PLATFORM_POSIX_UNIQUE_FD_H_
#define PLATFORM_POSIX_UNIQUE_FD_H_

#include <unistd.h>

#include <utility>

namespace kvmpd::platform {

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~UniqueFd() {
        // Not repeated after EINTR: the descriptor is gone all the same.
        if (m_fd >= 0) {
            close(m_fd);
        }
    }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

  private:
    int m_fd = -1;
};

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_UNIQUE_FD_H_
