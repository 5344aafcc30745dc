// Any text as a URL, taken apart in both widths and compared with a reference written another way.
#include <cstdint>
#include <string>
#include <string_view>

#include "net/SplitUrl.h"
#include "tests/fuzz/FuzzRequire.h"

namespace kvmpd::test {
namespace {

/// The low 16 bits of the number that `text` begins with, digit by digit from the last one.
std::uint16_t ReferencePort(std::string text) {
    text.erase(0, text.find_first_not_of(" \t\n\v\f\r"));
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.erase(0, 1);
    }
    text = text.substr(0, text.find_first_not_of("0123456789"));
    std::uint16_t number = 0;
    std::uint16_t weight = 1;
    for (auto digit = text.rbegin(); digit != text.rend(); ++digit) {
        number = static_cast<std::uint16_t>(number + (*digit - '0') * weight);
        weight = static_cast<std::uint16_t>(weight * 10);
    }
    return negative ? static_cast<std::uint16_t>(0x10000 - number) : number;
}

UrlParts<char> Reference(const std::string& url) {
    UrlParts<char> parts;
    parts.secure = url.rfind("https://", 0) == 0;
    parts.known = parts.secure || url.rfind("http://", 0) == 0;
    if (!parts.known) {
        parts.path = url;
        return parts;
    }
    std::string host = url.substr(parts.secure ? 8 : 7);
    const size_t slash = host.find('/');
    if (slash != std::string::npos) {
        parts.path = host.substr(slash);
        host.erase(slash);
    }
    const size_t colon = host.find(':');
    parts.host = host.substr(0, colon);
    if (colon == std::string::npos) {
        parts.port = parts.secure ? 443 : 80;
    } else {
        parts.port = ReferencePort(host.substr(colon + 1));
    }
    return parts;
}

std::wstring Widened(const std::string& text) {
    std::wstring wide;
    for (const char character : text) {
        wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(character)));
    }
    return wide;
}

void SplitBoth(const std::string& url) {
    const UrlParts<char> expected = Reference(url);
    const UrlParts<char> narrow = SplitUrl(std::string_view(url));
    Require(narrow.known == expected.known && narrow.secure == expected.secure, "scheme");
    Require(narrow.host == expected.host && narrow.path == expected.path, "host and path");
    Require(narrow.port == expected.port, "port");

    const std::wstring wideUrl = Widened(url);
    const UrlParts<wchar_t> wide = SplitUrl(std::wstring_view(wideUrl));
    Require(wide.known == narrow.known && wide.secure == narrow.secure && wide.port == narrow.port, "wide twin");
    Require(wide.host == Widened(narrow.host) && wide.path == Widened(narrow.path), "wide twin's texts");
}

}  // namespace
}  // namespace kvmpd::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    kvmpd::test::SplitBoth(text);
    kvmpd::test::SplitBoth("http://" + text);  // the scheme is hard to hit and says nothing about the rest
    return 0;
}
