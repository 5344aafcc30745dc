// What a response's bytes must arrive as, worked out by a few lines of our own; for responses whose framing is plain.
#pragma once

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvmpd::test {

/// A response that every client must read alike: no transfer coding, no redirect, nothing that is open to
/// interpretation.
struct PlainResponse {
    std::optional<std::uint64_t> length;  ///< Announced.
    std::string_view sent;                ///< Everything behind the head.

    bool IsCut() const { return length && sent.size() < *length; }
    /// The body; of one that is cut, what there is.
    std::string_view Body() const { return length && !IsCut() ? sent.substr(0, static_cast<size_t>(*length)) : sent; }
};

namespace plain_response {

inline bool IsText(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

/// "HTTP/1.1 200 OK", of a status that is followed by a body and by nothing else.
inline bool IsStatusLine(std::string_view line) {
    constexpr std::array<std::string_view, 12> kStatuses{"200", "201", "202", "203", "206", "400",
                                                         "403", "404", "410", "500", "502", "503"};
    return (line.starts_with("HTTP/1.0 ") || line.starts_with("HTTP/1.1 ")) && line.size() >= 12 &&
           std::ranges::find(kStatuses, line.substr(9, 3)) != kStatuses.end() &&
           (line.size() == 12 || line[12] == ' ') && IsText(line);
}

inline bool TakeHeader(std::string_view line, PlainResponse& response) {
    constexpr std::array<std::string_view, 6> kNotPlain{"transfer-encoding", "content-encoding", "content-range",
                                                        "location",          "upgrade",          "trailer"};
    const size_t colon = line.find(':');
    if (colon == 0 || colon == line.npos || !IsText(line)) {
        return false;
    }
    std::string name(line.substr(0, colon));
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto isNameCharacter = [](unsigned char c) { return std::isalnum(c) != 0 || c == '-'; };
    if (!std::ranges::all_of(name, isNameCharacter) || std::ranges::find(kNotPlain, name) != kNotPlain.end()) {
        return false;
    }
    if (name != "content-length") {
        return true;
    }
    line.remove_prefix(std::min(line.find_first_not_of(' ', colon + 1), line.size()));
    std::uint64_t length = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), length);
    if (response.length || line.empty() || line.size() > 18 || end != line.data() + line.size()) {
        return false;
    }
    response.length = length;
    return true;
}

}  // namespace plain_response

/// Nothing when `reply` is not plain.
inline std::optional<PlainResponse> ReadPlainResponse(std::string_view reply) {
    constexpr size_t kLongestHead = 16 * 1024;
    const size_t end = reply.substr(0, kLongestHead).find("\r\n\r\n");
    if (end == reply.npos) {
        return std::nullopt;
    }
    PlainResponse response{{}, reply.substr(end + 4)};
    std::string_view head = reply.substr(0, end + 2);
    for (bool first = true; !head.empty(); first = false) {
        const size_t next = head.find("\r\n");
        const std::string_view line = head.substr(0, next);
        if (!(first ? plain_response::IsStatusLine(line) : plain_response::TakeHeader(line, response))) {
            return std::nullopt;
        }
        head.remove_prefix(next + 2);
    }
    return response;
}

}  // namespace kvmpd::test
