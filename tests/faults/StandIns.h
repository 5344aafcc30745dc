// Functions in front of the platform's, for what no server can make: a name that cannot be looked up, a port that is
// closed before anybody asks, and the count of the threads that one source has. CMake chooses one of two sources: where
// no function can be put in front of the platform's, nothing is done and no cell counts on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kvmpd::test {

enum class LookUpAnswer { kLoopback, kNoSuchName, kTryAgain };

/// While this lives, look-ups of `host` in this process are answered by `answer`, on the thread that asks. Its end
/// waits for those that are being answered.
class NameStandIn {
  public:
    NameStandIn(std::string host, std::function<LookUpAnswer()> answer);
    ~NameStandIn();
    NameStandIn(const NameStandIn&) = delete;
    NameStandIn& operator=(const NameStandIn&) = delete;

  private:
    const std::string m_host;
};

/// While this lives, a connection of this process to `port` of 127.0.0.1 finds that port closed when `isClosed` says
/// so: the system is given a closed port instead, and refuses it.
class PortStandIn {
  public:
    PortStandIn(std::uint16_t port, std::function<bool()> isClosed);
    ~PortStandIn();
    PortStandIn(const PortStandIn&) = delete;
    PortStandIn& operator=(const PortStandIn&) = delete;

  private:
    const std::uint16_t m_port;
};

/// Counts the threads that are started under its Scopes, by those threads themselves and so on.
class ThreadTally {
  public:
    struct Count;

    ThreadTally();
    /// Those that have not ended; none where threads cannot be counted.
    std::optional<size_t> Live() const;

    class Scope {
      public:
        explicit Scope(const ThreadTally& tally);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        std::shared_ptr<Count> m_before;
    };

  private:
    std::shared_ptr<Count> m_count;
};

}  // namespace kvmpd::test
