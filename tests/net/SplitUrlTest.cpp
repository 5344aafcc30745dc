#include "net/SplitUrl.h"

#include <gtest/gtest.h>

#include <string>

#include "common/Text.h"

namespace kvmpd {
namespace {

struct Case {
    const char* name;
    const char* url;
    bool known;
    bool secure;
    const char* host;
    std::uint16_t port;
    const char* path;
};

class SplitUrlCases : public testing::TestWithParam<Case> {};

TEST_P(SplitUrlCases, Narrow) {
    const UrlParts<char> parts = SplitUrl(std::string_view(GetParam().url));
    EXPECT_EQ(parts.known, GetParam().known);
    EXPECT_EQ(parts.secure, GetParam().secure);
    EXPECT_EQ(parts.host, GetParam().host);
    EXPECT_EQ(parts.port, GetParam().port);
    EXPECT_EQ(parts.path, GetParam().path);
}

TEST_P(SplitUrlCases, Wide) {
    const std::wstring url = Utf8ToWide(GetParam().url);
    const UrlParts<wchar_t> parts = SplitUrl(std::wstring_view(url));
    EXPECT_EQ(parts.known, GetParam().known);
    EXPECT_EQ(parts.secure, GetParam().secure);
    EXPECT_EQ(WideToUtf8(parts.host), GetParam().host);
    EXPECT_EQ(parts.port, GetParam().port);
    EXPECT_EQ(WideToUtf8(parts.path), GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(
    Urls, SplitUrlCases,
    testing::Values(Case{"Http", "http://host/a/b.mp4", true, false, "host", 80, "/a/b.mp4"},
                    Case{"Https", "https://host/a", true, true, "host", 443, "/a"},
                    Case{"PortAndNoPath", "http://host:8080", true, false, "host", 8080, ""},
                    Case{"HttpsWithPort", "https://host:8443/a", true, true, "host", 8443, "/a"},
                    Case{"NoPath", "https://host", true, true, "host", 443, ""},
                    Case{"Query", "http://host/a?b=c/d:e", true, false, "host", 80, "/a?b=c/d:e"},
                    Case{"QueryWithoutSlash", "http://host?b=c", true, false, "host?b=c", 80, ""},
                    Case{"ColonInThePath", "http://host/a:9", true, false, "host", 80, "/a:9"},
                    Case{"EmptyPort", "http://host:/a", true, false, "host", 0, "/a"},
                    Case{"PortThatIsNoNumber", "http://host:x/a", true, false, "host", 0, "/a"},
                    Case{"PortWithRest", "http://host:80x/a", true, false, "host", 80, "/a"},
                    Case{"PortWithBlanks", "http://host: 81/a", true, false, "host", 81, "/a"},
                    Case{"PortBeyond16Bits", "http://host:65617/a", true, false, "host", 81, "/a"},
                    Case{"NegativePort", "http://host:-1/a", true, false, "host", 65535, "/a"},
                    Case{"OtherScheme", "ftp://x", false, false, "", 0, "ftp://x"},
                    Case{"UpperCaseScheme", "HTTP://host/a", false, false, "", 0, "HTTP://host/a"},
                    Case{"SchemeNotAtTheStart", " http://host/a", false, false, "", 0, " http://host/a"},
                    Case{"Empty", "", false, false, "", 0, ""}, Case{"SchemeOnly", "http://", true, false, "", 80, ""},
                    Case{"SchemeAndSlash", "https:///a", true, true, "", 443, "/a"}),
    [](const testing::TestParamInfo<Case>& url) { return std::string(url.param.name); });

}  // namespace
}  // namespace kvmpd
