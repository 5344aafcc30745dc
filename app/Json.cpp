#include "app/Json.h"

#include "app/Text.h"

namespace kvmpd::app {

std::string JsonQuote(std::string_view utf8) {
    std::string quoted = "\"";
    for (const char c : Utf8FromWide(WideFromUtf8(utf8))) {
        switch (c) {
            case '"':
                quoted += "\\\"";
                break;
            case '\\':
                quoted += "\\\\";
                break;
            case '\n':
                quoted += "\\n";
                break;
            case '\r':
                quoted += "\\r";
                break;
            case '\t':
                quoted += "\\t";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    quoted += Format("\\u%04x", static_cast<unsigned>(c));
                } else {
                    quoted += c;
                }
        }
    }
    return quoted + "\"";
}

JsonLine& JsonLine::Raw(std::string_view key, std::string_view json) {
    if (m_text.size() > 1) {
        m_text += ",";
    }
    m_text += JsonQuote(key);
    m_text += ":";
    m_text += json;
    return *this;
}

JsonLine& JsonLine::Seconds(std::string_view key, std::int64_t milliseconds) {
    const char* sign = milliseconds < 0 ? "-" : "";
    const auto total = static_cast<unsigned long long>(milliseconds < 0 ? -milliseconds : milliseconds);
    return Raw(key, Format("%s%llu.%03llu", sign, total / 1000, total % 1000));
}

}  // namespace kvmpd::app
