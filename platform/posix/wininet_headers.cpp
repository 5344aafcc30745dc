#include "platform/posix/wininet_headers.h"

#include <algorithm>
#include <new>

namespace kvmpd::platform::internet {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view Trim(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

void Append(HeaderList& list, const std::string& line) {
    curl_slist* longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) {
        throw std::bad_alloc();
    }
    static_cast<void>(list.release());
    list.reset(longer);
}

struct HeaderLine {
    std::string_view name;
    std::string_view value;
};

std::optional<HeaderLine> ParseLine(std::string_view line) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos || Trim(line.substr(0, colon)).empty()) {
        return std::nullopt;
    }
    return HeaderLine{Trim(line.substr(0, colon)), Trim(line.substr(colon + 1))};
}

/// The number behind "HTTP/x.y "; 0 when there is none.
unsigned ParseStatus(std::string_view line) {
    unsigned status = 0;
    const size_t blank = line.find(' ');
    for (size_t i = blank + 1; blank != std::string_view::npos && i < line.size(); ++i) {
        if (line[i] < '0' || line[i] > '9' || status > 999) {
            break;
        }
        status = status * 10 + static_cast<unsigned>(line[i] - '0');
    }
    return status;
}

}  // namespace

bool SameName(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, [](char a, char b) { return Lower(a) == Lower(b); });
}

HeaderList RequestHeaders(std::string_view headers) {
    HeaderList list(nullptr, &curl_slist_free_all);
    // What curl adds unless told otherwise, and Windows does not.
    std::vector<std::string_view> unwanted{"Accept", "Expect", "Content-Type"};
    while (!headers.empty()) {
        const size_t end = std::min(headers.find_first_of("\r\n"), headers.size());
        const std::optional<HeaderLine> line = ParseLine(headers.substr(0, end));
        headers.remove_prefix(std::min(end + 1, headers.size()));
        if (!line) {
            continue;
        }
        std::erase_if(unwanted, [&](std::string_view name) { return SameName(name, line->name); });
        const std::string name(line->name);
        if (!line->value.empty()) {
            Append(list, name + ": " + std::string(line->value));
        } else if (!SameName(name, "Host")) {
            Append(list, name + ";");  // curl's notation for a header without value
        }
    }
    for (const std::string_view name : unwanted) {
        Append(list, std::string(name) + ":");
    }
    return list;
}

bool ResponseHead::TakeLine(std::string_view line) {
    if (m_final) {
        return true;  // the trailer of a chunked body
    }
    m_bytes += line.size();
    if (m_bytes > kLimit) {
        return false;
    }
    if (line.starts_with("HTTP/")) {
        m_headers.clear();
        m_status = ParseStatus(line);
    } else if (Trim(line).empty()) {
        const bool interim = m_status < 200;
        const bool followed = m_status >= 300 && m_status < 400 && !Find("Location", 0).value_or("").empty();
        m_final = !interim && !followed;
    } else if (const std::optional<HeaderLine> header = ParseLine(line)) {
        m_headers.emplace_back(header->name, header->value);
    }
    return true;
}

std::optional<std::string_view> ResponseHead::Find(std::string_view name, size_t index) const {
    for (const auto& [headerName, value] : m_headers) {
        if (SameName(headerName, name) && index-- == 0) {
            return value;
        }
    }
    return std::nullopt;
}

}  // namespace kvmpd::platform::internet
