#include "tests/support/ScriptedPeer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <iomanip>
#include <sstream>

namespace kvmpd::test {
namespace {

constexpr std::chrono::seconds kPatience{20};  // a bound for broken code

bool SameName(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right,
                              [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

std::string_view Trim(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\r");
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

/// A server that closes after each response says so: a client is not to send its next request on that connection.
std::string HeadText(int status, const PeerReply::Headers& headers) {
    std::string text = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\nConnection: close\r\n";
    for (const auto& [name, value] : headers) {
        text += name + ": " + value + "\r\n";
    }
    return text;
}

std::string LengthLine(std::uint64_t length) {
    return "Content-Length: " + std::to_string(length) + "\r\n";
}

/// The path of a request target, which has a scheme and a host when it is meant for a proxy.
std::string PathOf(std::string_view target) {
    if (const size_t scheme = target.find("://"); scheme != std::string_view::npos) {
        const size_t slash = target.find('/', scheme + 3);
        target = slash == std::string_view::npos ? "/" : target.substr(slash);
    }
    return std::string(target.substr(0, target.find('?')));
}

/// The value of header `name` among the lines of `raw`; a null data pointer when there is none.
std::string_view FindHeader(std::string_view raw, std::string_view name) {
    while (!raw.empty()) {
        const size_t end = std::min(raw.find('\n'), raw.size());
        const std::string_view line = raw.substr(0, end);
        raw.remove_prefix(std::min(end + 1, raw.size()));
        const size_t colon = line.find(':');
        if (colon != std::string_view::npos && SameName(line.substr(0, colon), name)) {
            const std::string_view value = Trim(line.substr(colon + 1));
            return value.empty() ? line.substr(colon, 0) : value;
        }
    }
    return {};
}

}  // namespace

std::string PeerRequest::Header(std::string_view name) const {
    return std::string(FindHeader(raw, name));
}

bool PeerRequest::HasHeader(std::string_view name) const {
    return FindHeader(raw, name).data() != nullptr;
}

PeerReply PeerReply::Respond(int status, std::string body, const Headers& headers) {
    return Raw(HeadText(status, headers) + LengthLine(body.size()) + "\r\n" + body);
}

PeerReply PeerReply::NoLength(std::string body, const Headers& headers) {
    return Raw(HeadText(200, headers) + "\r\n" + body);
}

PeerReply PeerReply::Truncated(std::string body, std::uint64_t announced) {
    return Head(announced).Send(std::move(body));
}

PeerReply PeerReply::Redirect(std::string location, int status) {
    return Respond(status, "", {{"Location", std::move(location)}});
}

PeerReply PeerReply::Chunked(const std::vector<std::string>& parts) {
    std::ostringstream text;
    text << HeadText(200, {{"Transfer-Encoding", "chunked"}}) << "\r\n" << std::hex;
    for (const std::string& part : parts) {
        text << part.size() << "\r\n" << part << "\r\n";
    }
    text << "0\r\n\r\n";
    return Raw(text.str());
}

PeerReply PeerReply::Head(std::uint64_t length, const Headers& headers) {
    return Raw(HeadText(200, headers) + LengthLine(length) + "\r\n");
}

PeerReply& PeerReply::Send(std::string bytes) & {
    m_steps.push_back({.kind = Kind::kSend, .bytes = std::move(bytes), .action = {}});
    return *this;
}

PeerReply& PeerReply::Drip(const std::string& bytes, size_t piece, std::chrono::milliseconds pause) & {
    for (size_t done = 0; done < bytes.size(); done += piece) {
        if (done != 0) {
            m_steps.push_back({.kind = Kind::kPause, .bytes = {}, .pause = pause, .action = {}});
        }
        Send(bytes.substr(done, piece));
    }
    return *this;
}

PeerReply& PeerReply::Stall() & {
    m_steps.push_back({.kind = Kind::kStall, .bytes = {}, .action = {}});
    return *this;
}

PeerReply& PeerReply::Call(std::function<void()> action) & {
    m_steps.push_back({.kind = Kind::kCall, .bytes = {}, .action = std::move(action)});
    return *this;
}

PeerReply& PeerReply::Reset() & {
    m_steps.push_back({.kind = Kind::kReset, .bytes = {}, .action = {}});
    return *this;
}

PeerReply& PeerReply::WithoutReadingBody() & {
    m_readBody = false;
    return *this;
}

struct ScriptedPeer::Connection {
    std::unique_ptr<Socket> socket;
    std::thread thread;
};

ScriptedPeer::ScriptedPeer() : ScriptedPeer(ConnectionWrap()) {}

ScriptedPeer::ScriptedPeer(ConnectionWrap wrap)
    : m_wrap(std::move(wrap)),
      m_secure(m_wrap != nullptr),
      m_otherwise(PeerReply::Respond(404, "nothing is scripted here")),
      m_acceptThread([this] { AcceptLoop(); }) {}

ScriptedPeer::~ScriptedPeer() {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
        m_released = true;
        for (const auto& connection : m_connections) {
            if (connection->socket != nullptr) {
                connection->socket->Interrupt();
            }
        }
        m_changed.notify_all();
    }
    m_listener.Interrupt();
    m_acceptThread.join();
    for (const auto& connection : m_connections) {
        connection->thread.join();
    }
}

std::string ScriptedPeer::Url(std::string_view path) const {
    return (m_secure ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(Port()) + std::string(path);
}

std::wstring ScriptedPeer::UrlW(std::string_view path) const {
    const std::string url = Url(path);
    return {url.begin(), url.end()};
}

void ScriptedPeer::On(std::string path, PeerReply reply) {
    const std::lock_guard lock(m_mutex);
    m_always.insert_or_assign(std::move(path), std::move(reply));
}

void ScriptedPeer::Once(std::string path, PeerReply reply) {
    const std::lock_guard lock(m_mutex);
    m_once[std::move(path)].push_back(std::move(reply));
}

void ScriptedPeer::Otherwise(PeerReply reply) {
    const std::lock_guard lock(m_mutex);
    m_otherwise = std::move(reply);
}

size_t ScriptedPeer::RequestCount() const {
    const std::lock_guard lock(m_mutex);
    return m_requests.size();
}

size_t ScriptedPeer::RequestCount(std::string_view path) const {
    const std::lock_guard lock(m_mutex);
    return static_cast<size_t>(
        std::ranges::count_if(m_requests, [&](const PeerRequest& request) { return request.path == path; }));
}

std::vector<PeerRequest> ScriptedPeer::Requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

PeerRequest ScriptedPeer::WaitForRequest(size_t index) const {
    std::unique_lock lock(m_mutex);
    if (!m_changed.wait_for(lock, kPatience, [&] { return m_requests.size() > index; })) {
        ADD_FAILURE() << "request " << index << " did not arrive";
        return {};
    }
    return m_requests[index];
}

bool ScriptedPeer::WaitForClosed(size_t count) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, kPatience, [&] { return m_closed >= count; });
}

void ScriptedPeer::Release() {
    const std::lock_guard lock(m_mutex);
    m_released = true;
    m_changed.notify_all();
}

void ScriptedPeer::AcceptLoop() {
    while (std::unique_ptr<Socket> socket = m_listener.Accept()) {
        const std::lock_guard lock(m_mutex);
        if (m_ending) {
            return;
        }
        m_connections.push_back(std::make_unique<Connection>());
        Connection& connection = *m_connections.back();
        connection.socket = std::move(socket);
        connection.thread = std::thread([this, &connection] { Serve(connection); });
    }
}

void ScriptedPeer::Serve(Connection& connection) {
    Socket& socket = *connection.socket;
    bool reset = false;
    {
        std::unique_ptr<ByteConnection> wrapped;
        if (m_wrap != nullptr) {
            wrapped = m_wrap(socket);
        }
        ByteConnection* stream = m_wrap == nullptr ? &socket : wrapped.get();
        PeerRequest request;
        std::string rest;
        if (stream != nullptr && ReadRequest(*stream, request, rest)) {
            const PeerReply reply = Choose(request.path);
            if (reply.m_readBody) {
                ReadBody(*stream, request, std::move(rest));
            }
            Record(std::move(request));
            reset = Carry(*stream, reply);
        }
        if (wrapped != nullptr && !reset) {
            wrapped->Close(/*reset=*/false);
        }
    }
    const std::lock_guard lock(m_mutex);
    connection.socket->Close(reset);
    connection.socket.reset();
    ++m_closed;
    m_changed.notify_all();
}

bool ScriptedPeer::ReadRequest(ByteConnection& stream, PeerRequest& request, std::string& rest) {
    std::string text;
    std::array<char, 16384> piece;
    size_t end = std::string::npos;
    while ((end = text.find("\r\n\r\n")) == std::string::npos) {
        const size_t count = stream.Receive(piece.data(), piece.size());
        if (count == 0) {
            return false;
        }
        text.append(piece.data(), count);
    }
    request.raw = text.substr(0, end + 4);
    rest = text.substr(end + 4);
    std::istringstream line(request.raw.substr(0, request.raw.find("\r\n")));
    line >> request.method >> request.target;
    request.path = PathOf(request.target);
    return true;
}

void ScriptedPeer::ReadBody(ByteConnection& stream, PeerRequest& request, std::string rest) {
    const size_t length = std::strtoull(request.Header("Content-Length").c_str(), nullptr, 10);
    request.body = std::move(rest);
    std::array<char, 16384> piece;
    while (request.body.size() < length) {
        const size_t count = stream.Receive(piece.data(), std::min(piece.size(), length - request.body.size()));
        if (count == 0) {
            return;
        }
        request.body.append(piece.data(), count);
    }
}

PeerReply ScriptedPeer::Choose(const std::string& path) {
    const std::lock_guard lock(m_mutex);
    if (const auto once = m_once.find(path); once != m_once.end() && !once->second.empty()) {
        PeerReply reply = std::move(once->second.front());
        once->second.pop_front();
        return reply;
    }
    const auto always = m_always.find(path);
    return always == m_always.end() ? m_otherwise : always->second;
}

void ScriptedPeer::Record(PeerRequest request) {
    const std::lock_guard lock(m_mutex);
    m_requests.push_back(std::move(request));
    m_changed.notify_all();
}

bool ScriptedPeer::Carry(ByteConnection& stream, const PeerReply& reply) {
    for (const PeerReply::Step& step : reply.m_steps) {
        switch (step.kind) {
            case PeerReply::Kind::kSend:
                if (!stream.Send(step.bytes)) {
                    return false;
                }
                break;
            case PeerReply::Kind::kPause: {
                // A slow server is slow by the clock; a peer that ends does not wait for it.
                std::unique_lock lock(m_mutex);
                m_changed.wait_for(lock, step.pause, [this] { return m_ending; });
                break;
            }
            case PeerReply::Kind::kStall: {
                std::unique_lock lock(m_mutex);
                m_changed.wait(lock, [this] { return m_released; });
                break;
            }
            case PeerReply::Kind::kCall:
                step.action();
                break;
            case PeerReply::Kind::kReset:
                return true;
        }
    }
    return false;
}

}  // namespace kvmpd::test
