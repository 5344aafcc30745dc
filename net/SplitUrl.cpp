#include "net/SplitUrl.h"

namespace kvmpd {
namespace {

constexpr std::uint16_t kHttpPort = 80;
constexpr std::uint16_t kHttpsPort = 443;

/// Whether `text` begins with `prefix`, letter for letter.
template <class Char>
bool BeginsWith(std::basic_string_view<Char> text, std::string_view prefix) {
    if (text.size() < prefix.size()) {
        return false;
    }
    for (size_t i = 0; i < prefix.size(); ++i) {
        if (text[i] != static_cast<Char>(prefix[i])) {
            return false;
        }
    }
    return true;
}

/// Reads a number as atoi does - blanks, a sign, digits, whatever follows - and keeps its low 16 bits.
template <class Char>
std::uint16_t ReadPort(std::basic_string_view<Char> text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == Char(' ') || (text[i] >= Char('\t') && text[i] <= Char('\r')))) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == Char('-') || text[i] == Char('+'))) {
        negative = text[i++] == Char('-');
    }
    std::uint32_t port = 0;  // wraps, which leaves the low 16 bits right
    for (; i < text.size() && text[i] >= Char('0') && text[i] <= Char('9'); ++i) {
        port = port * 10 + static_cast<std::uint32_t>(text[i] - Char('0'));
    }
    return static_cast<std::uint16_t>((negative ? 0 - port : port) & 0xFFFF);
}

template <class Char>
UrlParts<Char> Split(std::basic_string_view<Char> url) {
    UrlParts<Char> parts;
    size_t prefix = 0;
    if (BeginsWith(url, "http://")) {
        prefix = 7;
    } else if (BeginsWith(url, "https://")) {
        parts.secure = true;
        prefix = 8;
    } else {
        parts.path = url;
        return parts;
    }
    parts.known = true;
    url.remove_prefix(prefix);
    const size_t slash = url.find(Char('/'));
    std::basic_string_view<Char> host = url.substr(0, slash);
    if (slash != url.npos) {
        parts.path = url.substr(slash);
    }
    parts.port = parts.secure ? kHttpsPort : kHttpPort;
    if (const size_t colon = host.find(Char(':')); colon != host.npos) {
        parts.port = ReadPort(host.substr(colon + 1));
        host = host.substr(0, colon);
    }
    parts.host = host;
    return parts;
}

}  // namespace

UrlParts<char> SplitUrl(std::string_view url) {
    return Split(url);
}

UrlParts<wchar_t> SplitUrl(std::wstring_view url) {
    return Split(url);
}

}  // namespace kvmpd
