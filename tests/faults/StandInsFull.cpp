// The dynamic linker takes the program's own getaddrinfo, connect and pthread_create for every library's; they pass on
// what nobody stands in for.
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "tests/faults/StandIns.h"
#include "tests/support/Sockets.h"

namespace kvmpd::test {
namespace {

/// Functions by what they stand in for, and how many calls each is in.
template <class Key, class Function>
class Registry {
  public:
    void Add(const Key& key, Function function) {
        const std::lock_guard lock(m_mutex);
        m_entries[key].function = std::move(function);
    }
    void Remove(const Key& key) {
        std::unique_lock lock(m_mutex);
        m_left.wait(lock, [&] { return m_entries[key].calls == 0; });
        m_entries.erase(key);
    }
    /// What the function for `key` answers, called without a lock; none when there is no such function.
    auto Call(const Key& key) -> std::optional<typename Function::result_type> {
        std::unique_lock lock(m_mutex);
        const auto found = m_entries.find(key);
        if (found == m_entries.end()) {
            return std::nullopt;
        }
        Entry& entry = found->second;  // stays where it is, and until it is left
        ++entry.calls;
        lock.unlock();
        const auto answer = entry.function();
        lock.lock();
        --entry.calls;
        m_left.notify_all();
        return answer;
    }

  private:
    struct Entry {
        Function function;
        int calls = 0;
    };
    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_left;
    std::map<Key, Entry> m_entries;
};

// Never destroyed: a library's thread may look a name up at any time.
auto& Names() {
    static auto& names = *new Registry<std::string, std::function<LookUpAnswer()>>;
    return names;
}

auto& Ports() {
    static auto& ports = *new Registry<std::uint16_t, std::function<bool()>>;
    return ports;
}

template <class Call>
Call* Next(const char* name) {
    return reinterpret_cast<Call*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

struct ThreadTally::Count {
    std::atomic<size_t> live{0};
};

namespace {

thread_local std::shared_ptr<ThreadTally::Count> t_counted;  // that the threads which this one starts belong to

struct CountedThread {
    void* (*start)(void*);
    void* argument;
    std::shared_ptr<ThreadTally::Count> count;

    ~CountedThread() { --count->live; }
};

void* RunCounted(void* parameter) {
    const std::unique_ptr<CountedThread> thread(static_cast<CountedThread*>(parameter));
    t_counted = thread->count;
    return thread->start(thread->argument);
}

}  // namespace

NameStandIn::NameStandIn(std::string host, std::function<LookUpAnswer()> answer) : m_host(std::move(host)) {
    Names().Add(m_host, std::move(answer));
}

NameStandIn::~NameStandIn() {
    Names().Remove(m_host);
}

PortStandIn::PortStandIn(std::uint16_t port, std::function<bool()> isClosed) : m_port(port) {
    Ports().Add(m_port, std::move(isClosed));
}

PortStandIn::~PortStandIn() {
    Ports().Remove(m_port);
}

ThreadTally::ThreadTally() : m_count(std::make_shared<Count>()) {}

std::optional<size_t> ThreadTally::Live() const {
    return m_count->live.load();
}

ThreadTally::Scope::Scope(const ThreadTally& tally) : m_before(std::exchange(t_counted, tally.m_count)) {}

ThreadTally::Scope::~Scope() {
    t_counted = m_before;
}

}  // namespace kvmpd::test

// The libraries find these by their names.
#pragma GCC visibility push(default)
extern "C" {
int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    using kvmpd::test::LookUpAnswer;
    static auto* const next = kvmpd::test::Next<decltype(getaddrinfo)>("getaddrinfo");
    if (node != nullptr) {
        if (const auto answer = kvmpd::test::Names().Call(node)) {
            if (*answer != LookUpAnswer::kLoopback) {
                return *answer == LookUpAnswer::kNoSuchName ? EAI_NONAME : EAI_AGAIN;
            }
            node = "127.0.0.1";
        }
    }
    return next(node, service, hints, result);
}

int connect(int socket, const sockaddr* address, socklen_t length) {
    static auto* const next = kvmpd::test::Next<decltype(connect)>("connect");
    if (address != nullptr && address->sa_family == AF_INET && length >= sizeof(sockaddr_in)) {
        sockaddr_in target{};
        std::memcpy(&target, address, sizeof(target));
        if (kvmpd::test::Ports().Call(ntohs(target.sin_port)).value_or(false)) {
            target.sin_port = htons(kvmpd::test::RefusedPort());
            return next(socket, reinterpret_cast<const sockaddr*>(&target), sizeof(target));
        }
    }
    return next(socket, address, length);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
    static auto* const next = reinterpret_cast<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
        ::dlsym(RTLD_NEXT, "pthread_create"));
    if (kvmpd::test::t_counted == nullptr) {
        return next(thread, attributes, start, argument);
    }
    ++kvmpd::test::t_counted->live;
    auto counted = std::make_unique<kvmpd::test::CountedThread>(start, argument, kvmpd::test::t_counted);
    const int error = next(thread, attributes, kvmpd::test::RunCounted, counted.get());
    if (error == 0) {
        counted.release();  // the thread's own
    }
    return error;
}
}
#pragma GCC visibility pop
