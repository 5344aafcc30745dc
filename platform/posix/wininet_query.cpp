// Questions about a response.
#include <charconv>
#include <cstring>
#include <optional>
#include <string>

#include "platform/posix/wininet_objects.h"

namespace kvmpd::platform::internet {
namespace {

constexpr DWORD kFlags = 0xFFFF0000 & ~HTTP_QUERY_CUSTOM;

/// The answer as text, or an error number.
struct Answer {
    DWORD error = 0;
    std::string text;
};

Answer HeaderValue(const ResponseHead& head, std::string_view name, DWORD* index) {
    const std::optional<std::string_view> value = head.Find(name, index == nullptr ? 0 : *index);
    if (!value) {
        return {ERROR_HTTP_HEADER_NOT_FOUND, {}};
    }
    return {0, std::string(*value)};
}

Answer Find(const ResponseHead& head, DWORD what, const void* buffer, DWORD* index) {
    switch (what) {
        case HTTP_QUERY_STATUS_CODE:
            return {0, std::to_string(head.Status())};
        case HTTP_QUERY_CONTENT_TYPE:
            return HeaderValue(head, "Content-Type", index);
        case HTTP_QUERY_CONTENT_LENGTH:
            return HeaderValue(head, "Content-Length", index);
        case HTTP_QUERY_ETAG:
            return HeaderValue(head, "ETag", index);
        case HTTP_QUERY_CUSTOM:
            if (buffer == nullptr) {
                return {ERROR_INVALID_PARAMETER, {}};
            }
            return HeaderValue(head, static_cast<const char*>(buffer), index);
        default:
            return {ERROR_HTTP_INVALID_QUERY_REQUEST, {}};
    }
}

template <class Number>
DWORD PutNumber(const std::string& text, void* buffer, DWORD& length) {
    if (buffer == nullptr || length < sizeof(Number)) {
        length = sizeof(Number);
        return ERROR_INSUFFICIENT_BUFFER;
    }
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) {
        return ERROR_HTTP_INVALID_HEADER;
    }
    std::memcpy(buffer, &number, sizeof(number));
    length = sizeof(number);
    return 0;
}

DWORD PutText(const std::string& text, void* buffer, DWORD& length) {
    const DWORD size = static_cast<DWORD>(text.size());
    if (buffer == nullptr || length < size + 1) {
        length = size + 1;
        return ERROR_INSUFFICIENT_BUFFER;
    }
    std::memcpy(buffer, text.c_str(), size + 1);
    length = size;  // without the terminator, unlike the size asked for above
    return 0;
}

DWORD Query(const ResponseHead& head, DWORD infoLevel, void* buffer, DWORD& length, DWORD* index) {
    const Answer answer = Find(head, infoLevel & ~kFlags, buffer, index);
    if (answer.error != 0) {
        return answer.error;
    }
    DWORD error = 0;
    if ((infoLevel & HTTP_QUERY_FLAG_NUMBER) != 0) {
        error = PutNumber<DWORD>(answer.text, buffer, length);
    } else if ((infoLevel & HTTP_QUERY_FLAG_NUMBER64) != 0) {
        error = PutNumber<ULONGLONG>(answer.text, buffer, length);
    } else {
        error = PutText(answer.text, buffer, length);
    }
    if (error == 0 && index != nullptr) {
        ++*index;
    }
    return error;
}

}  // namespace
}  // namespace kvmpd::platform::internet

using namespace kvmpd::platform;

BOOL HttpQueryInfoA(HINTERNET handle, DWORD infoLevel, LPVOID buffer, LPDWORD bufferLength, LPDWORD index) {
    const auto request = internet::ObjectOf<internet::Request>(handle);
    if (request == nullptr) {
        return FALSE;
    }
    if (bufferLength == nullptr) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    try {
        const LockHold hold(request->busy);
        if (!request->State().transfer.HasResponse()) {
            return FailWith(ERROR_INTERNET_INCORRECT_HANDLE_STATE);
        }
        const DWORD error = internet::Query(request->State().transfer.Head(), infoLevel, buffer, *bufferLength, index);
        return error == 0 ? TRUE : FailWith(error);
    } catch (const std::bad_alloc&) {
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
}
