#include "platform/posix/wininet_objects.h"

#include <algorithm>
#include <cwchar>
#include <utility>
#include <vector>

#include "platform/posix/immortal.h"

namespace kvmpd::platform::internet {
namespace {

/// Percent-encodes what cannot stand in a request line; what is encoded already stays as it is.
std::string EscapePath(const std::string& path) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string escaped = path.starts_with('/') ? "" : "/";
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 0x20 && byte < 0x7F) {
            escaped += c;
        } else {
            escaped += '%';
            escaped += kDigits[byte >> 4];
            escaped += kDigits[byte & 15];
        }
    }
    return escaped;
}

/// The proxy for `scheme` of a list like "http=a:80;https=b:80" or "a:80"; empty when it names none for it.
std::string ProxyFor(const std::string& list, std::string_view scheme) {
    static constexpr std::string_view kSeparators = "; \t\r\n";
    std::string general;
    for (size_t begin = list.find_first_not_of(kSeparators); begin != std::string::npos;) {
        const size_t end = std::min(list.find_first_of(kSeparators, begin), list.size());
        const std::string entry = list.substr(begin, end - begin);
        const size_t equals = entry.find('=');
        if (equals == std::string::npos) {
            general = general.empty() ? entry : general;
        } else if (SameName(entry.substr(0, equals), scheme)) {
            return entry.substr(equals + 1);
        }
        begin = list.find_first_not_of(kSeparators, end);
    }
    return general;
}

std::string CommaList(std::string text) {
    for (char& c : text) {
        c = c == ';' ? ',' : c;
    }
    return text;
}

}  // namespace

Request::Request(std::shared_ptr<Connection> connection, std::string verb, std::string path, bool secure)
    : m_state{connection, std::move(verb), std::move(path), secure, connection->m_session->GetTimeOuts(), m_transfer} {}

DWORD RequestState::Send(std::string headers, std::string body, std::optional<std::uint64_t> total) {
    if (sent) {
        return ERROR_INTERNET_INCORRECT_HANDLE_STATE;
    }
    sent = true;
    INTERNET_PORT port = connection->m_port;
    if (port == INTERNET_INVALID_PORT_NUMBER) {
        port = secure ? INTERNET_DEFAULT_HTTPS_PORT : INTERNET_DEFAULT_HTTP_PORT;
    }
    const std::string scheme = secure ? "https" : "http";
    TransferPlan plan;
    plan.url = scheme + "://" + connection->m_host + ":" + std::to_string(port) + EscapePath(path);
    plan.verb = verb;
    plan.agent = connection->m_session->Agent();
    plan.headers = std::move(headers);
    plan.body = std::move(body);
    plan.total = total;
    plan.secure = secure;
    plan.receiveTimeout = timeOuts.receive;
    plan.sendTimeout = timeOuts.send;
    const ProxyChoice choice = connection->m_session->Proxy();
    if (choice.accessType == INTERNET_OPEN_TYPE_DIRECT) {
        plan.proxy.emplace();
    } else if (choice.accessType == INTERNET_OPEN_TYPE_PROXY) {
        plan.proxy = ProxyFor(choice.proxy, scheme);
        plan.proxyBypass = CommaList(choice.bypass);
    }
    if (const DWORD error = transfer.Start(std::move(plan)); error != 0) {
        return error;
    }
    return total ? transfer.AwaitUpload() : transfer.AwaitResponse();
}

ObjectTable& ObjectTable::Instance() {
    static Immortal<ObjectTable> table;
    return *table;
}

HINTERNET ObjectTable::Insert(std::shared_ptr<InternetObject> object, HINTERNET parent) {
    const LockHold hold(m_lock);
    const std::uintptr_t handle = m_next;
    m_entries.emplace(handle, Entry{std::move(object), reinterpret_cast<std::uintptr_t>(parent)});
    m_next += 4;
    return reinterpret_cast<HINTERNET>(handle);
}

std::shared_ptr<InternetObject> ObjectTable::Find(HINTERNET handle) {
    const LockHold hold(m_lock);
    const auto found = m_entries.find(reinterpret_cast<std::uintptr_t>(handle));
    return found == m_entries.end() ? nullptr : found->second.object;
}

bool ObjectTable::Close(HINTERNET handle) {
    std::vector<std::shared_ptr<InternetObject>> closed;  // destroyed when the table is free again
    {
        const LockHold hold(m_lock);
        std::vector<std::uintptr_t> open{reinterpret_cast<std::uintptr_t>(handle)};
        while (!open.empty()) {
            const std::uintptr_t value = open.back();
            open.pop_back();
            const auto found = m_entries.find(value);
            if (found == m_entries.end()) {
                continue;
            }
            closed.push_back(std::move(found->second.object));
            m_entries.erase(found);
            for (const auto& [child, entry] : m_entries) {
                if (entry.parent == value) {
                    open.push_back(child);
                }
            }
        }
    }
    for (const auto& object : closed) {
        object->Cancel();
    }
    return !closed.empty();
}

std::string Narrow(LPCSTR text, DWORD length) {
    if (text == nullptr) {
        return {};
    }
    return length == static_cast<DWORD>(-1) ? std::string(text) : std::string(text, length);
}

std::string Narrow(LPCWSTR text, DWORD length) {
    if (text == nullptr) {
        return {};
    }
    const int wide = static_cast<int>(length == static_cast<DWORD>(-1) ? std::wcslen(text) : length);
    const int bytes = wide == 0 ? 0 : WideCharToMultiByte(CP_UTF8, 0, text, wide, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<size_t>(bytes), '\0');
    if (bytes > 0) {
        WideCharToMultiByte(CP_UTF8, 0, text, wide, narrow.data(), bytes, nullptr, nullptr);
    }
    return narrow;
}

}  // namespace kvmpd::platform::internet
