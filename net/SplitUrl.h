// Takes a URL apart into what a connection and a request need.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kvmpd {

template <class Char>
struct UrlParts {
    bool known = false;            ///< the URL begins with "http://" or "https://"; else only `path` is set
    bool secure = false;           ///< https
    std::basic_string<Char> host;  ///< as written, without the port
    std::uint16_t port = 0;        ///< as written; 443 or 80 without one
    std::basic_string<Char> path;  ///< from the first "/" after the host, with the query; may be empty
};

/// The scheme is matched as written, in lower case. A port is read like a decimal number with trailing text ignored and
/// kept in 16 bits; text that is no number gives 0. An IPv6 literal in brackets is not understood.
UrlParts<char> SplitUrl(std::string_view url);
UrlParts<wchar_t> SplitUrl(std::wstring_view url);

}  // namespace kvmpd
