#pragma once

#include <httplib.h>

#include <mutex>
#include <set>

namespace kvmpd::origin {

// The HTTP server with one change: stopping it closes the connections that clients keep open between two requests. As
// the library comes, each of them would hold up the stop until its keep-alive time has passed.
class StoppableServer final : public httplib::Server {
  public:
    // Ends every connection and refuses new ones; stop() is still the caller's to call.
    void CloseConnections();

  private:
    bool process_and_close_socket(socket_t socket) override;
    bool Register(socket_t socket);
    void CloseAndForget(socket_t socket);

    std::mutex mutex_;
    std::set<socket_t> open_;  // guarded by mutex_
    bool closing_ = false;     // guarded by mutex_
};

}  // namespace kvmpd::origin
