// A loopback HTTP peer whose every byte is the test's. A reply is a list of steps - send these bytes, wait until the
// test lets go, reset - so that a server which misbehaves is written down as plainly as one which does not.
//
//     ScriptedPeer peer;
//     peer.On("/live.mpd", PeerReply::Ok(manifest));                    // every request of that path
//     peer.Once("/1.mp4", PeerReply::Truncated("abc", 10));             // the next request of that path, before On()
//     client.OpenUrl(peer.Url("/1.mp4").c_str(), ...);
//     EXPECT_EQ(peer.WaitForRequest(0).path, "/1.mp4");
//
// The peer listens on 127.0.0.1, on a port that the system picks. Each connection serves one request on a thread of its
// own and is then closed. All operations may be called from any thread. The destructor lets go of every stalled reply,
// closes every connection and joins every thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Sockets.h"

namespace kvmpd::test {

/// One request as it arrived.
struct PeerRequest {
    std::string raw;     ///< request line, headers and the empty line, byte for byte
    std::string method;  ///< "GET"
    std::string target;  ///< the request line's target as sent: "/a?b=c", or "http://host/a" for a proxy
    std::string path;    ///< the target without scheme, host and query: "/a"
    std::string body;    ///< as many bytes as the request's Content-Length announced

    /// The value of the first header `name` (any case), without surrounding blanks; empty when there is none.
    std::string Header(std::string_view name) const;
    bool HasHeader(std::string_view name) const;
};

/// What the peer does with one request: steps, carried out in order; after the last one the connection is closed.
class PeerReply {
  public:
    using Headers = std::vector<std::pair<std::string, std::string>>;

    /// A complete response with its Content-Length.
    static PeerReply Respond(int status, std::string body, const Headers& headers = {});
    static PeerReply Ok(std::string body, const Headers& headers = {}) {
        return Respond(200, std::move(body), headers);
    }
    /// 200 without Content-Length: the body ends where the connection does.
    static PeerReply NoLength(std::string body, const Headers& headers = {});
    /// 200 that announces `announced` bytes and closes after `body`.
    static PeerReply Truncated(std::string body, std::uint64_t announced);
    /// A redirect to `location`, with an empty body.
    static PeerReply Redirect(std::string location, int status = 302);
    /// A chunked response (RFC 9112, section 7.1), one chunk for each part.
    static PeerReply Chunked(const std::vector<std::string>& parts);
    /// Exactly these bytes.
    static PeerReply Raw(std::string bytes) { return PeerReply().Send(std::move(bytes)); }
    /// Closes without a byte.
    static PeerReply CloseAtOnce() { return {}; }
    /// Resets the connection without a byte.
    static PeerReply ResetAtOnce() { return PeerReply().Reset(); }
    /// Sends nothing until the test calls ScriptedPeer::Release.
    static PeerReply StallAtOnce() { return PeerReply().Stall(); }
    /// Status line and headers of a 200 response that announces `length` bytes; append the body's steps.
    static PeerReply Head(std::uint64_t length, const Headers& headers = {});

    /// Sends these bytes.
    PeerReply& Send(std::string bytes) &;
    PeerReply Send(std::string bytes) && { return std::move(Send(std::move(bytes))); }
    /// Sends `bytes` in pieces of `piece` bytes with `pause` between two of them.
    PeerReply& Drip(const std::string& bytes, size_t piece, std::chrono::milliseconds pause) &;
    PeerReply Drip(const std::string& bytes, size_t piece, std::chrono::milliseconds pause) && {
        return std::move(Drip(bytes, piece, pause));
    }
    /// Waits until the test calls ScriptedPeer::Release (or the peer ends).
    PeerReply& Stall() &;
    PeerReply Stall() && { return std::move(Stall()); }
    /// Calls `action` on the connection's thread: to signal an event, to look at the component in the middle of a body.
    PeerReply& Call(std::function<void()> action) &;
    PeerReply Call(std::function<void()> action) && { return std::move(Call(std::move(action))); }
    /// Ends the connection with a TCP reset instead of an orderly close.
    PeerReply& Reset() &;
    PeerReply Reset() && { return std::move(Reset()); }
    /// Answers before the request's body has been read (a server that refuses an upload).
    PeerReply& WithoutReadingBody() &;
    PeerReply WithoutReadingBody() && { return std::move(WithoutReadingBody()); }

  private:
    friend class ScriptedPeer;
    enum class Kind { kSend, kPause, kStall, kCall, kReset };
    struct Step {
        Kind kind;
        std::string bytes;
        std::chrono::milliseconds pause{0};
        std::function<void()> action;
    };
    std::vector<Step> m_steps;
    bool m_readBody = true;
};

class ScriptedPeer {
  public:
    /// Speaks plain HTTP.
    ScriptedPeer();
    /// Speaks HTTP over what `wrap` makes of each accepted connection (TestCa::ServerWrap gives TLS). A `wrap` that
    /// returns null refuses the connection.
    explicit ScriptedPeer(ConnectionWrap wrap);
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    std::uint16_t Port() const { return m_listener.Port(); }
    /// "http://127.0.0.1:PORT" (or https) + path.
    std::string Url(std::string_view path) const;
    std::wstring UrlW(std::string_view path) const;

    /// The reply to every request of `path` (the part before "?") that no Once() is left for.
    void On(std::string path, PeerReply reply);
    /// The reply to the next request of `path`; several wait in a queue.
    void Once(std::string path, PeerReply reply);
    /// The reply to a request that nothing else fits; 404 with a short body unless set.
    void Otherwise(PeerReply reply);

    size_t RequestCount() const;
    size_t RequestCount(std::string_view path) const;
    std::vector<PeerRequest> Requests() const;
    /// Waits until request number `index` (from 0, in order of arrival) is there, headers and body, and returns it.
    /// After 20 s (a bound for broken code, not a pace) it adds a test failure and returns an empty one.
    PeerRequest WaitForRequest(size_t index) const;
    /// Waits until `count` connections have ended, however they ended.
    bool WaitForClosed(size_t count) const;

    /// Lets go of every reply that stalls, now and from now on.
    void Release();

  private:
    struct Connection;

    void AcceptLoop();
    void Serve(Connection& connection);
    bool ReadRequest(ByteConnection& stream, PeerRequest& request, std::string& rest);
    void ReadBody(ByteConnection& stream, PeerRequest& request, std::string rest);
    PeerReply Choose(const std::string& path);
    void Record(PeerRequest request);
    /// Whether the connection is to end with a reset.
    bool Carry(ByteConnection& stream, const PeerReply& reply);

    ConnectionWrap m_wrap;
    const bool m_secure;
    Listener m_listener;

    mutable std::mutex m_mutex;  // guards all that follows, except the accept thread
    mutable std::condition_variable m_changed;
    std::map<std::string, PeerReply, std::less<>> m_always;
    std::map<std::string, std::deque<PeerReply>, std::less<>> m_once;
    PeerReply m_otherwise;
    std::vector<PeerRequest> m_requests;
    std::vector<std::unique_ptr<Connection>> m_connections;
    size_t m_closed = 0;
    bool m_released = false;
    bool m_ending = false;

    std::thread m_acceptThread;
};

}  // namespace kvmpd::test
