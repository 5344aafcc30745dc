// Header lines: the caller's, made ready for curl, and the response's, kept for queries.
#ifndef PLATFORM_POSIX_WININET_HEADERS_H_
#define PLATFORM_POSIX_WININET_HEADERS_H_

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvmpd::platform::internet {

using HeaderList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

/// The lines of `headers` (divided by line ends) in curl's notation, and the orders to leave out what curl would add of
/// its own. Lines without a colon and a "Host" without a value are dropped. Throws std::bad_alloc.
HeaderList RequestHeaders(std::string_view headers);

/// Whether two header names are the same.
bool SameName(std::string_view left, std::string_view right);

/// The head of a response as it comes in, line by line. Redirects and interim responses replace each other; the head is
/// final when its end has come and curl will not follow it.
class ResponseHead {
  public:
    /// Takes one line with its line end; false when the heads of this request exceed their limit.
    bool TakeLine(std::string_view line);

    bool IsFinal() const { return m_final; }
    unsigned Status() const { return m_status; }
    /// Occurrence number `index` of the header `name`.
    std::optional<std::string_view> Find(std::string_view name, size_t index) const;

  private:
    static constexpr size_t kLimit = 256 * 1024;  // bytes of all heads of one request

    bool m_final = false;
    unsigned m_status = 0;
    size_t m_bytes = 0;
    std::vector<std::pair<std::string, std::string>> m_headers;
};

}  // namespace kvmpd::platform::internet

#endif  // PLATFORM_POSIX_WININET_HEADERS_H_
