// One JSON object on one line (RFC 8259), built member by member.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kvmpd::app {

// The text with its quotes: control characters, quotes and backslashes escaped; ill-formed UTF-8 becomes U+FFFD, so
// that every line is valid whatever a server sent.
std::string JsonQuote(std::string_view utf8);

class JsonLine {
  public:
    JsonLine& Text(std::string_view key, std::string_view value) { return Raw(key, JsonQuote(value)); }
    JsonLine& Number(std::string_view key, std::int64_t value) { return Raw(key, std::to_string(value)); }
    JsonLine& Bool(std::string_view key, bool value) { return Raw(key, value ? "true" : "false"); }
    // Milliseconds as a decimal number of seconds.
    JsonLine& Seconds(std::string_view key, std::int64_t milliseconds);
    // json: already a JSON value.
    JsonLine& Raw(std::string_view key, std::string_view json);

    std::string Str() const { return m_text + "}"; }

  private:
    std::string m_text = "{";
};

}  // namespace kvmpd::app
