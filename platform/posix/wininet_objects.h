// What internet handles stand for, and the table that gives them out.
#ifndef PLATFORM_POSIX_WININET_OBJECTS_H_
#define PLATFORM_POSIX_WININET_OBJECTS_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/posix/annotated_lock.h"
#include "platform/posix/last_error.h"
#include "platform/posix/win32_api.h"
#include "platform/posix/wininet_api.h"
#include "platform/posix/wininet_transfer.h"

namespace kvmpd::platform::internet {

class InternetObject {
  public:
    InternetObject() = default;
    virtual ~InternetObject() = default;
    InternetObject(const InternetObject&) = delete;
    InternetObject& operator=(const InternetObject&) = delete;
    /// Ends calls in progress: the handle is being closed. Any thread.
    virtual void Cancel() {}
};

struct ProxyChoice {
    DWORD accessType = INTERNET_OPEN_TYPE_PRECONFIG;
    std::string proxy;   // "host:port", or a list of "scheme=host:port"
    std::string bypass;  // host names and suffixes
};

struct TimeOuts {
    std::chrono::milliseconds receive{30000};
    std::chrono::milliseconds send{30000};
};

class Session final : public InternetObject {
  public:
    Session(std::string agent, ProxyChoice proxy) : m_agent(std::move(agent)), m_proxy(std::move(proxy)) {}

    const std::string& Agent() const { return m_agent; }
    ProxyChoice Proxy() const {
        const LockHold hold(m_lock);
        return m_proxy;
    }
    void SetProxy(ProxyChoice proxy) {
        const LockHold hold(m_lock);
        m_proxy = std::move(proxy);
    }
    TimeOuts GetTimeOuts() const {
        const LockHold hold(m_lock);
        return m_timeOuts;
    }
    void SetTimeOuts(TimeOuts timeOuts) {
        const LockHold hold(m_lock);
        m_timeOuts = timeOuts;
    }

  private:
    const std::string m_agent;
    mutable Lock m_lock;
    ProxyChoice m_proxy PLATFORM_GUARDED_BY(m_lock);
    TimeOuts m_timeOuts PLATFORM_GUARDED_BY(m_lock);
};

class Connection final : public InternetObject {
  public:
    Connection(std::shared_ptr<Session> session, std::string host, INTERNET_PORT port)
        : m_session(std::move(session)), m_host(std::move(host)), m_port(port) {}

    const std::shared_ptr<Session> m_session;
    const std::string m_host;
    const INTERNET_PORT m_port;
};

/// What the calls on one request share.
struct RequestState {
    std::shared_ptr<Connection> connection;
    std::string verb;
    std::string path;
    bool secure;
    TimeOuts timeOuts;
    Transfer& transfer;
    bool sent = false;

    /// Sends the request; with `total`, only its head. A request is sent once.
    DWORD Send(std::string headers, std::string body, std::optional<std::uint64_t> total);
};

/// The calls on one request are serialised by `busy`; Cancel passes it by.
class Request final : public InternetObject {
  public:
    Request(std::shared_ptr<Connection> connection, std::string verb, std::string path, bool secure);
    void Cancel() override { m_transfer.Cancel(); }

    Lock busy;
    RequestState& State() PLATFORM_REQUIRES(busy) { return m_state; }

  private:
    Transfer m_transfer;
    RequestState m_state PLATFORM_GUARDED_BY(busy);
};

class ObjectTable {
  public:
    /// The table of the process.
    static ObjectTable& Instance();

    /// A handle for `object`, which closes together with `parent`.
    HINTERNET Insert(std::shared_ptr<InternetObject> object, HINTERNET parent);
    std::shared_ptr<InternetObject> Find(HINTERNET handle);
    /// False when there is no such handle.
    bool Close(HINTERNET handle);

  private:
    struct Entry {
        std::shared_ptr<InternetObject> object;
        std::uintptr_t parent;
    };

    Lock m_lock;
    std::map<std::uintptr_t, Entry> m_entries PLATFORM_GUARDED_BY(m_lock);
    std::uintptr_t m_next PLATFORM_GUARDED_BY(m_lock) = 0x00CC0004;  // no number is given out twice
};

/// The object of a handle; empty, with the last error set, when there is none or it is of another kind.
template <class Kind>
std::shared_ptr<Kind> ObjectOf(HINTERNET handle) {
    const std::shared_ptr<InternetObject> object = ObjectTable::Instance().Find(handle);
    if (object == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return {};
    }
    std::shared_ptr<Kind> result = std::dynamic_pointer_cast<Kind>(object);
    if (result == nullptr) {
        SetLastError(ERROR_INTERNET_INCORRECT_HANDLE_TYPE);
    }
    return result;
}

/// UTF-8 for wide text of `length` characters, or up to its terminator for -1; null counts as empty.
std::string Narrow(LPCWSTR text, DWORD length = static_cast<DWORD>(-1));
std::string Narrow(LPCSTR text, DWORD length = static_cast<DWORD>(-1));

}  // namespace kvmpd::platform::internet

#endif  // PLATFORM_POSIX_WININET_OBJECTS_H_
